#pragma once

#include "TransferRecords.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

namespace Client {

/// Keeps the record of one transfer of a file up to date while it goes on, so that it can be
/// carried on wherever it ends. One thread.
class ResumableTransfer
{
public:
    /// The state of a remote target after its last write.
    struct Target
    {
        std::uint64_t size;
        std::int64_t time;
    };

    /// All must outlive it. Without a time of the source nothing is recorded: there is no telling
    /// whether it changes.
    ResumableTransfer(const TransferRecords& records, TransferKey key, std::uint64_t sourceSize,
                      std::optional<std::int64_t> sourceTime);

    /// Returns what is recorded of an earlier transfer if the source is as it was then.
    [[nodiscard]] std::optional<TransferRecord> FindEarlier() const;

    /// The earlier transfer has done the part that the digest covers.
    void CarryOn(PrefixDigest&& done) noexcept { digest = std::move(done); }
    /// Bytes of the source have been taken, in order but for those that come again.
    void Add(std::uint64_t position, std::span<const unsigned char> bytes);
    /// It was broken off. `target` is its state when that is known.
    void BreakOff(const std::optional<Target>& target) noexcept;
    /// It is whole, or begins anew: nothing is to be carried on.
    void Forget() noexcept;

private:
    using Clock = std::chrono::steady_clock;

    void Save(const std::optional<Target>& target) noexcept;

    const TransferRecords& records;
    const TransferKey key;
    const std::uint64_t sourceSize;
    const std::optional<std::int64_t> sourceTime;
    PrefixDigest digest;
    Clock::time_point saved = Clock::now();
};

} // namespace Client
