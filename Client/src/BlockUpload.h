#pragma once

#include "Jobs.h"
#include "LocalFiles.h"
#include "ResumableTransfer.h"
#include "Sizes.h"
#include "UaTimes.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Client {

using Bytes = std::vector<unsigned char>;
using SharedBytes = std::shared_ptr<Bytes>;

constexpr std::size_t largestBlock = std::size_t{256} << 10U;
/// The bytes that may be on their way and in the host's queue, of all jobs together and of one.
constexpr std::size_t windowOfAll = std::size_t{24} << 20U;
constexpr std::size_t largestWindow = std::size_t{12} << 20U;
constexpr std::size_t smallestWindow = std::size_t{1} << 20U;
constexpr std::size_t barriersInWindow = 4;
/// Blocks that are kept though they were written: a host that crashes loses what stdio held back.
constexpr std::size_t keptWritten = std::size_t{64} << 10U;
/// A time so close to now says nothing: writing sets it too.
constexpr std::chrono::seconds presentTime{60};

inline bool IsPast(FileTime time)
{
    return time < std::chrono::system_clock::now() - presentTime;
}

/// The data written at the end.
struct Stamp
{
    UA_DateTime time = 0; // 0: none
    UA_Byte permissions = 0;
};

/// The source of blocks. Asked in order but after a lost connection.
class Source
{
public:
    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    virtual ~Source() = default;

    /// 0 at the end. Throws FileFailed.
    virtual std::size_t Read(std::span<unsigned char> buffer, std::uint64_t position) = 0;
    /// True if it can be read from any position.
    [[nodiscard]] virtual bool CanSeek() const noexcept = 0;
};

class FileSource final : public Source
{
public:
    /// Tells the transfer of what is read. All must outlive it.
    FileSource(int file, const std::string& name, ResumableTransfer& transfer)
        : file(file)
        , name(name)
        , transfer(transfer)
    {}

    std::size_t Read(std::span<unsigned char> buffer, std::uint64_t position) override
    {
        const auto count = ReadAt(file, name, buffer, position);
        transfer.Add(position, buffer.first(count));
        return count;
    }
    [[nodiscard]] bool CanSeek() const noexcept override { return true; }

private:
    const int file;
    const std::string& name;
    ResumableTransfer& transfer;
};

class StreamSource final : public Source
{
public:
    explicit StreamSource(const FileSystem::ByteSource& source)
        : source(source)
    {}

    std::size_t Read(std::span<unsigned char> buffer, std::uint64_t /*position*/) override
    {
        std::size_t done = 0;
        while (done < buffer.size() && !isOver) {
            const std::size_t count = source(buffer.subspan(done));
            isOver = count == 0;
            done += count;
        }
        return done;
    }
    [[nodiscard]] bool CanSeek() const noexcept override { return false; }

private:
    const FileSystem::ByteSource& source;
    bool isOver = false;
};

/// Writes one remote file in blocks.
class BlockUpload
{
public:
    BlockUpload(Transfer& transfer, Caller& caller, const std::string& remote, Source& source,
                const Stamp& stamp, std::optional<std::uint64_t> size)
        : transfer(transfer)
        , caller(caller)
        , remote(remote)
        , source(source)
        , stamp(stamp)
        , size(size)
        , window(std::clamp(windowOfAll / transfer.GetJobs(), smallestWindow, largestWindow))
    {}
    BlockUpload(const BlockUpload&) = delete;
    BlockUpload& operator=(const BlockUpload&) = delete;
    ~BlockUpload()
    {
        if (handle)
            caller.CloseAnyway(handle->GetNumber());
    }

    /// From the start, or from where an earlier transfer left off. Returns the size.
    std::uint64_t Run(std::uint64_t start)
    {
        position = start;
        written = start;
        isEmptied = start > 0;
        for (bool hasFile = false;;) {
            try {
                // The content of an earlier file of that name is no part of this one.
                if (!hasFile)
                    Open(!isEmptied);
                hasFile = true;
                SendAll();
                Finish();
                return position;
            } catch (const CallsLost&) {
                ThrowIfRefused();
                barriers.clear();
                writes.clear();
                const bool isSame = caller.Recover();
                CountLoss(isSame);
                const auto next = FindProgress(isSame);
                if (next == Progress::Done)
                    return position;
                hasFile = next == Progress::Open;
            }
        }
    }

