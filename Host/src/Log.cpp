#include "Log.h"

#include "Core/Logger.h"

#include <utility>

namespace Host {

void Log(Core::LogLevel level, const char* category, std::string message, const char* file,
         const char* function, int line)
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
    logger.AppendEntry(std::move(entry));
}

} // namespace Host
