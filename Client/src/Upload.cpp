#include "BlockUpload.h"
#include "Jobs.h"
#include "LocalFiles.h"
#include "Sizes.h"
#include "UaTimes.h"
#include "UploadResume.h"

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

constexpr std::size_t smallFile = std::size_t{256} << 10U;
constexpr std::size_t smallFilesAtOnce = 128;
constexpr std::size_t smallBytesAtOnce = std::size_t{8} << 20U;
constexpr std::size_t directoriesAtOnce = 200;

/// A time that no file has by chance, and that writing does not set.
FileTime MakeMarker()
{
    constexpr std::int64_t earliest = 100'000'000; // 1973
    constexpr std::int64_t latest = 900'000'000;   // 1998
    std::random_device random;
    return FileTime(std::chrono::seconds(
        std::uniform_int_distribution<std::int64_t>(earliest, latest)(random)));
}

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
        std::vector<CallPointer> checks;
        for (const auto& directory : part) {
            caller.CreateDirectory(directory.remote);
            checks.push_back(caller.Exists(AsDirectory(directory.remote)));
        }
        std::vector<bool> made;
        for (const auto& check : checks) {
            caller.AwaitEvent(check);
            made.push_back(check->outcome.exists);
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
        std::vector<CallPointer> calls;
        for (const auto& entry : entries)
            calls.push_back(caller.GetDateTime(entry.remote));
        std::vector<std::optional<FileTime>> times;
        for (const auto& call : calls) {
            caller.AwaitAnswer(call);
            times.push_back(GetFileTime(*call));
        }
        return times;
    }

    // Many small files

    struct SmallUpload
    {
        const UploadJob* job;
        std::size_t size;
        FileTime time; // that it is to have now: the marker, until that has been seen
        CallPointer upload;
        CallPointer check;
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
                while (!checking.empty() && checking.front().check->outcome.isAnswered)
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
            const Support::Descriptor file(
                open(job.local.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
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
        caller.Wait(*upload.upload, [&] {
            return upload.upload->outcome.isAnswered &&
                   (upload.upload->outcome.isLost || upload.upload->outcome.opened == nullptr ||
                    upload.upload->outcome.opened->IsAcknowledged() ||
                    upload.upload->outcome.opened->IsLost());
        });
        const bool isHandleLost = upload.upload->outcome.opened != nullptr &&
                                  upload.upload->outcome.opened->IsLost() &&
                                  !upload.upload->outcome.opened->IsAcknowledged();
        if (upload.upload->outcome.isLost || isHandleLost)
            throw CallsLost();
        DoFile(transfer, upload.job->remote, upload.job->remote, hasBegun, [&] {
            CheckAnswer(*upload.upload);
            if (const auto result = upload.upload->outcome.opened->GetFailure(); result != 0)
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
        caller.Wait(*upload.check, [&] { return upload.check->outcome.isAnswered.load(); });
        if (upload.check->outcome.isLost)
            throw CallsLost();
        if (GetFileTime(*upload.check) != upload.time) {
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
        const auto handle = upload.upload->outcome.opened->GetNumber();
        const auto position = caller.GetPosition(handle);
        caller.Wait(*position, [&] { return position->outcome.isAnswered.load(); });
        if (position->outcome.isLost)
            throw CallsLost();
        const bool isOpen = position->outcome.position.has_value();
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

    [[nodiscard]] ResumableTransfer MakeResumable(const UploadJob& job, int file) const
    {
        struct stat status = {};
        if (fstat(file, &status) != 0)
            FailLocally(job.local, Step::Open);
        constexpr std::int64_t nanoseconds = 1'000'000'000;
        return {transfer.records,
                {Direction::Up, transfer.fileSystem.GetServer(), NormalizeLocal(job.local),
                 Normalize(job.remote)},
                static_cast<std::uint64_t>(status.st_size),
                status.st_mtim.tv_sec * nanoseconds + status.st_mtim.tv_nsec};
    }

    /// Leaves a record where it is broken off, and a time at the target that writing does not set:
    /// so it is known when somebody else writes it.
    std::uint64_t Send(BlockUpload& upload, std::uint64_t start, ResumableTransfer& resumable) const
    {
        try {
            const auto size = upload.Run(start);
            resumable.Forget();
            return size;
        } catch (...) {
            resumable.BreakOff(upload.BreakOff(marker));
            throw;
        }
    }

    void SendLarge(Caller& caller, const UploadJob& job)
    {
        bool hasBegun = false;
        DoFile(transfer, job.remote, job.remote, hasBegun, [&] {
            const Support::Descriptor file(
                open(job.local.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
            if (!file.IsOpen())
                FailLocally(job.local, Step::Open);
            if (job.isWhole) {
                CompareContents(caller, job.remote, file.Get(), job.local, transfer.GetJobs());
                transfer.tally.Resume(job.size);
                transfer.tally.FinishFile(job.remote, job.size, true);
                return;
            }
            ResumableTransfer resumable = MakeResumable(job, file.Get());
            const std::uint64_t start =
                options.resumes
                    ? FindUploadStart(caller, job.remote, file.Get(), job.local, resumable)
                    : 0;
            resumable.Forget();
            transfer.tally.Resume(start);
            FileSource source(file.Get(), job.local, resumable);
            const Stamp stamp{options.setsTimes ? ToUaTime(job.time) : 0,
                              MakePermissions(job.permissions)};
            BlockUpload upload(transfer, caller, job.remote, source, stamp, job.size);
            hasBegun = true;
            const std::uint64_t size = Send(upload, start, resumable);
            if (options.verifies)
                CompareContents(caller, job.remote, file.Get(), job.local, transfer.GetJobs());
            transfer.tally.FinishFile(job.remote, size);
        });
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
