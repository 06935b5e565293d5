#pragma once

#include "Core/Export.h"
#include "Core/LogEntry.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Core::Embedding {

/// Takes log entries. `Write` is called by several threads at once and must cope with it.
class CORE_API LogSink
{
public:
    LogSink() = default;
    LogSink(const LogSink&) = delete;
    LogSink& operator=(const LogSink&) = delete;
    virtual ~LogSink();
    virtual void Write(const LogEntry& entry) = 0;
};

/// Switches the process-wide logger. All operations may be called from any thread.
class CORE_API LogControl
{
public:
    LogControl() = delete;

    /// The level of every category that has none of its own; Warning at first.
    static void SetLevel(LogLevel level);
    /// The level of one category.
    static void SetLevel(const std::string& category, LogLevel level);
    /// Forgets the categories' own levels.
    static void ResetCategoryLevels();

    /// Entries go to every sink, in the order of their adding; there is none at first. Throws
    /// InvalidArgumentException for a null sink.
    static void AddSink(std::shared_ptr<LogSink> sink);
    /// Once it has returned the sink gets no new entry; one that is being written may still be on
    /// its way.
    static void RemoveSink(const std::shared_ptr<LogSink>& sink);
};

/// One line per entry on standard error.
[[nodiscard]] CORE_API std::shared_ptr<LogSink> MakeConsoleLogSink();

/// One line per entry, appended to a file and handed to the system at once. Throws SystemException
/// when the file cannot be opened.
[[nodiscard]] CORE_API std::shared_ptr<LogSink> MakeFileLogSink(const std::filesystem::path& file);

/// The line of an entry, without a line end: time, level, category, code, "message", function,
/// file:line, then details="...", origin="..." and attachment="..." where there are any. Bytes that
/// could forge or break a line or a field (control characters, line separators, marks that turn the
/// direction of writing, a backslash, a double quote, what is not valid UTF-8; blanks in category,
/// function and file) appear as \xNN. "-" stands for an empty category, function, file or time.
[[nodiscard]] CORE_API std::string FormatLogLine(const LogEntry& entry);

/// Keeps entries in memory, for tests and for programs that show their log themselves.
class CORE_API CapturingLogSink final : public LogSink
{
public:
    void Write(const LogEntry& entry) override;

    [[nodiscard]] std::vector<LogEntry> GetEntries() const;
    void Clear();
    /// Waits until an entry satisfies the predicate; false when none does within the limit. The
    /// predicate runs without a lock.
    [[nodiscard]] bool WaitFor(const std::function<bool(const LogEntry&)>& predicate,
                               std::chrono::milliseconds limit) const;

private:
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::vector<LogEntry> entries; // guarded by mutex
    std::size_t forgotten = 0;     // how many entries Clear removed; guarded by mutex
};

} // namespace Core::Embedding