    /// Closes the file that could not be finished, with a time that tells whether somebody writes
    /// it later. Returns its state when the server tells it in time.
    std::optional<ResumableTransfer::Target> BreakOff(FileTime marker) noexcept
    {
        if (!handle)
            return std::nullopt;
        const auto closed = std::exchange(handle, nullptr);
        try {
            caller.WriteClose(closed->GetNumber(), ToUaTime(marker), 0);
            if (caller.AwaitClosing() && closed->IsAcknowledged() && closed->GetFailure() == 0) {
                ThrowIfRefused();
                // All that was sent has been written: a position asked for before the end would be
                // that of the blocks written by then.
                return ResumableTransfer::Target{next, ToUaTime(marker)};
            }
        } catch (...) {
            // A block was refused, or there is no memory: the session's end closes it.
        }
        return std::nullopt;
    }

private:
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

    void Open(bool isNew)
    {
        handle.reset();
        const auto open = isNew ? caller.OpenWrite(remote) : caller.Open(remote, openForUpdating);
        const auto barrier = caller.Barrier();
        caller.AwaitAnswer(open);
        handle = open->outcome.opened;
        if (isNew) { // blocks may follow at once
            barriers.push_back({0, barrier, {}});
            StartOver();
            return;
        }
        caller.AwaitEvent(barrier);
        ThrowIfFailed(Step::Open);
        const std::uint64_t found = FindSize(caller, handle->GetNumber());
        Continue(std::min(found, position));
    }

    /// A block that is too large for the server, say, would end every connection.
    void CountLoss(bool isSame)
    {
        losses = written > writtenBefore ? 1 : losses + 1;
        writtenBefore = written;
        if (losses < mostLosses)
            return;
        if (!isSame)
            handle.reset(); // the server closed it with the session
        throw FileFailed(MakeUnknownFailure(remote, Step::Write, describeLosses));
    }

    void StartOver()
    {
        next = 0;
        written = 0;
        if (source.CanSeek()) {
            position = 0;
            blocks.clear();
        }
    }

    /// Goes on from a position that the file has.
    void Continue(std::uint64_t from)
    {
        caller.SetPosition(handle->GetNumber(), from);
        const auto check = caller.GetPosition(handle->GetNumber());
        caller.AwaitAnswer(check);
        if (check->outcome.position != from)
            throw FileFailed(
                MakeUnknownFailure(remote, Step::Resume, "it cannot be written from there on"));
        next = from;
        written = from;
        if (from < position && !source.CanSeek() && (blocks.empty() || blocks.front().start > from))
            throw FileFailed(MakeUnknownFailure(
                remote, Step::Resume, "the server lost more than can be sent again from a stream"));
        if (source.CanSeek()) {
            position = from;
            blocks.clear();
        }
    }

    /// The state of the file at the server after the connection was lost.
    Progress FindProgress(bool isSame)
    {
        for (;;) {
            try {
                return TryFindProgress(isSame);
            } catch (const CallsLost&) {
                isSame = caller.Recover() && isSame;
            }
        }
    }

    Progress TryFindProgress(bool isSame)
    {
        if (handle && !isFinishing)
            ThrowIfFailed(Step::Write);
        if (isSame && handle) {
            const auto check = caller.GetPosition(handle->GetNumber());
            caller.AwaitAnswer(check);
            if (check->outcome.position) {
                // Everything asked before the loss has run.
                isEmptied = true;
                Continue(std::min(*check->outcome.position, position));
                return Progress::Open;
            }
        }
        const bool wasFinished = isFinishing && handle && handle->IsAcknowledged();
        if (wasFinished)
            ThrowIfFailed(Step::Write);
        handle.reset();
        if (isFinishing && (wasFinished || HasStamp()) && HasSize())
            return Progress::Done;
        isFinishing = false;
        return Progress::Closed;
    }

    /// The time is set last: a file that has it is whole. Not if writing may have set it.
    bool HasStamp()
    {
        const auto time = ToFileTime(stamp.time);
        if (!time || !IsPast(*time))
            return false;
        const auto check = caller.GetDateTime(remote);
        caller.AwaitAnswer(check);
        return GetFileTime(*check) == time;
    }

    bool HasSize() { return FindSizes(caller, std::span(&remote, 1)).front() == position; }

    void SendAll()
    {
        isFinishing = false;
        ResendKept();
        std::uint64_t marked = next;
        for (;;) {
            caller.ThrowIfCancelled();
            Block block{position, 0, TakeBuffer()};
            block.length = source.Read(*block.bytes, position);
            if (block.length == 0)
                break;
            position += block.length;
            Send(block);
            blocks.push_back(std::move(block));
            if (next - marked >= GetWindow() / barriersInWindow) {
                barriers.push_back({next, caller.Barrier(), std::exchange(writes, {})});
                marked = next;
            }
            while (next - written > GetWindow() && !barriers.empty())
                TakeBarrier();
            TakeReadyBarriers();
        }
    }

