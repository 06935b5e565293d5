#pragma once

#include <string>
#include <vector>

namespace Cli {

/// Runs a program of this machine to its end, with the standard streams of this process; the
/// first argument is its name. What is typed to interrupt it is for the program alone. Returns
/// its status, with 128 and the number when a signal ended it. Throws OperationFailedException
/// when it cannot be started.
[[nodiscard]] int RunLocalProgram(const std::vector<std::string>& arguments);

/// The same for a line of the user's shell; an empty one starts that shell.
[[nodiscard]] int RunLocalLine(const std::string& line);

} // namespace Cli
