#include "Jobs.h"
#include "LocalFiles.h"
#include "ResumableTransfer.h"
#include "Sizes.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <unordered_set>
#include <utility>

namespace Client {

namespace {

constexpr std::size_t compareSize = std::size_t{256} << 10U;
/// A time so close to now says nothing of what is written next.
constexpr std::chrono::seconds presentTime{60};
constexpr std::size_t filesAtOnce = 32;

struct DownloadJob
{
    std::string remote;
    std::string local;    // as it is named
    std::string relative; // below the tree; the leaf otherwise
    std::shared_ptr<LocalTree> tree;
    std::optional<FileTime> time;
};

/// A directory whose time is set when all is in it.
struct DirectoryJob
{
    std::string relative;
    std::shared_ptr<LocalTree> tree;
    std::optional<FileTime> time;
};

class Downloader
{
public:
    explicit Downloader(Transfer& transfer)
        : transfer(transfer)
        , options(transfer.options)
    {}

    void Run(FileSystem& fileSystem, const std::vector<TransferItem>& items)
    {
        for (const auto& item : items)
            DoStep(transfer, [&] { Find(fileSystem, item); });
        transfer.tally.EndFinding();
        std::vector<DownloadJob> large;
        if (files.size() > 1 && !options.verifies)
            DoStep(transfer, [&] { FetchSmall(large); });
        else
            large = std::move(files);
        if (!transfer.isOver)
            DoAll(transfer, large,
                  [this](Caller& caller, const DownloadJob& job) { FetchLarge(caller, job); });
        if (!transfer.isOver)
            SetTimes();
    }

private:
    void Find(FileSystem& fileSystem, const TransferItem& item)
    {
        if (transfer.isOver)
            return;
        try {
            CheckPath(item.local);
            const Kind kind = fileSystem.GetKind(item.remote, options.cancellation);
            if (kind == Kind::Missing)
                throw FileFailed(
                    MakeUnknownFailure(item.remote, Step::Open, "there is nothing of this name"));
            if (kind == Kind::File)
                AddFile(fileSystem, item);
            else if (options.isRecursive)
                AddTree(fileSystem, item);
            else
                throw FileFailed(Skip(item.remote, "it is a directory"));
        } catch (const FileFailed& failed) {
            transfer.tally.AddFailure(failed.GetFailure());
        } catch (const OperationFailedException& failed) {
            transfer.tally.AddFailure(MakeUnknownFailure(item.remote, Step::List, failed.what()));
        } catch (const InvalidArgumentException& failed) {
            transfer.tally.AddFailure(MakeUnknownFailure(item.remote, Step::Open, failed.what()));
        } catch (const CallRefusedException& refused) {
            transfer.tally.AddFailure(MakeUnknownFailure(item.remote, Step::Open, refused.what()));
        }
    }

    static Failure Skip(const std::string& remote, std::string cause)
    {
        Failure failure = MakeUnknownFailure(remote, Step::Open, std::move(cause));
        failure.kind = FailureKind::Skipped;
        return failure;
    }

    void AddFile(FileSystem& fileSystem, const TransferItem& item)
    {
        if (GetLeaf(item.local).empty())
            throw FileFailed(
                MakeLocalFailure(item.local, Step::Open, FailureKind::Skipped, "it names no file"));
        RequireOwnTarget(item.remote, item.local);
        DownloadJob job{item.remote, item.local, "", nullptr, std::nullopt};
        job.time = fileSystem.GetTime(item.remote, options.cancellation);
        transfer.tally.Find(1, std::nullopt);
        files.push_back(std::move(job));
    }

    void RequireOwnTarget(const std::string& remote, const std::string& local)
    {
        if (!targets.insert(NormalizeLocal(local)).second)
            throw FileFailed(Skip(remote, "another source goes to the same target, " + local));
    }

