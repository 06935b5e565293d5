#include "LargeUpload.h"

#include "BlockSource.h"
#include "BlockUpload.h"
#include "LocalFiles.h"
#include "ResumableTransfer.h"
#include "Stamp.h"
#include "UaTimes.h"
#include "UploadResume.h"
#include "Verify.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace Client {

namespace {

ResumableTransfer MakeResumable(const Transfer& transfer, const UploadFile& job, int file)
{
    struct stat status = {};
    if (fstat(file, &status) != 0)
        FailLocally(job.local, Step::Open);
    constexpr std::int64_t nanoseconds = 1'000'000'000;
    return {transfer.records,
            {Direction::Up, transfer.node.GetServer(), NormalizeLocal(job.local),
             Normalize(job.remote)},
            static_cast<std::uint64_t>(status.st_size),
            status.st_mtim.tv_sec * nanoseconds + status.st_mtim.tv_nsec};
}

/// Leaves a record where it is broken off, and a time at the target that writing does not set:
/// so it is known when somebody else writes it.
std::uint64_t Send(BlockUpload& upload, std::uint64_t start, ResumableTransfer& resumable,
                   FileTime marker)
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

void CompareWhole(Transfer& transfer, Caller& caller, const UploadFile& job, int file)
{
    CompareContents(caller, job.remote, file, job.local, transfer.GetJobs());
    transfer.tally.Resume(job.size);
    transfer.tally.FinishFile(job.remote, job.size, true);
}

} // namespace

void SendLarge(Transfer& transfer, Caller& caller, const UploadFile& job, FileTime marker)
{
    const TransferOptions& options = transfer.options;
    bool hasBegun = false;
    DoFile(transfer, job.remote, job.remote, hasBegun, [&] {
        const Support::Descriptor file(open(job.local.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        if (!file.IsOpen())
            FailLocally(job.local, Step::Open);
        if (job.isWhole) {
            CompareWhole(transfer, caller, job, file.Get());
            return;
        }
        ResumableTransfer resumable = MakeResumable(transfer, job, file.Get());
        const std::uint64_t start =
            options.resumes ? FindUploadStart(caller, job.remote, file.Get(), job.local, resumable)
                            : 0;
        resumable.Forget();
        transfer.tally.Resume(start);
        FileSource source(file.Get(), job.local, resumable);
        const Stamp stamp{options.setsTimes ? ToUaTime(job.time) : 0,
                          MakePermissions(job.permissions)};
        BlockUpload upload(transfer, caller, job.remote, source, stamp, job.size);
        hasBegun = true;
        const std::uint64_t size = Send(upload, start, resumable, marker);
        if (options.verifies)
            CompareContents(caller, job.remote, file.Get(), job.local, transfer.GetJobs());
        transfer.tally.FinishFile(job.remote, size);
    });
}

} // namespace Client
