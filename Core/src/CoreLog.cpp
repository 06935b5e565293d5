#include "CoreLog.h"

#include "Core/Exception.h"
#include "Core/Logger.h"

#include <exception>
#include <utility>

namespace Core {

namespace {

constexpr const char* category = "Core";

LogEntry MakeEntry(LogLevel level, std::string message, const SourcePlace& place)
{
    LogEntry entry;
    entry.level = level;
    entry.category = category;
    entry.message = std::move(message);
    entry.timestamp = DateTime::Now();
    entry.file = place.file;
    entry.function = place.function;
    entry.line = place.line;
    return entry;
}

} // namespace

ExceptionDescription DescribeCurrentException()
{
    try {
        throw;
    } catch (const Exception& exception) {
        return {exception.GetMessage(), exception.GetDetails(), exception.GetErrorCode()};
    } catch (const std::exception& exception) {
        return {exception.what(), {}, 0};
    } catch (...) {
        return {"an exception of unknown type", {}, 0};
    }
}

void LogCurrentException(const std::string& what, const std::string& origin,
                         SourcePlace place) noexcept
{
    try {
        auto& logger = Logger::Instance();
        if (!logger.IsEnabledForEntry(LogLevel::Error, category))
            return;
        auto exception = DescribeCurrentException();
        auto entry = MakeEntry(LogLevel::Error, what + ": " + exception.message, place);
        entry.code = exception.code;
        entry.details = std::move(exception.details);
        entry.origin = origin;
        logger.AppendEntry(std::move(entry));
    } catch (...) { // NOLINT(bugprone-empty-catch): a lost entry cannot be reported
    }
}

void LogWarning(const std::string& message, SourcePlace place) noexcept
{
    try {
        auto& logger = Logger::Instance();
        if (logger.IsEnabledForEntry(LogLevel::Warning, category))
            logger.AppendEntry(MakeEntry(LogLevel::Warning, message, place));
    } catch (...) { // NOLINT(bugprone-empty-catch): a lost entry cannot be reported
    }
}

} // namespace Core
