#pragma once

#include <string>

namespace Host {

/// Throws SystemException: what failed, and the system's own text for errno.
[[noreturn]] void ThrowSystemError(const std::string& whatFailed);

} // namespace Host
