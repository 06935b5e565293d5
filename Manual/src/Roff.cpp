#include "Roff.h"

#include "Support/Wrap.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string_view>

namespace Manual {

namespace {

constexpr std::size_t lineWidth = 96;

std::string Escape(std::string_view text)
{
    std::string escaped;
    for (const char character : text) {
        switch (character) {
        case '\\':
            escaped += "\\e";
            break;
        case '-': // as in a command, not as a hyphen
            escaped += "\\-";
            break;
        case '\'':
            escaped += "\\(aq";
            break;
        case '^':
            escaped += "\\(ha";
            break;
        case '~':
            escaped += "\\(ti";
            break;
        case '`':
            escaped += "\\(ga";
            break;
        default:
            escaped += character;
        }
    }
    return escaped;
}

std::string Bold(std::string_view text)
{
    return "\\fB" + Escape(text) + "\\fR";
}

std::string Italic(std::string_view text)
{
    return "\\fI" + Escape(text) + "\\fR";
}

std::string ToUpper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char each) { return static_cast<char>(std::toupper(each)); });
    return text;
}

bool IsPlaceholder(std::string_view word)
{
    return std::any_of(word.begin(), word.end(), [](char each) { return each >= 'A'; }) &&
           std::all_of(word.begin(), word.end(),
                       [](char each) { return (each >= 'A' && each <= 'Z') || each == '.'; });
}

/// Returns true for -f, --flag, and the name of a page such as man(1).
bool IsReference(std::string_view word)
{
    const bool isFlag = word.size() > 1 && word[0] == '-' && word != "--" && word != "-;";
    return isFlag || (word.size() > 3 && word.ends_with(')') && word[word.size() - 3] == '(' &&
                      std::isdigit(static_cast<unsigned char>(word[word.size() - 2])) != 0);
}

/// Returns a word with the flag or page that it is in bold, and the punctuation behind it not.
std::string FormatWord(std::string_view word)
{
    const auto last = word.find_last_not_of(".,;:");
    const auto name = word.substr(0, last + 1);
    if (last == std::string_view::npos || !IsReference(name))
        return Escape(word);
    return Bold(name) + Escape(word.substr(last + 1));
}

/// Formats each line of a text word by word. A line must not begin with a control character.
std::string FormatLines(const std::string& text)
{
    std::string formatted;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('.'))
            formatted += "\\&";
        std::istringstream words(line);
        bool isFirst = true;
        for (std::string word; words >> word; isFirst = false)
            formatted += (isFirst ? "" : " ") + FormatWord(word);
        formatted += '\n';
    }
    return formatted;
}

} // namespace

Roff::Roff(const CommandLine::Manual& manual)
{
    Line(".\\\" Generated from the texts and tables of the programs, see Manual/.");
    Line(".TH " + Escape(ToUpper(manual.name)) + " " + manual.chapter +
         " \"" TALVENSOR_VERSION_DATE "\" \"Talvensor " TALVENSOR_VERSION "\"");
    Section("Name");
    Line(Escape(manual.name) + " \\- " + Escape(manual.summary));
}

void Roff::Line(const std::string& line)
{
    page += line + '\n';
}

void Roff::Section(const std::string& title)
{
    Line(".SH " + Escape(ToUpper(title)));
    isBelowHeading = true;
}

void Roff::Subsection(const std::string& title)
{
    Line(".SS " + Escape(title));
    isBelowHeading = true;
}

void Roff::Text(const CommandLine::Text& text)
{
    for (const auto& paragraph : CommandLine::SplitParagraphs(text)) {
        BeginParagraph();
        Paragraph(paragraph);
    }
}

void Roff::BeginParagraph()
{
    if (!isBelowHeading)
        Line(".PP");
    isBelowHeading = false;
}

void Roff::Paragraph(const CommandLine::Paragraph& paragraph)
{
    if (paragraph.isLiteral)
        Literal(paragraph.text);
    else
        page += FormatLines(Support::Wrap(paragraph.text, lineWidth));
}

void Roff::Literal(const std::string& text)
{
    constexpr std::size_t margin = 4; // which the indentation replaces
    Line(".RS 4");
    Line(".EX");
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        Line("\\&" + Escape(line.substr(std::min(margin, line.size()))));
    Line(".EE");
    Line(".RE");
}

void Roff::Tagged(const std::string& tag, const CommandLine::Text& text)
{
    isBelowHeading = false;
    Line(".TP");
    Line(tag);
    bool isFirst = true;
    for (const auto& paragraph : CommandLine::SplitParagraphs(text)) {
        if (!isFirst)
            Line(".IP");
        isFirst = false;
        Paragraph(paragraph);
    }
}

void Roff::Term(const std::string& name, const CommandLine::Text& text)
{
    Tagged(Bold(name), text);
}

void Roff::Option(const CommandLine::Option& option)
{
    std::string tag;
    for (const auto& name : option.names)
        tag += (tag.empty() ? "" : ", ") + Bold(name);
    if (!option.placeholder.empty())
        tag += ' ' + (IsPlaceholder(option.placeholder) ? Italic(option.placeholder)
                                                        : Escape(option.placeholder));
    Tagged(tag, option.text);
}

void Roff::Usage(const std::string& usage)
{
    std::istringstream words(usage);
    std::string formatted;
    for (std::string word; words >> word;) {
        const auto begin = word.find_first_not_of('[');
        const auto end = word.find_last_not_of("].");
        const auto name = word.substr(begin, end + 1 - begin);
        const bool isArgument = IsPlaceholder(name);
        formatted += (formatted.empty() ? "" : " ") + Escape(word.substr(0, begin)) +
                     (isArgument ? Italic(name) : Bold(name)) + Escape(word.substr(end + 1));
    }
    BeginParagraph();
    Line(formatted);
}

} // namespace Manual
