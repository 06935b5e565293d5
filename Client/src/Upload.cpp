#include "Jobs.h"
#include "LocalFiles.h"
#include "Sizes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unordered_set>
#include <utility>

namespace Client {

namespace {

using Bytes = std::vector<unsigned char>;
using SharedBytes = std::shared_ptr<Bytes>;

constexpr std::size_t largestBlock = std::size_t{256} << 10U;
/// What may be on its way and in the host's queue, of all jobs together and of one.
constexpr std::size_t windowOfAll = std::size_t{24} << 20U;
constexpr std::size_t largestWindow = std::size_t{12} << 20U;
constexpr std::size_t smallestWindow = std::size_t{1} << 20U;
constexpr std::size_t barriersInWindow = 4;
/// Blocks that are kept though they were written: a host that crashes loses what stdio held back.
constexpr std::size_t keptWritten = std::size_t{64} << 10U;

constexpr std::size_t smallFile = std::size_t{256} << 10U;
constexpr std::size_t smallFilesAtOnce = 128;
constexpr std::size_t smallBytesAtOnce = std::size_t{8} << 20U;
/// A time so close to now says nothing: writing sets it too.
constexpr std::chrono::seconds presentTime{60};
constexpr std::uint32_t tailSize = 61440;
constexpr std::size_t directoriesAtOnce = 200;

bool IsPast(FileTime time)
{
    return time < std::chrono::system_clock::now() - presentTime;
}

/// A time that no file has by chance, and that writing does not set.
FileTime MakeMarker()
{
    constexpr std::int64_t earliest = 100'000'000; // 1973
    constexpr std::int64_t latest = 900'000'000;   // 1998
    std::random_device random;
    return FileTime(std::chrono::seconds(
        std::uniform_int_distribution<std::int64_t>(earliest, latest)(random)));
}

/// What is written at the end.
struct Stamp
{
    UA_DateTime time = 0; // 0: none
    UA_Byte permissions = 0;
};

/// Where blocks come from. Asked in order but after a lost connection.
class Source
{
public:
    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    virtual ~Source() = default;

    /// 0 at the end. Throws FileFailed.
    virtual std::size_t Read(std::span<unsigned char> buffer, std::uint64_t position) = 0;
    /// Whether it can be read from any position.
    [[nodiscard]] virtual bool CanSeek() const noexcept = 0;
};

class FileSource final : public Source
{
public:
    FileSource(int file, const std::string& name)
        : file(file)
        , name(name)
    {}

    std::size_t Read(std::span<unsigned char> buffer, std::uint64_t position) override
    {
        return ReadAt(file, name, buffer, position);
    }
    [[nodiscard]] bool CanSeek() const noexcept override { return true; }

private:
    const int file;
    const std::string& name;
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
                // What an earlier file of that name holds is no part of this one.
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
        TicketPointer barrier;
        std::vector<TicketPointer> writes; // before it, since the last one
    };

