#pragma once

#include "Core/Embedding/LogControl.h"
#include "Support/Descriptor.h"
#include "Support/Mutex.h"

#include <filesystem>

namespace Host {

/// A log that appends a line for each entry to a file. Any thread may call any function.
class LogFile final : public Core::Embedding::LogSink
{
public:
    explicit LogFile(Support::Descriptor file);

    void Write(const Core::LogEntry& entry) override EXCLUDES(mutex);

    /// Goes on in another file; the one before is closed.
    void Replace(Support::Descriptor newFile) EXCLUDES(mutex);

private:
    Support::Mutex mutex; // keeps the parts of a line together
    Support::Descriptor file GUARDED_BY(mutex);
};

/// Opens a log file, and creates it with mode 0640 if it does not exist. Throws std::system_error
/// if the file cannot be opened, and InvalidArgumentException if it is not a regular file, belongs
/// to neither root nor the host's user, or has several hard links. REQUIRES: PathTrust accepts
/// `file` for FileUse::Append.
[[nodiscard]] Support::Descriptor OpenLogFile(const std::filesystem::path& file);

/// Throws what `OpenLogFile` would throw, and changes nothing.
void CheckLogFile(const std::filesystem::path& file);

} // namespace Host
