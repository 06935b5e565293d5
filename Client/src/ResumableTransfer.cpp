#include "ResumableTransfer.h"

#include <exception>
#include <utility>

namespace Client {

namespace {

/// The most of a transfer that a killed process loses.
constexpr std::chrono::seconds betweenRecords{5};

} // namespace

ResumableTransfer::ResumableTransfer(const TransferRecords& records, TransferKey givenKey,
                                     std::uint64_t sourceSize,
                                     std::optional<std::int64_t> sourceTime)
    : records(records)
    , key(std::move(givenKey))
    , sourceSize(sourceSize)
    , sourceTime(sourceTime)
{}

std::optional<TransferRecord> ResumableTransfer::FindEarlier() const
{
    auto found = records.Find(key);
    if (!found || found->sourceSize != sourceSize || found->sourceTime != sourceTime)
        return std::nullopt;
    return found;
}

void ResumableTransfer::Add(std::uint64_t position, std::span<const unsigned char> bytes)
{
    digest.Add(position, bytes);
    if (Clock::now() - saved >= betweenRecords)
        Save(std::nullopt);
}

void ResumableTransfer::BreakOff(const std::optional<Target>& target) noexcept
{
    Save(target);
}

void ResumableTransfer::Forget() noexcept
{
    records.Remove(key);
}

void ResumableTransfer::Save(const std::optional<Target>& target) noexcept
{
    saved = Clock::now();
    if (!sourceTime || digest.GetLength() == 0)
        return;
    try {
        TransferRecord record;
        record.sourceSize = sourceSize;
        record.sourceTime = *sourceTime;
        record.length = digest.GetLength();
        record.digest = digest.Get();
        if (target) {
            record.targetSize = target->size;
            record.targetTime = target->time;
        }
        records.Save(key, record);
    } catch (const std::exception&) {
        records.Remove(key); // no memory: it starts over
    }
}

} // namespace Client
