#include "LargeDownload.h"

#include "DownloadResume.h"
#include "RemoteReader.h"
#include "ResumableTransfer.h"
#include "Stamp.h"
#include "Verify.h"

#include <cstdint>
#include <fcntl.h>
#include <span>

namespace Client {

namespace {

ResumableTransfer MakeResumable(const Transfer& transfer, const DownloadFile& job)
{
    // A file of this very time may be changed without another one.
    const bool isProof = job.time && IsPast(*job.time);
    return {transfer.records,
            {Direction::Down, transfer.node.GetServer(), NormalizeLocal(job.local),
             Normalize(job.remote)},
            0,
            isProof ? std::optional<std::int64_t>(job.time->time_since_epoch().count())
                    : std::nullopt};
}

/// Leaves a record where it is broken off, unless nothing came.
std::uint64_t Fetch(Transfer& transfer, Caller& caller, const DownloadFile& job, PartFile& part,
                    std::uint64_t start, ResumableTransfer& resumable, bool& hasBegun)
{
    try {
        const auto size = ReadRemoteFile(
            caller, job.remote, start, transfer.GetReadingJobs(),
            [&](std::uint64_t position, std::span<const unsigned char> bytes) {
                transfer.Pace(bytes.size());
                WriteAt(part.GetDescriptor(), job.local, bytes, position);
                resumable.Add(position, bytes);
                transfer.tally.Move(job.remote, position + bytes.size(), job.size, bytes.size());
            });
        resumable.Forget();
        return size;
    } catch (...) {
        resumable.BreakOff(std::nullopt);
        hasBegun = !part.DropIfEmpty();
        throw;
    }
}

void Compare(Transfer& transfer, Caller& caller, const DownloadFile& job, int file)
{
    CompareContents(caller, job.remote, file, job.local, transfer.GetJobs(),
                    [&](std::uint64_t done) { transfer.tally.Verify(job.remote, done, job.size); });
}

void CompareWhole(Transfer& transfer, Caller& caller, const DownloadFile& job,
                  const DownloadPlace& place)
{
    const Support::Descriptor file(openat(place.directory.Get(), place.leaf.c_str(),
                                          O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen())
        FailLocally(job.local, Step::Verify);
    Compare(transfer, caller, job, file.Get());
}

} // namespace

void FetchLarge(Transfer& transfer, Caller& caller, const DownloadFile& job,
                const DownloadPlaces& places)
{
    const TransferOptions& options = transfer.options;
    bool hasBegun = false;
    DoFile(transfer, job.remote, job.local, hasBegun, [&] {
        const DownloadPlace place = places.Find(job);
        if (IsWhole(transfer, job, place)) {
            if (options.verifies)
                CompareWhole(transfer, caller, job, place);
            transfer.tally.FinishFile(job.remote, 0, true);
            return;
        }
        PartFile part(place.directory.Get(), place.leaf, place.part, job.local, options.resumes,
                      job.mode);
        hasBegun = true;
        ResumableTransfer resumable = MakeResumable(transfer, job);
        const std::uint64_t start =
            options.resumes ? FindDownloadStart(caller, job, part, resumable) : 0;
        resumable.Forget();
        transfer.tally.Resume(start);
        const std::uint64_t size = Fetch(transfer, caller, job, part, start, resumable, hasBegun);
        if (options.verifies)
            Compare(transfer, caller, job, part.GetDescriptor());
        part.Finish(options.setsTimes ? job.time : std::nullopt);
        transfer.tally.FinishFile(job.remote, size);
    });
}

} // namespace Client
