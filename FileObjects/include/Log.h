#pragma once

#include "Core/LogEntry.h"

#include <source_location>
#include <string>

namespace FileObjects {

/// Writes a line to the host's log. Any thread.
void Log(Core::LogLevel level, std::string message,
         const std::source_location& place = std::source_location::current());

} // namespace FileObjects
