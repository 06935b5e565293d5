#pragma once

#include "Core/LogEntry.h"
#include "Core/Logger.h"

#include <cstdint>
#include <sstream>
#include <string>
#include <utility>

namespace FileSystem {

inline constexpr const char* logCategory = "FileSystem";

/// Message codes: 0x0217 in the low 16 bits, the family of the message in the high ones.
namespace LogCode {
inline constexpr std::uint32_t general = 0x00000217;
inline constexpr std::uint32_t closeFailed = 0x00010217;
inline constexpr std::uint32_t readLengthExceeded = 0x00020217;
inline constexpr std::uint32_t permissionsNotSet = 0x00030217;
} // namespace LogCode

/// The constant part of a log statement. Operators filter by file, function and line: these belong
/// to the statement and stay when it moves in the source.
struct LogStatement
{
    Core::LogLevel level;
    std::uint32_t code;
    const char* file;
    const char* function;
    std::int32_t line;
};

/// The form in which a failed close is reported.
struct CloseReport
{
    LogStatement statement;
    const char* text;
};

/// Writes one entry, if the logger would keep it; otherwise calls neither
/// `writeText(std::ostream&)` nor `makeDetails()` and builds nothing. Any thread.
template <typename WriteText, typename MakeDetails>
void Log(const LogStatement& statement, WriteText&& writeText, MakeDetails&& makeDetails)
{
    if (!Core::Logger::Instance().IsEnabledForEntry(statement.level, logCategory))
        return;
    std::ostringstream text;
    std::forward<WriteText>(writeText)(text);
    Core::Logger::Instance().AppendEntry({statement.level,
                                          logCategory,
                                          statement.code,
                                          text.str(),
                                          Core::DateTime::Now(),
                                          statement.file,
                                          statement.function,
                                          statement.line,
                                          std::forward<MakeDetails>(makeDetails)(),
                                          {},
                                          nullptr});
}

template <typename WriteText>
void Log(const LogStatement& statement, WriteText&& writeText)
{
    Log(statement, std::forward<WriteText>(writeText), [] { return std::string(); });
}

inline void Log(const CloseReport& report)
{
    Log(report.statement, [&report](std::ostream& text) { text << report.text; });
}

/// Throws std::logic_error naming the condition and its published place, unless it holds.
void CheckCondition(bool holds, const char* condition, const char* file, std::int32_t line);

} // namespace FileSystem
