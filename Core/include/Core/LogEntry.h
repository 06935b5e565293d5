#pragma once

#include "Core/DateTime.h"
#include "Core/Value.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Core {

/// The severity of a log entry: a higher number means a less important one.
enum class LogLevel : std::int32_t
{
    Off = 0, ///< as a limit: the logger keeps nothing
    Error = 1,
    Warning = 2,
    Notice = 3,
    Information = 4,
    Detail = 5,
    Debug = 6,
    Trace = 7,
};

/// One log record. Texts are raw and may hold any bytes, zero and line ends included; sinks escape
/// them.
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
    /// More about the cause, such as `Exception::GetDetails`.
    std::string details;
    /// The originator, such as a session's name.
    std::string origin;
    /// Structured data for sinks that can carry it.
    std::shared_ptr<const Value> attachment;
};

} // namespace Core
