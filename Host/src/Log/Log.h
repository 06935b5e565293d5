#pragma once

#include "Core/LogEntry.h"

#include <string>

namespace Host {

/// Appends an entry of the host's own to the log, as written where this is called. The message is
/// raw. Of the entries of one place the log takes so many in a second and counts the others, see
/// LogLimiter; those of the levels Debug and Trace are not limited. Any thread.
void Log(Core::LogLevel level, const char* category, std::string message,
         const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
         int line = __builtin_LINE());

/// The same where one place writes entries of many kinds; `kind` tells them apart.
void LogOfKind(const void* kind, Core::LogLevel level, const char* category, std::string message,
               const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
               int line = __builtin_LINE());

/// Appends an entry for each kind of which entries were left out, which says how many. To be called
/// now and then.
void LogLeftOut();

} // namespace Host
