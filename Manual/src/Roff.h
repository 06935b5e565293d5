#pragma once

#include "CommandLine/Manual.h"
#include "CommandLine/Paragraphs.h"

#include <string>

namespace Manual {

/// Writes a manual page with the macros of man(7).
class Roff
{
public:
    explicit Roff(const CommandLine::Manual& manual);

    void Section(const std::string& title);
    void Subsection(const std::string& title);
    void Text(const CommandLine::Text& text);
    /// Adds a name in bold, with its text indented below.
    void Term(const std::string& name, const CommandLine::Text& text);
    void Option(const CommandLine::Option& option);
    void Usage(const std::string& usage);

    [[nodiscard]] const std::string& GetPage() const noexcept { return page; }

private:
    void Line(const std::string& line);
    void BeginParagraph();
    void Paragraph(const CommandLine::Paragraph& paragraph);
    void Literal(const std::string& text);
    void Tagged(const std::string& tag, const CommandLine::Text& text);

    std::string page;
    bool isBelowHeading = false;
};

} // namespace Manual
