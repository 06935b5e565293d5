#pragma once

#include <CLI/CLI.hpp>

namespace Bench {

/// Parses the command line and runs its command; returns the exit status. Throws what the command
/// throws.
int RunProgram(CLI::App& app, int argc, char** argv);

} // namespace Bench
