#pragma once

#include "Core/DateTime.h"
#include "Core/Value.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Core {

/// Severity of a log entry; the higher the number, the less it matters.
enum class LogLevel : std::int32_t
{
    Off = 0, ///< for switching: nothing is kept
    Error = 1,
    Warning = 2,
    Notice = 3,
    Information = 4,
    Detail = 5,
    Debug = 6,
    Trace = 7,
};

/// One log record. Texts are raw: they may hold any bytes, zero and line ends included; sinks
/// escape.
struct LogEntry
{
    LogLevel level = LogLevel::Information;
    std::string category;
    std::uint32_t code = 0;
    std::string message;
    DateTime timestamp;
    std::string file;
    std::string function;
    std::int32_t line = 0;
    /// More about the cause, e.g. `Exception::GetDetails` of what was caught.
    std::string details;
    /// On whose behalf, e.g. a session's name.
    std::string origin;
    /// Structured data for sinks that can carry it.
    std::shared_ptr<const Value> attachment;
};

} // namespace Core
