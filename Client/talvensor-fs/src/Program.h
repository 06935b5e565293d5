#pragma once

#include <string>
#include <vector>

namespace Cli {

/// Runs the program with the arguments behind its name; what it returns is for `exit`. Changes the
/// process: locale, signals. Once.
[[nodiscard]] int RunProgram(const std::vector<std::string>& arguments);

} // namespace Cli
