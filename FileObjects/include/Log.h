#pragma once

#include "Core/LogEntry.h"

#include <string>

namespace FileObjects {

/// Writes a line to the host's log. Any thread.
void Log(Core::LogLevel level, std::string message, const char* file = __builtin_FILE(),
         const char* function = __builtin_FUNCTION(), int line = __builtin_LINE());

} // namespace FileObjects
