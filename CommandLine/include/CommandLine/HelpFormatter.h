#pragma once

#include "CommandLine/Description.h"
#include "CommandLine/Manual.h"

#include <CLI/CLI.hpp>

#include <map>
#include <string>

namespace CommandLine {

/// Formats the help of a program whose grammar CLI11 holds.
class HelpFormatter : public CLI::FormatterBase
{
public:
    /// Sets the usage of a program or command; lines after the first are further forms.
    void SetUsage(const CLI::App& app, const std::string& usage) { usages[&app] = usage; }

    /// Adds the sections of a manual to the help of its program. REQUIRES: the manual lives as
    /// long.
    void SetManual(const CLI::App& app, const Manual& manual) { manuals[&app] = &manual; }

    /// Describes a program or command. Options and commands with an empty group are left out.
    [[nodiscard]] Command Describe(const CLI::App& app) const;

    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override;

private:
    std::map<const CLI::App*, std::string> usages;
    std::map<const CLI::App*, const Manual*> manuals;
};

} // namespace CommandLine
