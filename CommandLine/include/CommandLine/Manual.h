#pragma once

#include "CommandLine/Description.h"

#include <string>
#include <vector>

namespace CommandLine {

/// A name and its meaning: an exit status, a variable, a file.
struct Term
{
    std::string name;
    Text text;
};

enum class Shown
{
    InHelpAndPage,
    InPage,
};

struct Section
{
    std::string title;
    Text text;
    std::vector<Term> terms; ///< follow the text
    Shown shown = Shown::InPage;
};

/// The parts of a manual page that no table of options or commands has.
struct Manual
{
    std::string name;
    std::string chapter;
    std::string summary;
    std::vector<std::string> synopsis;
    Text description;
    std::vector<Section> sections;
    std::vector<std::string> seeAlso;
};

/// Returns the end of a program's help: the sections that are shown there.
[[nodiscard]] std::string FormatSections(const Manual& manual);

} // namespace CommandLine
