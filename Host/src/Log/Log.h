#pragma once

#include "Core/LogEntry.h"

#include <string>

namespace Host {

/// Appends an entry of the host to the log, with the place of this call. The message is raw text;
/// sinks escape it. The log limits the entries of one place, see LogLimiter, but not those of the
/// levels Debug and Trace. Any thread may call it.
void Log(Core::LogLevel level, const char* category, std::string message,
         const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
         int line = __builtin_LINE());

/// As `Log`, for a place that writes entries of several kinds: each `kind` has a limit of its own.
void LogOfKind(const void* kind, Core::LogLevel level, const char* category, std::string message,
               const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
               int line = __builtin_LINE());

/// Appends an entry for each kind of entries that were left out, with their number. Call it
/// regularly.
void LogLeftOut();

} // namespace Host
