#pragma once

#include "Audit/AuditForm.h"
#include "Audit/AuditRecord.h"
#include "Log/AppendedFile.h"
#include "Support/Mutex.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <thread>

namespace Host {

/// Writes the audit records to the host's log, in the category "Audit", and to a file of their own
/// if there is one.
///
/// A thread of its own writes them, so that nobody who makes a record waits for a disk. Records
/// that find too many others waiting are lost, and so are lines that the disk does not take. Both
/// are counted; the log and, once it takes lines again, the file say how many were lost.
class AuditLog
{
public:
    /// The file is null if there is none.
    AuditLog(std::shared_ptr<AppendedFile> file, AuditForm form);
    AuditLog(const AuditLog&) = delete;
    AuditLog& operator=(const AuditLog&) = delete;
    /// Writes the records that wait.
    ~AuditLog();

    /// Any thread. Sets the record's time.
    void Write(AuditRecord record) EXCLUDES(mutex);

    /// Waits until the records that wait are written, or the limit is over. Any thread.
    void Flush(std::chrono::milliseconds limit) EXCLUDES(mutex);

    /// Returns how many records were lost before they could be written to log or file. Any thread.
    [[nodiscard]] std::uint64_t GetLostCount() const noexcept { return lost; }

private:
    using Records = std::deque<AuditRecord>;

    void Run() EXCLUDES(mutex);
    void WriteAll(const Records& records);
    void WriteToFile(const Records& records);
    [[nodiscard]] std::string MakeLines(const Records& records) const;
    [[nodiscard]] std::string MakeLineOfLost() const;
    void ReportLost();

    const std::shared_ptr<AppendedFile> file;
    const AuditForm form;
    std::atomic<std::uint64_t> lost = 0;

    // The writing thread's.
    std::uint64_t reportedLost = 0;  ///< in the log
    std::uint64_t missingInFile = 0; ///< since the file last took a line
    std::uint64_t seenLost = 0;      ///< counted in `missingInFile`

    Support::Mutex mutex;
    Support::Condition changed;
    Records waiting GUARDED_BY(mutex);
    std::size_t waitingSize GUARDED_BY(mutex) = 0;
    bool isWriting GUARDED_BY(mutex) = false;
    bool isEnding GUARDED_BY(mutex) = false;
    std::thread thread; // last
};

} // namespace Host
