#include "Log.h"

#include "Core/DateTime.h"
#include "Core/Logger.h"

#include <utility>

namespace FileObjects {

void Log(Core::LogLevel level, std::string message, const std::source_location& place)
{
    Core::LogEntry entry;
    entry.level = level;
    entry.category = "FileObjects";
    entry.message = std::move(message);
    entry.timestamp = Core::DateTime::Now();
    entry.file = place.file_name();
    entry.function = place.function_name();
    entry.line = static_cast<int>(place.line());
    Core::Logger::Instance().AppendEntry(std::move(entry));
}

} // namespace FileObjects
