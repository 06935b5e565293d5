#pragma once

#include <string>

namespace Support {

/// Throws std::system_error with errno as its code. Its text is `whatFailed`, a colon, and the
/// system's text for errno.
[[noreturn]] void ThrowSystemError(const std::string& whatFailed);

} // namespace Support
