#include "Output/Words.h"

#include "Client/Exceptions.h"
#include "Output/Text.h"

#include <charconv>
#include <utility>

namespace Cli {

namespace {

constexpr std::string_view blanks = " \t\r\n";

bool IsBlank(char character)
{
    return blanks.find(character) != std::string_view::npos;
}

bool NeedsMark(char character)
{
    return std::string_view("*?[]\\").find(character) != std::string_view::npos ||
           character == quoteMark;
}

/// Replaces the marks before other characters than the mark itself.
std::string ReplaceMarks(std::string_view word, std::string_view replacement)
{
    std::string replaced;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (word[i] == quoteMark && i + 1 < word.size()) {
            ++i;
            if (word[i] != quoteMark)
                replaced += replacement;
        }
        replaced += word[i];
    }
    return replaced;
}

/// Reads a line word by word.
class WordReader
{
public:
    explicit WordReader(std::string_view line, bool marks = false)
        : line(line)
        , marks(marks)
    {
        SkipBlanks();
    }

    [[nodiscard]] bool IsAtEnd() const noexcept { return position == line.size(); }
    [[nodiscard]] std::size_t GetPosition() const noexcept { return position; }
    [[nodiscard]] bool IsQuoteOpen() const noexcept { return quote != '\0'; }
    /// Nothing stands behind the word that was read.
    [[nodiscard]] bool IsTouchingEnd() const noexcept { return IsAtEnd() && !wasBlankSkipped; }

    std::string Read()
    {
        std::string word;
        while (!IsAtEnd() && (IsQuoteOpen() || !IsBlank(line[position])))
            ReadPart(word);
        SkipBlanks();
        return word;
    }

private:
    void SkipBlanks()
    {
        const auto begin = position;
        while (!IsAtEnd() && IsBlank(line[position]))
            ++position;
        wasBlankSkipped = position > begin;
    }

    void ReadPart(std::string& word)
    {
        const char character = line[position++];
        if (character == quote)
            quote = '\0';
        else if (!IsQuoteOpen() && (character == '\'' || character == '"'))
            quote = character;
        else if (character == '\\' && quote != '\'' && !IsAtEnd())
            AddQuoted(word, ReadEscape());
        else if (IsQuoteOpen() || character == '\\' || character == quoteMark)
            AddQuoted(word, character);
        else
            word += character;
    }

    void AddQuoted(std::string& word, char character) const
    {
        if (marks && NeedsMark(character))
            word += quoteMark;
        word += character;
    }

    char ReadEscape()
    {
        const char character = line[position++];
        if (character == 'n')
            return '\n';
        if (character == 't')
            return '\t';
        unsigned char byte = 0;
        const auto digits = line.substr(position, 2);
        const char* const end = digits.data() + digits.size();
        if (character != 'x' || digits.size() < 2 ||
            std::from_chars(digits.data(), end, byte, 16).ptr != end)
            return character;
        position += digits.size();
        return static_cast<char>(byte);
    }

    const std::string_view line;
    const bool marks;
    std::size_t position = 0;
    char quote = '\0';
    bool wasBlankSkipped = false;
};

std::vector<std::string> Split(std::string_view line, bool marks)
{
    std::vector<std::string> words;
    WordReader reader(line, marks);
    while (!reader.IsAtEnd())
        words.push_back(reader.Read());
    if (reader.IsQuoteOpen())
        throw Client::InvalidArgumentException("a quote is not closed");
    return words;
}

} // namespace

std::vector<std::string> SplitWords(std::string_view line)
{
    return Split(line, false);
}

std::vector<std::string> SplitMarkedWords(std::string_view line)
{
    return Split(line, true);
}

std::string MarkUnquoted(std::string_view word)
{
    std::string marked;
    for (const char character : word) {
        if (character == quoteMark)
            marked += quoteMark;
        marked += character;
    }
    return marked;
}

std::string RemoveMarks(std::string_view word)
{
    return ReplaceMarks(word, "");
}

std::string ToPattern(std::string_view word)
{
    return ReplaceMarks(word, "\\");
}

PartialLine SplitPartialLine(std::string_view line)
{
    PartialLine partial{.words = {}, .last = {}, .lastBegin = line.size()};
    WordReader reader(line);
    while (!reader.IsAtEnd()) {
        const auto begin = reader.GetPosition();
        auto word = reader.Read();
        if (!reader.IsTouchingEnd()) {
            partial.words.push_back(std::move(word));
            continue;
        }
        partial.last = std::move(word);
        partial.lastBegin = begin;
    }
    return partial;
}

std::string QuoteWord(std::string_view word)
{
    if (word.empty())
        return "''";
    std::string quoted;
    for (const char character : EscapeName(word)) {
        if (std::string_view(" '\"*?[").find(character) != std::string_view::npos)
            quoted += '\\';
        quoted += character;
    }
    return quoted;
}

} // namespace Cli
