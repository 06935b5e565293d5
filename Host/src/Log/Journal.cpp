#include "Log/Journal.h"

#include "Support/Mutex.h"
#include "Support/WriteAll.h"

#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace Host {

namespace {

int ToPriority(Core::LogLevel level)
{
    switch (level) {
    case Core::LogLevel::Off:
    case Core::LogLevel::Error:
        return LOG_ERR;
    case Core::LogLevel::Warning:
        return LOG_WARNING;
    case Core::LogLevel::Notice:
        return LOG_NOTICE;
    case Core::LogLevel::Information:
        return LOG_INFO;
    default:
        return LOG_DEBUG;
    }
}

class JournalSink final : public Core::Embedding::LogSink
{
public:
    void Write(const Core::LogEntry& entry) override EXCLUDES(mutex)
    {
        const auto line =
            MarkForJournal(entry.level, Core::Embedding::FormatLogLineWithoutTime(entry));
        const Support::Lock lock(mutex);
        Support::WriteAll(STDERR_FILENO, line); // or it is lost: there is nowhere to report it
    }

private:
    Support::Mutex mutex; // keeps the parts of a line together
};

} // namespace

bool LogsToJournal()
{
    // Read before any thread could change it.
    const char* const stream = std::getenv("JOURNAL_STREAM"); // NOLINT(concurrency-mt-unsafe)
    struct stat status = {};
    return stream != nullptr && fstat(STDERR_FILENO, &status) == 0 &&
           std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

std::string MarkForJournal(Core::LogLevel level, std::string_view text)
{
    const auto mark = "<" + std::to_string(ToPriority(level)) + ">";
    std::string marked = mark;
    for (const char each : text) {
        marked += each;
        if (each == '\n')
            marked += mark;
    }
    return marked + "\n";
}

std::shared_ptr<Core::Embedding::LogSink> MakeJournalSink()
{
    return std::make_shared<JournalSink>();
}

} // namespace Host
