#include "Log/Log.h"

#include "Core/Logger.h"
#include "Log/LogLimiter.h"

#include <utility>

namespace Host {

namespace {

LogLimiter& GetLimiter()
{
    static LogLimiter limiter;
    return limiter;
}

} // namespace

void Log(Core::LogLevel level, const char* category, std::string message, const char* file,
         const char* function, int line)
{
    LogOfKind(file, level, category, std::move(message), file, function, line);
}

void LogOfKind(const void* kind, Core::LogLevel level, const char* category, std::string message,
               const char* file, const char* function, int line)
{
    auto& logger = Core::Logger::Instance();
    if (!logger.IsEnabledForEntry(level, category))
        return;
    Core::LogEntry entry;
    entry.level = level;
    entry.category = category;
    entry.message = std::move(message);
    entry.timestamp = Core::DateTime::Now();
    entry.file = file;
    entry.function = function;
    entry.line = line;
    const bool isLimited = level < Core::LogLevel::Debug;
    if (!isLimited || GetLimiter().MayWrite({kind, line}, entry))
        logger.AppendEntry(std::move(entry));
}

void LogLeftOut()
{
    for (auto& entry : GetLimiter().TakeLeftOut())
        Core::Logger::Instance().AppendEntry(std::move(entry));
}

} // namespace Host
