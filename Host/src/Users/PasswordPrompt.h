#pragma once

#include <string>

namespace Host {

/// Asks for a new password on the terminal that is standard input, twice and without echo; where
/// standard input is no terminal, its first line is the password. An interruption by a signal puts
/// the terminal back in order before it takes its course. Throws InvalidArgumentException when the
/// two differ or there is none, SystemException. One thread.
[[nodiscard]] std::string AskForNewPassword(const std::string& user);

} // namespace Host
