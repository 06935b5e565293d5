#include "BlockUpload.h"

#include "Sizes.h"
#include "UaTimes.h"

#include <algorithm>
#include <span>
#include <utility>

namespace Client {

namespace {

constexpr std::size_t largestBlock = std::size_t{256} << 10U;
/// The bytes that may be on their way and in the host's queue, of all jobs together and of one.
constexpr std::size_t windowOfAll = std::size_t{24} << 20U;
constexpr std::size_t largestWindow = std::size_t{12} << 20U;
constexpr std::size_t smallestWindow = std::size_t{1} << 20U;
constexpr std::size_t barriersInWindow = 4;
/// Blocks that are kept though they were written: a host that crashes loses what stdio held back.
constexpr std::size_t keptWritten = std::size_t{64} << 10U;

/// Returns the step that a result of an acknowledgement names; otherwise the given one.
Step FindStep(std::uint32_t result, Step otherwise) noexcept
{
    switch (result) {
    case 1:
        return Step::Open;
    case 2:
        return Step::Write;
    case 3:
        return Step::Close;
    case 4:
        return Step::SetTime;
    case 5:
        return Step::SetPermissions;
    default:
        return otherwise;
    }
}

} // namespace

BlockUpload::BlockUpload(Transfer& transfer, Caller& caller, BlockSource& source,
                         const Target& target)
    : transfer(transfer)
    , caller(caller)
    , source(source)
    , target(target)
    , window(std::clamp(windowOfAll / transfer.GetJobs(), smallestWindow, largestWindow))
{}

BlockUpload::~BlockUpload()
{
    if (handle)
        caller.CloseAnyway(handle->GetNumber());
}

std::uint64_t BlockUpload::Run(std::uint64_t start)
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

std::optional<ResumableTransfer::Target> BlockUpload::BreakOff(FileTime marker) noexcept
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

void BlockUpload::Open(bool isNew)
{
    handle.reset();
    if (isNew && target.prepare)
        target.prepare();
    const auto open =
        isNew ? caller.OpenWrite(target.written) : caller.Open(target.written, openForUpdating);
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
void BlockUpload::CountLoss(bool isSame)
{
    losses = written > writtenBefore ? 1 : losses + 1;
    writtenBefore = written;
    if (losses < mostLosses)
        return;
    if (!isSame)
        handle.reset(); // the server closed it with the session
    throw FileFailed(MakeReasonFailure(target.remote, Step::Write, describeLosses));
}

void BlockUpload::StartOver()
{
    next = 0;
    written = 0;
    if (source.CanSeek()) {
        position = 0;
        blocks.clear();
    }
}

/// Goes on from a position that the file has.
void BlockUpload::Continue(std::uint64_t from)
{
    caller.SetPosition(handle->GetNumber(), from);
    const auto check = caller.GetPosition(handle->GetNumber());
    caller.AwaitAnswer(check);
    if (check->outcome.position != from)
        throw FileFailed(
            MakeUnknownFailure(target.remote, Step::Resume, "it cannot be written from there on"));
    next = from;
    written = from;
    if (from < position && !source.CanSeek() && (blocks.empty() || blocks.front().start > from))
        throw FileFailed(
            MakeUnknownFailure(target.remote, Step::Resume,
                               "the server lost more than can be sent again from a stream"));
    if (source.CanSeek()) {
        position = from;
        blocks.clear();
    }
}

/// The state of the file at the server after the connection was lost.
BlockUpload::Progress BlockUpload::FindProgress(bool isSame)
{
    for (;;) {
        try {
            return TryFindProgress(isSame);
        } catch (const CallsLost&) {
            isSame = caller.Recover() && isSame;
        }
    }
}

BlockUpload::Progress BlockUpload::TryFindProgress(bool isSame)
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
bool BlockUpload::HasStamp()
{
    const auto time = ToFileTime(target.stamp.time);
    if (!time || !IsPast(*time))
        return false;
    const auto check = caller.GetDateTime(target.written);
    caller.AwaitAnswer(check);
    return GetFileTime(*check) == time;
}

bool BlockUpload::HasSize()
{
    return FindSizes(caller, std::span(&target.written, 1)).front() == position;
}

void BlockUpload::SendAll()
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
std::uint64_t BlockUpload::GetWindow() const noexcept
{
    return std::min<std::uint64_t>(window, smallestWindow + written);
}

/// After a loss: the blocks, or parts of them, that did not arrive.
void BlockUpload::ResendKept()
{
    for (const auto& block : blocks) {
        const std::uint64_t end = block.start + block.length;
        if (end <= next)
            continue;
        const std::size_t skipped = next > block.start ? next - block.start : 0;
        writes.push_back(caller.Write(
            handle->GetNumber(), std::span(*block.bytes).subspan(skipped, block.length - skipped),
            block.bytes));
        next = end;
    }
}

void BlockUpload::Send(const Block& block)
{
    transfer.Pace(block.length);
    writes.push_back(caller.Write(handle->GetNumber(), std::span(*block.bytes).first(block.length),
                                  block.bytes));
    next = block.start + block.length;
}

void BlockUpload::TakeReadyBarriers()
{
    while (!barriers.empty() && barriers.front().barrier->outcome.hasEvent)
        TakeBarrier();
}

void BlockUpload::TakeBarrier()
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
void BlockUpload::CheckWrites(const std::vector<CallPointer>& posted)
{
    for (const auto& write : posted)
        caller.AwaitAnswer(write);
}

/// Of blocks whose answers came before the connection was lost.
void BlockUpload::ThrowIfRefused() const
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

void BlockUpload::CountWritten(std::uint64_t upTo)
{
    if (upTo > written)
        transfer.tally.Move(target.remote, upTo, target.size, upTo - std::max(written, counted));
    counted = std::max(counted, upTo);
    written = std::max(written, upTo);
    while (!blocks.empty() &&
           blocks.front().start + blocks.front().length + keptWritten <= written) {
        spare.push_back(std::move(blocks.front().bytes));
        blocks.pop_front();
    }
}

BlockUpload::SharedBytes BlockUpload::TakeBuffer()
{
    // One that the engine still encodes from is in use.
    if (spare.empty() || spare.front().use_count() > 1)
        return std::make_shared<Bytes>(largestBlock);
    SharedBytes buffer = std::move(spare.front());
    spare.pop_front();
    return buffer;
}

/// The barriers that nothing waited for: their blocks have been answered by now.
void BlockUpload::CheckMarks()
{
    for (const auto& mark : barriers)
        CheckWrites(mark.writes);
    CheckWrites(writes);
    barriers.clear();
    writes.clear();
}

void BlockUpload::ThrowIfFailed(Step step)
{
    const std::uint32_t result = handle->GetFailure();
    if (result == 0)
        return;
    handle.reset(); // is closed with the failure
    throw FileFailed(MakeRemoteFailure(target.remote, FindStep(result, step), result));
}

void BlockUpload::Finish()
{
    isFinishing = true;
    const auto close =
        caller.WriteClose(handle->GetNumber(), target.stamp.time, target.stamp.permissions);
    const auto barrier = caller.Barrier();
    caller.AwaitAnswer(close);
    caller.AwaitEvent(barrier);
    ThrowIfFailed(Step::Close);
    CheckMarks();
    const bool isClosed = handle->IsAcknowledged();
    handle.reset();
    if (!isClosed)
        throw FileFailed(
            MakeUnknownFailure(target.remote, Step::Close, "it is no longer open on the server"));
    CountWritten(position);
}

} // namespace Client
