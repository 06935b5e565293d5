#pragma once

#include "FileInfo.h"

#include <cstdio>
#include <memory>

namespace FileSystem {

class FileSystemBehaviour;
struct CloseReport;

/// The users of one open stream, kept beside the handle's record.
struct StreamUsers
{
    FILE* file = nullptr; ///< constant
    /// The number of users. Guarded by the behaviour's `handlesMutex`.
    unsigned int count = 0;
    /// Set when the handle is forgotten while the stream has users: the last of them closes the
    /// stream and reports a failure in this form. Guarded by the behaviour's `handlesMutex`.
    const CloseReport* lastOneCloses = nullptr;
};

/// Keeps a handle's stream open for one user, without a lock. A session that ends meanwhile forgets
/// the handle at once and leaves the closing to the last user; closing the handle waits for its
/// users. `FileSystemBehaviour::UseStream` makes leases; the behaviour outlives them.
/// REQUIRES: a thread releases its lease before it closes the handle.
class StreamLease
{
public:
    /// A lease of a handle without an open stream: `GetFile` returns null.
    StreamLease() noexcept = default;
    /// REQUIRES: `users` already counts this lease.
    StreamLease(FileSystemBehaviour& behaviour, std::shared_ptr<StreamUsers> users,
                FileInfo info) noexcept;
    StreamLease(StreamLease&&) noexcept;
    StreamLease(const StreamLease&) = delete;
    StreamLease& operator=(const StreamLease&) = delete;
    StreamLease& operator=(StreamLease&&) = delete;
    ~StreamLease();

    [[nodiscard]] FILE* GetFile() const noexcept { return info.file; }
    /// Returns the record as it was when the lease was taken.
    [[nodiscard]] const FileInfo& GetInfo() const noexcept { return info; }

    /// Ends the use early; `GetFile` returns null from then on.
    void Release();

private:
    FileSystemBehaviour* behaviour = nullptr;
    std::shared_ptr<StreamUsers> users;
    FileInfo info;
};

} // namespace FileSystem