    /// Grows with what has arrived: of many that begin at once none sends all it has at first and
    /// is through when the others have hardly begun.
    [[nodiscard]] std::uint64_t GetWindow() const noexcept
    {
        return std::min<std::uint64_t>(window, smallestWindow + written);
    }

    /// After a loss: the blocks, or parts of them, that did not arrive.
    void ResendKept()
    {
        for (const auto& block : blocks) {
            const std::uint64_t end = block.start + block.length;
            if (end <= next)
                continue;
            const std::size_t skipped = next > block.start ? next - block.start : 0;
            writes.push_back(caller.Write(
                handle->GetNumber(),
                std::span(*block.bytes).subspan(skipped, block.length - skipped), block.bytes));
            next = end;
        }
    }

    void Send(const Block& block)
    {
        writes.push_back(caller.Write(handle->GetNumber(),
                                      std::span(*block.bytes).first(block.length), block.bytes));
        next = block.start + block.length;
    }

    void TakeReadyBarriers()
    {
        while (!barriers.empty() && barriers.front().barrier->outcome.hasEvent)
            TakeBarrier();
    }

    void TakeBarrier()
    {
        const Mark mark = std::move(barriers.front());
        barriers.pop_front();
        caller.Wait(*mark.barrier, [&] {
            return (mark.barrier->outcome.hasEvent && mark.barrier->outcome.isAnswered) ||
                   handle->IsAcknowledged();
        });
        ThrowIfFailed(mark.position == 0 ? Step::Open : Step::Write);
        CheckAnswer(*mark.barrier);
        CheckWrites(mark.writes);
        isEmptied = true;
        CountWritten(mark.position);
    }

    /// A refused block leaves a gap that those behind it close up.
    void CheckWrites(const std::vector<CallPointer>& posted)
    {
        for (const auto& write : posted)
            caller.AwaitAnswer(write);
    }

    /// Of blocks whose answers came before the connection was lost.
    void ThrowIfRefused() const
    {
        const auto check = [](const std::vector<CallPointer>& posted) {
            for (const auto& write : posted)
                if (write->outcome.isAnswered && !write->outcome.isLost)
                    CheckAnswer(*write);
        };
        for (const auto& mark : barriers)
            check(mark.writes);
        check(writes);
    }

    void CountWritten(std::uint64_t upTo)
    {
        if (upTo > written)
            transfer.tally.Move(remote, upTo, size, upTo - std::max(written, counted));
        counted = std::max(counted, upTo);
        written = std::max(written, upTo);
        while (!blocks.empty() &&
               blocks.front().start + blocks.front().length + keptWritten <= written) {
            spare.push_back(std::move(blocks.front().bytes));
            blocks.pop_front();
        }
    }

    SharedBytes TakeBuffer()
    {
        // One that the engine still encodes from is in use.
        if (spare.empty() || spare.front().use_count() > 1)
            return std::make_shared<Bytes>(largestBlock);
        SharedBytes buffer = std::move(spare.front());
        spare.pop_front();
        return buffer;
    }

    /// The barriers that nothing waited for: their blocks have been answered by now.
    void CheckMarks()
    {
        for (const auto& mark : barriers)
            CheckWrites(mark.writes);
        CheckWrites(writes);
        barriers.clear();
        writes.clear();
    }

    void ThrowIfFailed(Step step)
    {
        const std::uint32_t result = handle->GetFailure();
        if (result == 0)
            return;
        handle.reset(); // is closed with the failure
        if (result == 1)
            step = Step::Open;
        else if (result == 2)
            step = Step::Write;
        else if (result == 3)
            step = Step::Close;
        else if (result == 4)
            step = Step::SetTime;
        else if (result == 5)
            step = Step::SetPermissions;
        throw FileFailed(MakeRemoteFailure(remote, step, result));
    }

    void Finish()
    {
        isFinishing = true;
        const auto close = caller.WriteClose(handle->GetNumber(), stamp.time, stamp.permissions);
        const auto barrier = caller.Barrier();
        caller.AwaitAnswer(close);
        caller.AwaitEvent(barrier);
        ThrowIfFailed(Step::Close);
        CheckMarks();
        const bool isClosed = handle->IsAcknowledged();
        handle.reset();
        if (!isClosed)
            throw FileFailed(MakeUnknownFailure(remote, Step::Close, "it was not open any more"));
        CountWritten(position);
    }

    Transfer& transfer;
    Caller& caller;
    const std::string& remote;
    Source& source;
    const Stamp stamp;
    const std::optional<std::uint64_t> size;
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
