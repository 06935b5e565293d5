#pragma once

#include "Core/Export.h"
#include "Core/LogEntry.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Core::Embedding {

/// Takes log entries. Several threads may call `Write` at once.
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

    /// Sets the level of every category that has no level of its own; Warning at first.
    static void SetLevel(LogLevel level);
    /// Sets the level of one category.
    static void SetLevel(const std::string& category, LogLevel level);
    /// Forgets the categories' own levels.
    static void ResetCategoryLevels();

    /// Adds a sink. Entries go to all sinks, in the order in which they were added; at first the
    /// logger has none. Throws InvalidArgumentException for a null sink.
    static void AddSink(std::shared_ptr<LogSink> sink);
    /// Removes a sink: it gets no new entry once this has returned; another thread may still be
    /// writing an earlier one.
    static void RemoveSink(const std::shared_ptr<LogSink>& sink);
};

/// Writes one line per entry to standard error.
[[nodiscard]] CORE_API std::shared_ptr<LogSink> MakeConsoleLogSink();

/// Appends one line per entry to a file and hands it to the system at once. Throws SystemException
/// when the file cannot be opened.
[[nodiscard]] CORE_API std::shared_ptr<LogSink> MakeFileLogSink(const std::filesystem::path& file);

/// Returns the line of an entry, without a line end: time, level, category, code, "message",
/// function, file:line, then details="...", origin="..." and attachment="..." if the entry has
/// them. Bytes that could forge or break a line or a field appear as \xNN: control characters, line
/// separators, marks that turn the direction of writing, a backslash, a double quote, invalid
/// UTF-8, and blanks in category, function and file. "-" stands for an empty category, function,
/// file or time.
[[nodiscard]] CORE_API std::string FormatLogLine(const LogEntry& entry);

/// The same without the time and the blank behind it.
[[nodiscard]] CORE_API std::string FormatLogLineWithoutTime(const LogEntry& entry);

/// Keeps entries in memory, for tests and for programs that show their log themselves. All
/// operations may be called from any thread.
class CORE_API CapturingLogSink final : public LogSink
{
public:
    CapturingLogSink();
    ~CapturingLogSink() override;

    void Write(const LogEntry& entry) override;

    [[nodiscard]] std::vector<LogEntry> GetEntries() const;
    void Clear();
    /// Waits until an entry satisfies the predicate; false when none does within the limit. Calls
    /// the predicate without a lock.
    [[nodiscard]] bool WaitFor(const std::function<bool(const LogEntry&)>& predicate,
                               std::chrono::milliseconds limit) const;

private:
    struct State;
    const std::unique_ptr<State> state;
};

} // namespace Core::Embedding
