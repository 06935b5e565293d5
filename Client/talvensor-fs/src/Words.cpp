#include "Words.h"

#include "Client/Exceptions.h"
#include "Text.h"

#include <charconv>
#include <utility>

namespace Cli {

namespace {

constexpr std::string_view blanks = " \t\r\n";

bool IsBlank(char character)
{
    return blanks.find(character) != std::string_view::npos;
}

/// Reads a line word by word.
class WordReader
{
public:
    explicit WordReader(std::string_view line)
        : line(line)
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
            word += ReadEscape();
        else
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
    std::size_t position = 0;
    char quote = '\0';
    bool wasBlankSkipped = false;
};

} // namespace

std::vector<std::string> SplitWords(std::string_view line)
{
    std::vector<std::string> words;
    WordReader reader(line);
    while (!reader.IsAtEnd())
        words.push_back(reader.Read());
    if (reader.IsQuoteOpen())
        throw Client::InvalidArgumentException("a quote is not closed");
    return words;
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
        if (character == ' ' || character == '\'' || character == '"')
            quoted += '\\';
        quoted += character;
    }
    return quoted;
}

} // namespace Cli
