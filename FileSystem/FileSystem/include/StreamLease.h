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
    /// How many are inside the stream. Guarded by the behaviour's `handlesMutex`.
    unsigned int count = 0;
    /// Set when the handle went away while somebody was inside: the last user closes the stream and
    /// reports a failure so. Guarded by the behaviour's `handlesMutex`.
    const CloseReport* lastOneCloses = nullptr;
};

/// Keeps a handle's stream open while somebody is inside it, without a lock: a session that ends
/// meanwhile takes the handle away at once and leaves the closing to the last user; closing the
/// handle waits for its users. Made by `FileSystemBehaviour::UseStream`, which it must not outlive.
/// Not to be held while the same thread closes the handle.
class StreamLease
{
public:
    /// For a handle without an open stream: `GetFile` gives null.
    StreamLease() noexcept = default;
    /// `users` has been counted up for this lease.
    StreamLease(FileSystemBehaviour& behaviour, std::shared_ptr<StreamUsers> users,
                FileInfo info) noexcept;
    StreamLease(StreamLease&&) noexcept;
    StreamLease(const StreamLease&) = delete;
    StreamLease& operator=(const StreamLease&) = delete;
    StreamLease& operator=(StreamLease&&) = delete;
    ~StreamLease();

    [[nodiscard]] FILE* GetFile() const noexcept { return info.file; }
    /// The record as it was when the lease was taken.
    [[nodiscard]] const FileInfo& GetInfo() const noexcept { return info; }

    /// Leaves the stream early; `GetFile` gives null afterwards.
    void Release();

private:
    FileSystemBehaviour* behaviour = nullptr;
    std::shared_ptr<StreamUsers> users;
    FileInfo info;
};

} // namespace FileSystem
