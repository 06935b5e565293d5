#pragma once

#include <string>

namespace Host {

/// Returns a new password. If standard input is a terminal, asks for it twice and does not show it;
/// otherwise reads the first line of standard input. A signal that comes meanwhile takes effect
/// after the terminal is restored. Throws InvalidArgumentException if the two differ or there is no
/// password, and std::system_error if the terminal cannot be used. One thread at a time.
[[nodiscard]] std::string AskForNewPassword(const std::string& user);

} // namespace Host
