#pragma once

#include "PrefixDigest.h"

#include "Support/Descriptor.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace Client {

/// The facts known of a broken-off transfer of one file: enough to prove that the target is a
/// prefix of the source.
struct TransferRecord
{
    std::uint64_t sourceSize = 0; ///< 0 where it was not known
    std::int64_t sourceTime = 0;  ///< in the units of the side that the source is on
    std::uint64_t length = 0;     ///< of the prefix that the digest covers
    std::string digest;
    /// Size and time of the remote target after its last write; none when the connection was lost
    /// before they could be asked for.
    std::optional<std::uint64_t> targetSize;
    std::int64_t targetTime = 0;
};

enum class Direction
{
    Up,
    Down,
};

/// Names one transfer: from where, to where, and which server.
struct TransferKey
{
    Direction direction = Direction::Up;
    std::string server; ///< what it is recognised by, whatever URL leads there
    std::string local;  ///< absolute
    std::string remote;
};

/// Held by the one transfer that may carry on, and be carried on, under its key. Released at the
/// end, also by a process that is killed.
class TransferLock
{
public:
    /// Owns the locked file, which goes with it.
    TransferLock(std::filesystem::path file, Support::Descriptor descriptor) noexcept;
    TransferLock(TransferLock&&) noexcept = default;
    TransferLock(const TransferLock&) = delete;
    TransferLock& operator=(TransferLock&&) = delete;
    TransferLock& operator=(const TransferLock&) = delete;
    ~TransferLock();

private:
    std::filesystem::path file;
    Support::Descriptor descriptor;
};

/// The outcome of an attempt to lock.
struct Locking
{
    std::optional<TransferLock> lock; ///< none where nothing is recorded, either
    bool isTaken = false;             ///< by another transfer of any process or thread
};

/// The records of transfers that were broken off: files in the folder "transfers" of the state
/// folder, for their owner alone. They serve to save time, so nothing is thrown: a record that
/// cannot be written or read is none. Any thread, any number of processes.
class TransferRecords
{
public:
    /// An empty path: nothing is recorded.
    explicit TransferRecords(const std::filesystem::path& stateFolder);

    [[nodiscard]] std::optional<TransferRecord> Find(const TransferKey& key) const noexcept;
    void Save(const TransferKey& key, const TransferRecord& record) const noexcept;
    void Remove(const TransferKey& key) const noexcept;

    [[nodiscard]] Locking Lock(const TransferKey& key) const noexcept;
    /// Returns a random text that stays the same for this state folder; none where it cannot be
    /// kept.
    [[nodiscard]] std::optional<std::string> FindClient() const noexcept;

private:
    void MakeFolder() const;
    [[nodiscard]] std::filesystem::path GetFile(const TransferKey& key) const;
    void RemoveExpired() const;

    std::filesystem::path folder;
};

} // namespace Client
