#pragma once

#include "Client/FileSystem.h"

#include <string>

namespace Cli {

/// YYYY-MM-DD[{ |T}HH:MM[:SS]] in local time, with Z or +HH:MM behind it in that zone; or @ and the
/// seconds since 1970. Throws InvalidArgumentException.
[[nodiscard]] Client::FileTime ParseTime(const std::string& text);

/// "2026-01-31 12:00:00" in local time.
[[nodiscard]] std::string FormatLocalTime(Client::FileTime time);

/// "2026-01-31T12:00:00Z".
[[nodiscard]] std::string FormatUtcTime(Client::FileTime time);

} // namespace Cli