    void AddTree(FileSystem& fileSystem, const TransferItem& item)
    {
        const Listing listing = fileSystem.List(item.remote, true, options.cancellation);
        for (const auto& failure : listing.failures)
            transfer.tally.AddFailure(failure);
        const auto tree = std::make_shared<LocalTree>(item.local);
        transfer.tally.AddDirectory();
        directories.push_back({"", tree, fileSystem.GetTime(item.remote, options.cancellation)});
        std::unordered_set<std::string> seen;
        for (const auto& entry : listing.entries)
            AddEntry(item, tree, entry, seen);
    }

    void AddEntry(const TransferItem& item, const std::shared_ptr<LocalTree>& tree,
                  const ListEntry& entry, std::unordered_set<std::string>& seen)
    {
        const std::string remote = Join(item.remote, entry.path);
        if (!IsSafeRelativePath(entry.path)) {
            Failure failure = MakeUnknownFailure(remote, Step::List,
                                                 "its path leads out of the directory, as a link "
                                                 "may; nothing was written");
            failure.kind = FailureKind::Unsafe;
            transfer.tally.AddFailure(std::move(failure));
            return;
        }
        if (!seen.insert(entry.path).second)
            return; // what a link leads to has been there already
        try {
            if (!entry.isDirectory) {
                const std::string local = tree->GetName(entry.path);
                RequireOwnTarget(remote, local);
                transfer.tally.Find(1, std::nullopt);
                files.push_back({remote, local, entry.path, tree, entry.time});
                return;
            }
            targets.insert(NormalizeLocal(tree->GetName(entry.path)));
            tree->MakeDirectory(entry.path);
            transfer.tally.AddDirectory();
            directories.push_back({entry.path, tree, entry.time});
        } catch (const FileFailed& failed) {
            transfer.tally.AddFailure(failed.GetFailure());
        }
    }

    /// A file's place on this side; the directory is closed with it.
    struct Place
    {
        Support::Descriptor directory;
        std::string leaf;
        std::string part;
    };

    /// A file of the transfer may have the name that the part of another would have.
    [[nodiscard]] std::string FindPartLeaf(const std::string& local, const std::string& leaf) const
    {
        const std::string directory = GetDirectory(NormalizeLocal(local));
        for (unsigned int number = 1;; ++number) {
            std::string part = GetPartLeaf(leaf, number);
            std::string path = directory == "/" ? directory : directory + "/";
            path += part;
            if (!targets.contains(path))
                return part;
        }
    }