    void Open(bool isNew)
    {
        handle.reset();
        const auto open = isNew ? caller.OpenWrite(remote) : caller.Open(remote, openForUpdating);
        const auto barrier = caller.Barrier();
        caller.AwaitAnswer(open);
        handle = open->opened;
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
        if (!check->hasOutput || check->readPosition != from)
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

    /// What the server has after the connection was lost.
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
            if (check->hasOutput) {
                // Everything asked before the loss has run.
                isEmptied = true;
                Continue(std::min(check->readPosition, position));
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
        return check->hasOutput && ToFileTime(check->readTime) == time;
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
        while (!barriers.empty() && barriers.front().barrier->isEventIn)
            TakeBarrier();
    }

    void TakeBarrier()
    {
        const Mark mark = std::move(barriers.front());
        barriers.pop_front();
        caller.Wait([&] {
            return (mark.barrier->isEventIn && mark.barrier->isAnswered) ||
                   handle->IsAcknowledged();
        });
        ThrowIfFailed(mark.position == 0 ? Step::Open : Step::Write);
        CheckAnswer(*mark.barrier);
        CheckWrites(mark.writes);
        isEmptied = true;
        CountWritten(mark.position);
    }

    /// A refused block leaves a gap that those behind it close up.
    void CheckWrites(const std::vector<TicketPointer>& posted)
    {
        for (const auto& write : posted)
            caller.AwaitAnswer(write);
    }

    /// Of blocks whose answers came before the connection was lost.
    void ThrowIfRefused() const
    {
        const auto check = [](const std::vector<TicketPointer>& posted) {
            for (const auto& write : posted)
                if (write->isAnswered && !write->isLost)
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
    std::vector<TicketPointer> writes; // since the last barrier
    std::uint64_t position = 0;        // in the source
    std::uint64_t next = 0;            // in the remote file, of what is sent
    std::uint64_t written = 0;         // up to here it is there
    std::uint64_t counted = 0;
    std::uint64_t writtenBefore = 0; // at the loss before
    unsigned int losses = 0;         // in a row, without progress
    bool isEmptied = false;   // the file holds nothing but what this wrote, or an earlier transfer
    bool isFinishing = false; // WriteClose is on its way
};

struct UploadJob
{
    std::string local;
    std::string remote;
    std::uint64_t size = 0;
    FileTime time;
    Permissions permissions;
    bool isWhole = false; // an earlier transfer has finished it; only to be compared
};

struct UploadDirectory
{
    std::string remote;
    FileTime time;
    bool isThere = false;
};

struct DirectoryCloser
{
    void operator()(DIR* directory) const noexcept { closedir(directory); }
};

class Uploader
{
public:
    explicit Uploader(Transfer& transfer)
        : transfer(transfer)
        , options(transfer.options)
    {}

    void Run(const std::vector<TransferItem>& items)
    {
        for (const auto& item : items)
            Find(item.local, item.remote, true);
        transfer.tally.EndFinding();
        DoStep(transfer, [&] {
            Caller caller = transfer.fileSystem.MakeCaller(options.cancellation);
            MakeDirectories(caller);
            if (options.resumes)
                SkipWhole(caller);
            SendSmall(caller);
        });
        if (!transfer.isOver)
            DoAll(transfer, large,
                  [this](Caller& caller, const UploadJob& job) { SendLarge(caller, job); });
        if (!transfer.isOver && options.setsTimes)
            DoStep(transfer, [&] {
                Caller caller = transfer.fileSystem.MakeCaller(options.cancellation);
                SetDirectoryTimes(caller);
            });
    }

private:
    // What is to be sent

    void Find(const std::string& local, const std::string& remote, bool isGiven)
    {
        try {
            CheckPath(local);
            CheckPath(remote);
            struct stat status = {};
            if (stat(local.c_str(), &status) != 0)
                FailLocally(local, Step::Open);
            if (S_ISREG(status.st_mode))
                AddFile(local, remote, status);
            else if (S_ISDIR(status.st_mode))
                AddDirectory(local, remote, status, isGiven);
            else
                throw FileFailed(Skip(local, "it is neither a file nor a directory"));
        } catch (const FileFailed& failed) {
            transfer.tally.AddFailure(failed.GetFailure());
        } catch (const InvalidArgumentException& unusable) {
            transfer.tally.AddFailure(Skip(local, unusable.what()));
        }
    }

    static Failure Skip(const std::string& local, std::string cause)
    {
        Failure failure;
        failure.side = Side::Local;
        failure.path = local;
        failure.step = Step::Open;
        failure.kind = FailureKind::Skipped;
        failure.cause = std::move(cause);
        return failure;
    }

    void AddFile(const std::string& local, const std::string& remote, const struct stat& status)
    {
        if (!targets.insert(Normalize(remote)).second)
            throw FileFailed(Skip(local, "another source goes to the same target, " + remote));
        UploadJob job;
        job.local = local;
        job.remote = remote;
        job.size = static_cast<std::uint64_t>(status.st_size);
        job.time = FileTime(std::chrono::seconds(status.st_mtim.tv_sec));
        if (options.setsPermissions) {
            job.permissions.executable = (status.st_mode & S_IXUSR) != 0;
            job.permissions.readOnly = (status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
        }
        transfer.tally.Find(1, job.size);
        auto& jobs =
            job.size <= smallFile && options.setsTimes && !options.verifies ? small : large;
        jobs.push_back(std::move(job));
    }

    void AddDirectory(const std::string& local, const std::string& remote,
                      const struct stat& status, bool isGiven)
    {
        struct stat link = {};
        if (!isGiven && lstat(local.c_str(), &link) == 0 && S_ISLNK(link.st_mode))
            throw FileFailed(Skip(local, "it is a link to a directory"));
        if (!options.isRecursive)
            throw FileFailed(Skip(local, "it is a directory"));
        const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(local.c_str()));
        if (!directory)
            FailLocally(local, Step::List);
        directories.push_back({remote, FileTime(std::chrono::seconds(status.st_mtim.tv_sec))});
        errno = 0;
        std::vector<std::string> names;
        while (const dirent* const entry =
                   readdir(directory.get())) // NOLINT(concurrency-mt-unsafe)
            names.emplace_back(entry->d_name);
        if (errno != 0)
            FailLocally(local, Step::List);
        for (const auto& name : names)
            if (name != "." && name != "..")
                Find(Join(local, name), Join(remote, name), false);
    }

    // Directories

    void MakeDirectories(Caller& caller)
    {
        for (std::size_t start = 0; start < directories.size(); start += directoriesAtOnce) {
            const auto part =
                std::span(directories)
                    .subspan(start, std::min(directoriesAtOnce, directories.size() - start));
            const auto made = caller.Repeat([&] { return MakeSome(caller, part); });
            for (std::size_t i = 0; i < part.size(); ++i) {
                part[i].isThere = made[i];
                if (made[i])
                    transfer.tally.AddDirectory();
                else
                    transfer.tally.AddFailure(MakeUnknownFailure(
                        part[i].remote, Step::CreateDirectory, "there is none afterwards"));
            }
        }
        std::erase_if(directories,
                      [](const UploadDirectory& directory) { return !directory.isThere; });
    }

    static std::vector<bool> MakeSome(Caller& caller, std::span<const UploadDirectory> part)
    {
        std::vector<TicketPointer> checks;
        for (const auto& directory : part) {
            caller.CreateDirectory(directory.remote);
            checks.push_back(caller.Exists(AsDirectory(directory.remote)));
        }
        std::vector<bool> made;
        for (const auto& check : checks) {
            caller.AwaitEvent(check);
            made.push_back(check->exists);
        }
        return made;
    }

    /// From below to above: what is done in a directory changes its time.
    void SetDirectoryTimes(Caller& caller)
    {
        std::reverse(directories.begin(), directories.end());
        for (std::size_t start = 0; start < directories.size(); start += directoriesAtOnce) {
            const auto part =
                std::span(directories)
                    .subspan(start, std::min(directoriesAtOnce, directories.size() - start));
            const auto times = caller.Repeat([&] {
                for (const auto& directory : part)
                    caller.SetDateTime(directory.remote, ToUaTime(directory.time));
                return AskTimes(caller, part);
            });
            for (std::size_t i = 0; i < part.size(); ++i)
                if (times[i] != part[i].time)
                    transfer.tally.AddFailure(MakeUnknownFailure(part[i].remote, Step::SetTime,
                                                                 "it does not read back as set"));
        }
    }

    // What is there already

    /// Takes out the files that an earlier transfer has finished: the time is set last.
    void SkipWhole(Caller& caller)
    {
        for (auto* const jobs : {&small, &large}) {
            std::vector<UploadJob> left;
            std::vector<UploadJob> candidates;
            for (std::size_t start = 0; start < jobs->size(); start += directoriesAtOnce) {
                const auto part = std::span(*jobs).subspan(
                    start, std::min(directoriesAtOnce, jobs->size() - start));
                const auto times = caller.Repeat([&] { return AskTimes(caller, part); });
                for (std::size_t i = 0; i < part.size(); ++i)
                    (times[i] == part[i].time ? candidates : left).push_back(std::move(part[i]));
            }
            std::vector<std::string> paths;
            paths.reserve(candidates.size());
            for (const auto& job : candidates)
                paths.push_back(job.remote);
            const auto sizes = FindSizes(caller, paths);
            for (std::size_t i = 0; i < candidates.size(); ++i) {
                candidates[i].isWhole = sizes[i] == candidates[i].size;
                if (candidates[i].isWhole && !options.verifies) {
                    transfer.tally.Resume(candidates[i].size);
                    transfer.tally.FinishFile(candidates[i].remote, candidates[i].size, true);
                } else {
                    left.push_back(std::move(candidates[i]));
                }
            }
            *jobs = std::move(left);
        }
    }

    template <typename Entry>
    static std::vector<std::optional<FileTime>> AskTimes(Caller& caller, std::span<Entry> entries)
    {
        std::vector<TicketPointer> tickets;
        for (const auto& entry : entries)
            tickets.push_back(caller.GetDateTime(entry.remote));
        std::vector<std::optional<FileTime>> times;
        for (const auto& ticket : tickets) {
            caller.AwaitAnswer(ticket);
            times.push_back(ticket->hasOutput ? ToFileTime(ticket->readTime) : std::nullopt);
        }
        return times;
    }

    // Many small files

    struct SmallUpload
    {
        const UploadJob* job;
        std::size_t size;
        FileTime time; // that it is to have now: the marker, until that has been seen
        TicketPointer upload;
        TicketPointer check;
    };

    void SendSmall(Caller& caller)
    {
        std::deque<const UploadJob*> waiting;
        for (const auto& job : small)
            waiting.push_back(&job);
        std::deque<SmallUpload> sent;
        std::deque<SmallUpload> checking;
        std::size_t bytes = 0;
        std::size_t waitingBefore = waiting.size();
        unsigned int losses = 0; // in a row, without progress
        while (!waiting.empty() || !sent.empty() || !checking.empty()) {
            try {
                caller.ThrowIfCancelled();
                while (!waiting.empty() && sent.size() < smallFilesAtOnce &&
                       bytes < smallBytesAtOnce) {
                    const UploadJob& job = *waiting.front();
                    waiting.pop_front();
                    if (const auto upload = Start(caller, job)) {
                        bytes += upload->size;
                        sent.push_back(*upload);
                    }
                }
                if (!sent.empty() && (checking.size() < smallFilesAtOnce)) {
                    if (AwaitUpload(caller, sent.front()))
                        checking.push_back(sent.front());
                    bytes -= sent.front().size;
                    sent.pop_front();
                } else if (!checking.empty()) {
                    CheckFirst(caller, checking);
                }
                while (!checking.empty() && checking.front().check->isAnswered)
                    CheckFirst(caller, checking);
            } catch (const CallsLost&) {
                caller.Recover();
                // Not even their time would say that they arrived: an earlier file may have it.
                for (auto* const queue : {&checking, &sent}) {
                    for (const auto& upload : *queue)
                        waiting.push_back(upload.job);
                    queue->clear();
                }
                bytes = 0;
                losses = waiting.size() < waitingBefore ? 1 : losses + 1;
                waitingBefore = waiting.size();
                if (losses == mostLosses) { // each for itself, so that one cannot hold up all
                    for (const auto* const job : std::exchange(waiting, {}))
                        large.push_back(*job);
                }
            } catch (...) {
                for (const auto* const queue : {&sent, &checking})
                    for (const auto& upload : *queue)
                        transfer.tally.AddUnfinished(upload.job->remote);
                throw;
            }
        }
    }

    /// None when it is not small any more, or cannot be read.
    std::optional<SmallUpload> Start(Caller& caller, const UploadJob& job)
    {
        std::optional<SmallUpload> upload;
        const bool hasBegun = false;
        DoFile(transfer, job.remote, job.remote, hasBegun, [&] {
            const Descriptor file(open(job.local.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
            if (!file.IsOpen())
                FailLocally(job.local, Step::Open);
            auto content = std::make_shared<Bytes>(job.size + 1);
            const std::size_t size = ReadAt(file.Get(), job.local, *content, 0);
            if (size > job.size) {
                large.push_back(job); // it grows
                return;
            }
            content->resize(size);
            const FileTime time = IsPast(job.time) ? job.time : marker;
            upload = {&job, size, time,
                      caller.UploadFile(job.remote, std::move(content), ToUaTime(time),
                                        MakePermissions(job.permissions)),
                      nullptr};
        });
        return upload;
    }

    /// False when it has failed.
    bool AwaitUpload(Caller& caller, SmallUpload& upload)
    {
        bool isOpened = false;
        const bool hasBegun = true;
        // Not in DoFile: a lost call is for the caller of this.
        caller.Wait([&] {
            return upload.upload->isAnswered &&
                   (upload.upload->isLost || upload.upload->opened == nullptr ||
                    upload.upload->opened->IsAcknowledged() || upload.upload->opened->IsLost());
        });
        const bool isHandleLost = upload.upload->opened != nullptr &&
                                  upload.upload->opened->IsLost() &&
                                  !upload.upload->opened->IsAcknowledged();
        if (upload.upload->isLost || isHandleLost)
            throw CallsLost();
        DoFile(transfer, upload.job->remote, upload.job->remote, hasBegun, [&] {
            CheckAnswer(*upload.upload);
            if (const auto result = upload.upload->opened->GetFailure(); result != 0)
                throw FileFailed(MakeRemoteFailure(upload.job->remote, Step::Open, result));
            upload.check = caller.GetDateTime(upload.job->remote);
            isOpened = true;
        });
        return isOpened;
    }

    /// The acknowledgement says only that the file was opened. That its time reads back as sent
    /// says that it was written, closed and stamped. A time so close to now would not, so a file
    /// that has one is sent with the marker, and gets its own time when it is known to be whole.
    void CheckFirst(Caller& caller, std::deque<SmallUpload>& checking)
    {
        SmallUpload& upload = checking.front();
        caller.Wait([&] { return upload.check->isAnswered.load(); });
        if (upload.check->isLost)
            throw CallsLost();
        if (!upload.check->hasOutput || ToFileTime(upload.check->readTime) != upload.time) {
            Fail(caller, upload);
        } else if (upload.time == upload.job->time) {
            Succeed(upload);
        } else {
            upload.time = upload.job->time;
            caller.SetDateTime(upload.job->remote, ToUaTime(upload.time));
            upload.check = caller.GetDateTime(upload.job->remote);
            checking.push_back(upload);
        }
        checking.pop_front();
    }

    void Fail(Caller& caller, const SmallUpload& upload)
    {
        const auto handle = upload.upload->opened->GetNumber();
        const auto position = caller.GetPosition(handle);
        caller.Wait([&] { return position->isAnswered.load(); });
        if (position->isLost)
            throw CallsLost();
        const bool isOpen = position->hasOutput;
        if (isOpen)
            caller.Close(handle);
        transfer.tally.FailFile(
            upload.job->remote,
            isOpen ? MakeRemoteFailure(upload.job->remote, Step::Write, 2)
                   : MakeUnknownFailure(upload.job->remote, Step::Close,
                                        "it was not closed, or its time could not be set"),
            upload.job->remote);
    }

    void Succeed(const SmallUpload& upload)
    {
        transfer.tally.Move(upload.job->remote, upload.size, upload.size, upload.size);
        transfer.tally.FinishFile(upload.job->remote, upload.size);
    }

    // Files of blocks

    void SendLarge(Caller& caller, const UploadJob& job)
    {
        bool hasBegun = false;
        DoFile(transfer, job.remote, job.remote, hasBegun, [&] {
            const Descriptor file(open(job.local.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
            if (!file.IsOpen())
                FailLocally(job.local, Step::Open);
            if (job.isWhole) {
                CompareContents(caller, job.remote, file.Get(), job.local, transfer.GetJobs());
                transfer.tally.Resume(job.size);
                transfer.tally.FinishFile(job.remote, job.size, true);
                return;
            }
            const std::uint64_t start = options.resumes ? FindStart(caller, job, file.Get()) : 0;
            transfer.tally.Resume(start);
            FileSource source(file.Get(), job.local);
            const Stamp stamp{options.setsTimes ? ToUaTime(job.time) : 0,
                              MakePermissions(job.permissions)};
            BlockUpload upload(transfer, caller, job.remote, source, stamp, job.size);
            hasBegun = true;
            const std::uint64_t size = upload.Run(start);
            if (options.verifies)
                CompareContents(caller, job.remote, file.Get(), job.local, transfer.GetJobs());
            transfer.tally.FinishFile(job.remote, size);
        });
    }

    /// Where an earlier transfer broke off. What it wrote last has to be the same at the source.
    static std::uint64_t FindStart(Caller& caller, const UploadJob& job, int file)
    {
        const auto found = FindSizes(caller, std::span(&job.remote, 1)).front();
        if (!found || *found == 0 || *found > job.size)
            return 0;
        const std::uint64_t tail = std::min<std::uint64_t>(*found, tailSize);
        Bytes local(tail);
        ReadAt(file, job.local, local, *found - tail);
        Bytes remote;
        // The file is read from there to its end, which is `tail` bytes.
        ReadRemoteFile(caller, job.remote, *found - tail, 1,
                       [&](std::uint64_t, std::span<const unsigned char> bytes) {
                           remote.insert(remote.end(), bytes.begin(), bytes.end());
                       });
        return remote == local ? *found : 0;
    }

    Transfer& transfer;
    const TransferOptions& options;
    const FileTime marker = MakeMarker();
    std::unordered_set<std::string> targets; // of files
    std::vector<UploadDirectory> directories;
    std::vector<UploadJob> small;
    std::vector<UploadJob> large;
};

} // namespace

TransferResult FileSystem::Upload(const std::vector<TransferItem>& items,
                                  const TransferOptions& options)
{
    Transfer transfer{*implementation, options};
    Uploader(transfer).Run(items);
    return transfer.tally.Take();
}

TransferResult FileSystem::UploadFrom(const ByteSource& source, const std::string& remote,
                                      const TransferOptions& options)
{
    Transfer transfer{*implementation, options};
    transfer.tally.Find(1, std::nullopt);
    DoStep(transfer, [&] {
        Caller caller = implementation->MakeCaller(options.cancellation);
        const bool hasBegun = true;
        CheckPath(remote);
        DoFile(transfer, remote, remote, hasBegun, [&] {
            StreamSource stream(source);
            BlockUpload upload(transfer, caller, remote, stream, {}, std::nullopt);
            transfer.tally.FinishFile(remote, upload.Run(0));
        });
    });
    return transfer.tally.Take();
}

} // namespace Client
