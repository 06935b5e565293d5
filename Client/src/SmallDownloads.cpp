#include "SmallDownloads.h"

#include "RemoteReader.h"

#include <algorithm>
#include <deque>
#include <utility>

namespace Client {

namespace {

constexpr std::size_t downloadsAtOnce = 32;

} // namespace

SmallDownloads::SmallDownloads(Transfer& transfer, Caller& caller, const DownloadPlaces& places,
                               std::vector<DownloadFile>& large) noexcept
    : transfer(transfer)
    , options(transfer.options)
    , caller(caller)
    , places(places)
    , large(large)
{}

void SmallDownloads::Run(const std::vector<DownloadFile>& files)
{
    std::deque<Batch> batches;
    std::size_t next = 0;
    while (next < files.size() || !batches.empty()) {
        caller.ThrowIfCancelled();
        try {
            while (next < files.size() && batches.size() < 2) {
                OpenBatch(files, next, batches.emplace_back(caller));
                next += downloadsAtOnce;
            }
            ReadBatch(batches.front());
            if (next < files.size()) { // so that the worker is never idle
                OpenBatch(files, next, batches.emplace_back(caller));
                next += downloadsAtOnce;
            }
            FinishBatch(batches.front());
            batches.front().opened.Release();
            batches.pop_front();
        } catch (const CallsLost&) {
            // The files that are not finished follow one by one.
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

void SmallDownloads::OpenBatch(const std::vector<DownloadFile>& files, std::size_t start,
                               Batch& batch)
{
    const std::size_t end = std::min(start + downloadsAtOnce, files.size());
    for (std::size_t i = start; i < end; ++i) {
        if (transfer.skipsWhole && IsSettled(files[i]))
            continue;
        batch.files.push_back({&files[i], caller.Open(files[i].remote, openForReading), nullptr});
        batch.opened.Add(batch.files.back().open);
    }
    batch.barrier = caller.Barrier();
}

/// Returns true when there is nothing to fetch: it is whole already, or cannot be written.
bool SmallDownloads::IsSettled(const DownloadFile& job)
{
    bool isSettled = true;
    const bool hasBegun = false;
    DoFile(transfer, job.remote, job.local, hasBegun, [&] {
        isSettled = IsWhole(transfer, job, places.Find(job));
        if (isSettled)
            transfer.tally.FinishFile(job.remote, 0, true);
    });
    return isSettled;
}

void SmallDownloads::ReadBatch(Batch& batch)
{
    caller.AwaitEvent(batch.barrier);
    for (auto& file : batch.files) {
        caller.Wait(*file.open, [&] { return file.open->outcome.isAnswered.load(); });
        if (file.open->outcome.isLost)
            throw CallsLost();
        if (file.open->outcome.opened == nullptr || file.open->outcome.opened->GetFailure() != 0)
            continue;
        const auto handle = file.open->outcome.opened->GetNumber();
        file.read = caller.Read(handle, readSize);
        caller.Close(handle);
    }
}

void SmallDownloads::FinishBatch(Batch& batch)
{
    for (auto& file : batch.files) {
        if (file.read)
            caller.Wait(*file.read, [&] { return file.read->outcome.isAnswered.load(); });
        if (file.read && file.read->outcome.isLost)
            throw CallsLost();
        const DownloadFile& job = *std::exchange(file.job, nullptr);
        // One that is full may not be all: it ends short only where the file does.
        if (file.read && file.read->outcome.GetBytes().size() >= readSize)
            large.push_back(job);
        else
            FinishSmall(job, file);
    }
}

void SmallDownloads::FinishSmall(const DownloadFile& job, const SmallFile& file)
{
    bool hasBegun = false;
    DoFile(transfer, job.remote, job.local, hasBegun, [&] {
        CheckAnswer(*file.open);
        if (const auto result = file.open->outcome.opened->GetFailure(); result != 0)
            throw FileFailed(MakeRemoteFailure(job.remote, Step::Open, result));
        CheckAnswer(*file.read);
        if (!file.read->outcome.bytes)
            throw FileFailed(
                MakeUnknownFailure(job.remote, Step::Read, "it is no longer open on the server"));
        const DownloadPlace place = places.Find(job);
        PartFile part(place.directory.Get(), place.leaf, place.part, job.local, false, job.mode);
        hasBegun = true;
        const auto bytes = file.read->outcome.GetBytes();
        transfer.Pace(bytes.size());
        WriteAt(part.GetDescriptor(), job.local, bytes, 0);
        part.Finish(options.setsTimes ? job.time : std::nullopt);
        transfer.tally.Move(job.remote, bytes.size(), bytes.size(), bytes.size());
        transfer.tally.FinishFile(job.remote, bytes.size());
    });
}

} // namespace Client