    [[nodiscard]] Place FindPlace(const DownloadJob& job) const
    {
        Place place;
        if (job.tree) {
            place.directory =
                Support::Descriptor(fcntl(job.tree->OpenParent(job.relative), F_DUPFD_CLOEXEC, 0));
            place.leaf = GetLeaf(job.relative);
        } else {
            place.directory = Support::Descriptor(
                open(GetDirectory(job.local).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            place.leaf = GetLeaf(job.local);
        }
        if (!place.directory.IsOpen())
            FailLocally(job.local, Step::Open);
        place.part = FindPartLeaf(job.local, place.leaf);
        return place;
    }

    /// Whether an earlier transfer has finished it.
    [[nodiscard]] bool IsWhole(const DownloadJob& job, const Place& place) const
    {
        return options.resumes && options.setsTimes && job.time &&
               FindLocalTime(place.directory.Get(), place.leaf) == job.time;
    }

    [[nodiscard]] std::optional<FileTime> GetTimeToSet(const DownloadJob& job) const
    {
        return options.setsTimes ? job.time : std::nullopt;
    }

    void FetchLarge(Caller& caller, const DownloadJob& job)
    {
        bool hasBegun = false;
        DoFile(transfer, job.remote, job.local, hasBegun, [&] {
            const Place place = LockedPlace(job);
            if (IsWhole(job, place)) {
                if (options.verifies)
                    CompareWhole(caller, job, place);
                transfer.tally.FinishFile(job.remote, 0, true);
                return;
            }
            PartFile part(place.directory.Get(), place.leaf, place.part, job.local,
                          options.resumes);
            hasBegun = true;
            ResumableTransfer resumable = MakeResumable(job);
            const std::uint64_t start = FindStart(caller, job, part, resumable);
            resumable.Forget();
            transfer.tally.Resume(start);
            const std::uint64_t size = Fetch(caller, job, part, start, resumable);
            if (options.verifies)
                CompareContents(caller, job.remote, part.GetDescriptor(), job.local,
                                transfer.GetJobs());
            part.Finish(GetTimeToSet(job));
            transfer.tally.FinishFile(job.remote, size);
        });
    }

    /// Leaves a record where it is broken off.
    std::uint64_t Fetch(Caller& caller, const DownloadJob& job, const PartFile& part,
                        std::uint64_t start, ResumableTransfer& resumable)
    {
        try {
            const auto size =
                ReadRemoteFile(caller, job.remote, start, transfer.GetJobs(),
                               [&](std::uint64_t position, std::span<const unsigned char> bytes) {
                                   WriteAt(part.GetDescriptor(), job.local, bytes, position);
                                   resumable.Add(position, bytes);
                                   transfer.tally.Move(job.remote, position + bytes.size(),
                                                       std::nullopt, bytes.size());
                               });
            resumable.Forget();
            return size;
        } catch (...) {
            resumable.BreakOff(std::nullopt);
            throw;
        }
    }

    void CompareWhole(Caller& caller, const DownloadJob& job, const Place& place) const
    {
        const Support::Descriptor file(openat(place.directory.Get(), place.leaf.c_str(),
                                              O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!file.IsOpen())
            FailLocally(job.local, Step::Verify);
        CompareContents(caller, job.remote, file.Get(), job.local, transfer.GetJobs());
    }

    /// The trees keep the directory that was opened last.
    Place LockedPlace(const DownloadJob& job)
    {
        const std::lock_guard lock(places);
        return FindPlace(job);
    }

    [[nodiscard]] ResumableTransfer MakeResumable(const DownloadJob& job) const
    {
        // A file of this very time may be changed without another one.
        const bool isProof = job.time && *job.time < std::chrono::system_clock::now() - presentTime;
        return {transfer.records,
                {Direction::Down, transfer.fileSystem.GetServer(), NormalizeLocal(job.local),
                 Normalize(job.remote)},
                0,
                isProof ? std::optional<std::int64_t>(job.time->time_since_epoch().count())
                        : std::nullopt};
    }

    /// Returns from where on the part can be carried on: what an earlier transfer kept of the file
    /// if neither has changed since. The part holds nothing else afterwards.
    std::uint64_t FindStart(Caller& caller, const DownloadJob& job, PartFile& part,
                            ResumableTransfer& resumable) const
    {
        const auto record = options.resumes ? resumable.FindEarlier() : std::nullopt;
        const std::uint64_t size = record ? record->length : 0;
        if (size > 0 && size <= part.GetSize() && IsPartTheSame(*record, job, part, resumable) &&
            IsTailTheSame(caller, job, part, size)) {
            part.Truncate(size);
            return size;
        }
        part.Truncate(0);
        return 0;
    }

    /// Tells the transfer of what is there.
    static bool IsPartTheSame(const TransferRecord& record, const DownloadJob& job,
                              const PartFile& part, ResumableTransfer& resumable)
    {
        PrefixDigest digest;
        std::vector<unsigned char> buffer(compareSize);
        for (std::uint64_t position = 0; position < record.length;) {
            const auto wanted = std::min<std::uint64_t>(buffer.size(), record.length - position);
            const auto bytes = std::span(buffer).first(
                ReadAt(part.GetDescriptor(), job.local, std::span(buffer).first(wanted), position));
            if (bytes.empty())
                return false;
            digest.Add(position, bytes);
            position += bytes.size();
        }
        if (digest.Get() != record.digest)
            return false;
        resumable.CarryOn(std::move(digest));
        return true;
    }

    static bool IsTailTheSame(Caller& caller, const DownloadJob& job, const PartFile& part,
                              std::uint64_t size)
    {
        const std::uint64_t tail = std::min<std::uint64_t>(size, readSize);
        std::vector<unsigned char> local(tail);
        ReadAt(part.GetDescriptor(), job.local, local, size - tail);
        return local ==
               caller.Repeat([&] { return ReadTail(caller, job.remote, size - tail, tail); });
    }

    static std::vector<unsigned char> ReadTail(Caller& caller, const std::string& remote,
                                               std::uint64_t position, std::uint64_t length)
    {
        OpenedFiles opened(caller);
        const auto open = caller.Open(remote, openForReading);
        opened.Add(open);
        const auto barrier = caller.Barrier();
        caller.AwaitAnswer(open);
        caller.AwaitEvent(barrier);
        const auto handle = open->outcome.opened->GetNumber();
        caller.SetPosition(handle, position);
        const auto read = caller.Read(handle, static_cast<std::uint32_t>(length));
        caller.AwaitAnswer(caller.Close(handle));
        caller.AwaitAnswer(read);
        opened.Release();
        const auto bytes = read->outcome.GetBytes();
        return {bytes.begin(), bytes.end()};
    }

    // Many small files

    struct SmallFile
    {
        const DownloadJob* job;
        CallPointer open;
        CallPointer read;
    };
    struct Batch
    {
        explicit Batch(Caller& caller) noexcept
            : opened(caller)
        {}

        std::vector<SmallFile> files;
        CallPointer barrier;
        OpenedFiles opened;
    };

    /// Fetches what one read holds; the others are left in `large`.
    void FetchSmall(std::vector<DownloadJob>& large)
    {
        Caller caller = transfer.fileSystem.MakeCaller(options.cancellation);
        std::deque<Batch> batches;
        std::size_t next = 0;
        while (next < files.size() || !batches.empty()) {
            caller.ThrowIfCancelled();
            try {
                while (next < files.size() && batches.size() < 2) {
                    OpenBatch(caller, next, batches.emplace_back(caller));
                    next += filesAtOnce;
                }
                ReadBatch(caller, batches.front());
                if (next < files.size()) { // so that the worker is never idle
                    OpenBatch(caller, next, batches.emplace_back(caller));
                    next += filesAtOnce;
                }
                FinishBatch(caller, batches.front(), large);
                batches.front().opened.Release();
                batches.pop_front();
            } catch (const CallsLost&) {
                // What has not been finished is done one by one.
                for (const auto& batch : batches)
                    for (const auto& file : batch.files)
                        if (file.job != nullptr)
                            large.push_back(*file.job);
                if (!caller.Recover())
                    for (auto& batch : batches)
                        batch.opened.Release();
                batches.clear();
            }
        }
    }

    void OpenBatch(Caller& caller, std::size_t start, Batch& batch)
    {
        const std::size_t end = std::min(start + filesAtOnce, files.size());
        for (std::size_t i = start; i < end; ++i) {
            if (options.resumes && IsSettled(files[i]))
                continue;
            batch.files.push_back(
                {&files[i], caller.Open(files[i].remote, openForReading), nullptr});
            batch.opened.Add(batch.files.back().open);
        }
        batch.barrier = caller.Barrier();
    }

    /// Nothing is to be fetched: it is whole already, or cannot be written.
    bool IsSettled(const DownloadJob& job)
    {
        bool isSettled = true;
        const bool hasBegun = false;
        DoFile(transfer, job.remote, job.local, hasBegun, [&] {
            isSettled = IsWhole(job, LockedPlace(job));
            if (isSettled)
                transfer.tally.FinishFile(job.remote, 0, true);
        });
        return isSettled;
    }

    static void ReadBatch(Caller& caller, Batch& batch)
    {
        caller.AwaitEvent(batch.barrier);
        for (auto& file : batch.files) {
            caller.Wait(*file.open, [&] { return file.open->outcome.isAnswered.load(); });
            if (file.open->outcome.isLost)
                throw CallsLost();
            if (file.open->outcome.opened == nullptr ||
                file.open->outcome.opened->GetFailure() != 0)
                continue;
            const auto handle = file.open->outcome.opened->GetNumber();
            file.read = caller.Read(handle, readSize);
            caller.Close(handle);
        }
    }

    void FinishBatch(Caller& caller, Batch& batch, std::vector<DownloadJob>& large)
    {
        for (auto& file : batch.files) {
            if (file.read)
                caller.Wait(*file.read, [&] { return file.read->outcome.isAnswered.load(); });
            if (file.read && file.read->outcome.isLost)
                throw CallsLost();
            const DownloadJob& job = *std::exchange(file.job, nullptr);
            // One that is full may not be all: it ends short only where the file does.
            if (file.read && file.read->outcome.GetBytes().size() >= readSize)
                large.push_back(job);
            else
                FinishSmall(job, file);
        }
    }

    void FinishSmall(const DownloadJob& job, const SmallFile& file)
    {
        bool hasBegun = false;
        DoFile(transfer, job.remote, job.local, hasBegun, [&] {
            CheckAnswer(*file.open);
            if (const auto result = file.open->outcome.opened->GetFailure(); result != 0)
                throw FileFailed(MakeRemoteFailure(job.remote, Step::Open, result));
            CheckAnswer(*file.read);
            if (!file.read->outcome.bytes)
                throw FileFailed(
                    MakeUnknownFailure(job.remote, Step::Read, "it is not open any more"));
            const Place place = LockedPlace(job);
            PartFile part(place.directory.Get(), place.leaf, place.part, job.local, false);
            hasBegun = true;
            const auto bytes = file.read->outcome.GetBytes();
            WriteAt(part.GetDescriptor(), job.local, bytes, 0);
            part.Finish(GetTimeToSet(job));
            transfer.tally.Move(job.remote, bytes.size(), bytes.size(), bytes.size());
            transfer.tally.FinishFile(job.remote, bytes.size());
        });
    }

    /// From below to above: what is done in a directory changes its time.
    void SetTimes()
    {
        if (!options.setsTimes)
            return;
        // NOLINTNEXTLINE(modernize-loop-convert): clang 14 does not take std::views::reverse
        for (auto each = directories.rbegin(); each != directories.rend(); ++each) {
            if (!each->time)
                continue;
            try {
                each->tree->SetTime(each->relative, *each->time);
            } catch (const FileFailed& failed) {
                transfer.tally.AddFailure(failed.GetFailure());
            }
        }
    }

    Transfer& transfer;
    const TransferOptions& options;
    std::unordered_set<std::string> targets; // normalized; unchanged once all was found
    std::vector<DownloadJob> files;
    std::vector<DirectoryJob> directories;
    std::mutex places; // guards the trees
};

} // namespace

TransferResult FileSystem::Download(const std::vector<TransferItem>& items,
                                    const TransferOptions& options)
{
    Transfer transfer{*implementation, options};
    Downloader(transfer).Run(*this, items);
    return transfer.tally.Take();
}

TransferResult FileSystem::DownloadTo(const std::string& remote, const ByteSink& sink,
                                      const TransferOptions& options)
{
    Transfer transfer{*implementation, options};
    transfer.tally.Find(1, std::nullopt);
    DoStep(transfer, [&] {
        Caller caller = implementation->MakeCaller(options.cancellation);
        const bool hasBegun = false; // there is no target
        DoFile(transfer, remote, "", hasBegun, [&] {
            if (GetKind(remote, options.cancellation) == Kind::Directory)
                throw FileFailed(MakeUnknownFailure(remote, Step::Open, "it is a directory"));
            const auto size =
                ReadRemoteFile(caller, remote, 0, 1,
                               [&](std::uint64_t position, std::span<const unsigned char> bytes) {
                                   sink(bytes);
                                   transfer.tally.Move(remote, position + bytes.size(),
                                                       std::nullopt, bytes.size());
                               });
            transfer.tally.FinishFile(remote, size);
        });
    });
    return transfer.tally.Take();
}

} // namespace Client
