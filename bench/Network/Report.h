#pragma once

#include <CLI/CLI.hpp>

namespace Bench {

/// Parses the command line and runs what it asks for; returns the exit status. Throws what that
/// throws.
int RunProgram(CLI::App& app, int argc, char** argv);

} // namespace Bench
