#pragma once

#include <CLI/CLI.hpp>

#include <functional>

namespace Bench {

/// Parses the command line and runs what it asks for. Exit status 1, with a line on standard
/// error, when that throws.
int RunProgram(CLI::App& app, int argc, char** argv);

} // namespace Bench
