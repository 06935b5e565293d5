#pragma once

#include "BlockSource.h"
#include "Caller.h"
#include "Jobs.h"
#include "ResumableTransfer.h"
#include "Stamp.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Client {

/// Writes one remote file in blocks. One thread.
class BlockUpload
{
public:
    /// The file that is written, and the one that it is meant for. All must outlive it.
    struct Target
    {
        const std::string& remote;
        const std::string& written;
        const Stamp stamp;
        const std::optional<std::uint64_t> size; ///< of the source, where it is known
        /// Called before a new file is opened; empty: nothing. It may throw CallsLost.
        const std::function<void()> prepare;
    };
    BlockUpload(Transfer& transfer, Caller& caller, BlockSource& source, const Target& target);
    BlockUpload(const BlockUpload&) = delete;
    BlockUpload& operator=(const BlockUpload&) = delete;
    ~BlockUpload();

    /// Writes from the start, or from where an earlier transfer left off. Returns the size. Throws
    /// FileFailed, and what Caller's waiting throws but CallsLost.
    std::uint64_t Run(std::uint64_t start);

    /// Closes the file that could not be finished, with a time that tells whether somebody writes
    /// it later. Returns its state when the server tells it in time.
    std::optional<ResumableTransfer::Target> BreakOff(FileTime marker) noexcept;

private:
    using Bytes = std::vector<unsigned char>;
    using SharedBytes = std::shared_ptr<Bytes>;

    enum class Progress
    {
        Done,
        Open,
        Closed,
    };
    struct Block
    {
        std::uint64_t start = 0;
        std::size_t length = 0;
        SharedBytes bytes;
    };
    struct Mark
    {
        std::uint64_t position = 0;
        CallPointer barrier;
        std::vector<CallPointer> writes; // before it, since the last one
    };

    void Open(bool isNew);
    void CountLoss(bool isSame);
    void StartOver();
    void Continue(std::uint64_t from);
    Progress FindProgress(bool isSame);
    Progress TryFindProgress(bool isSame);
    bool HasStamp();
    bool HasSize();
    void SendAll();
    [[nodiscard]] std::uint64_t GetWindow() const noexcept;
    void ResendKept();
    void Send(const Block& block);
    void TakeReadyBarriers();
    void TakeBarrier();
    void CheckWrites(const std::vector<CallPointer>& posted);
    void ThrowIfRefused() const;
    void CountWritten(std::uint64_t upTo);
    SharedBytes TakeBuffer();
    void CheckMarks();
    void ThrowIfFailed(Step step);
    void Finish();

    Transfer& transfer;
    Caller& caller;
    BlockSource& source;
    const Target& target;
    const std::size_t window;
    std::shared_ptr<RemoteHandle> handle;
    std::deque<Block> blocks; // that may have to be sent again
    std::deque<SharedBytes> spare;
    std::deque<Mark> barriers;
    std::vector<CallPointer> writes; // since the last barrier
    std::uint64_t position = 0;      // in the source
    std::uint64_t next = 0;          // in the remote file, of what is sent
    std::uint64_t written = 0;       // up to here it is there
    std::uint64_t counted = 0;
    std::uint64_t writtenBefore = 0; // at the loss before
    unsigned int losses = 0;         // in a row, without progress
    bool isEmptied = false;   // the file holds nothing but what this wrote, or an earlier transfer
    bool isFinishing = false; // WriteClose is on its way
};

} // namespace Client
