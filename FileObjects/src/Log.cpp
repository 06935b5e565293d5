#include "Log.h"

#include "Core/DateTime.h"
#include "Core/Logger.h"

#include <utility>

namespace FileObjects {

void Log(Core::LogLevel level, std::string message, const char* file, const char* function,
         int line)
{
    Core::LogEntry entry;
    entry.level = level;
    entry.category = "FileObjects";
    entry.message = std::move(message);
    entry.timestamp = Core::DateTime::Now();
    entry.file = file;
    entry.function = function;
    entry.line = line;
    Core::Logger::Instance().AppendEntry(std::move(entry));
}

} // namespace FileObjects
