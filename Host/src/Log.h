#pragma once

#include "Core/LogEntry.h"

#include <string>

namespace Host {

/// Appends an entry of the host's own to the log, as written where this is called. The message is
/// raw. Any thread.
void Log(Core::LogLevel level, const char* category, std::string message,
         const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
         int line = __builtin_LINE());

} // namespace Host
