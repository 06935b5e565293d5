#include "LargeUpload.h"

#include "BlockSource.h"
#include "BlockUpload.h"
#include "LocalFiles.h"
#include "ResumableTransfer.h"
#include "Stamp.h"
#include "UaTimes.h"
#include "UploadNames.h"
#include "UploadResume.h"
#include "Verify.h"

#include <fcntl.h>
#include <span>
#include <sys/stat.h>

namespace Client {

namespace {

TransferKey MakeKey(const Transfer& transfer, const UploadFile& job)
{
    return {Direction::Up, transfer.node.GetServer(), NormalizeLocal(job.local),
            Normalize(job.remote)};
}

/// Names a target that is written in place, whatever its source. The server counts by its address:
/// machines that are made from one image have one certificate.
TransferKey MakeTargetKey(const Transfer& transfer, const UploadFile& job)
{
    return {Direction::Up, transfer.node.GetUrl(), {}, Normalize(job.remote)};
}

/// A transfer whose key another one holds neither reads nor changes the record of that.
const TransferRecords& GetRecords(const Transfer& transfer, bool isLocked)
{
    static const TransferRecords none{{}};
    return isLocked ? transfer.records : none;
}

ResumableTransfer MakeResumable(const Transfer& transfer, const UploadFile& job, int file,
                                bool isLocked)
{
    struct stat status = {};
    if (fstat(file, &status) != 0)
        FailLocally(job.local, Step::Open);
    constexpr std::int64_t nanoseconds = 1'000'000'000;
    return {GetRecords(transfer, isLocked), MakeKey(transfer, job),
            static_cast<std::uint64_t>(status.st_size),
            status.st_mtim.tv_sec * nanoseconds + status.st_mtim.tv_nsec};
}

/// One source that goes up.
struct LargeUpload
{
    Transfer& transfer;
    Caller& caller;
    const UploadFile& job;
    const int file;
    const FileTime marker;
    ResumableTransfer& resumable;

    /// Leaves a record where it is broken off, and a time at the target that writing does not set:
    /// so it is known when somebody else writes it.
    [[nodiscard]] std::uint64_t Send(std::uint64_t start) const
    {
        FileSource source(file, job.local, resumable);
        const Stamp stamp{transfer.options.setsTimes ? ToUaTime(job.time) : 0, MakeFlags(job)};
        const BlockUpload::Target target{job.remote, job.written, stamp, job.size,
                                         MakePreparation(transfer, caller, job)};
        BlockUpload upload(transfer, caller, source, target);
        try {
            const auto size = upload.Run(start);
            resumable.Forget();
            return size;
        } catch (...) {
            resumable.BreakOff(upload.BreakOff(marker));
            throw;
        }
    }

    /// Likewise; a target that cannot be opened goes first, if the options say so.
    [[nodiscard]] std::uint64_t SendOrReplace(std::uint64_t start) const
    {
        try {
            return Send(start);
        } catch (const FileFailed& failed) {
            const Failure& failure = failed.GetFailure();
            if (!transfer.options.replaces || failure.kind != FailureKind::RemoteResult ||
                failure.step != Step::Open)
                throw;
        }
        caller.Repeat([&] { caller.AwaitEvent(caller.Delete({job.written})); });
        return Send(0);
    }
};

/// So that nothing is begun for a source that cannot be read.
void RequireReadable(int file, const std::string& local)
{
    unsigned char first = 0;
    ReadAt(file, local, std::span(&first, 1), 0);
}

void Compare(Transfer& transfer, Caller& caller, const UploadFile& job, const std::string& remote,
             int file)
{
    CompareContents(caller, remote, file, job.local, transfer.GetJobs(),
                    [&](std::uint64_t done) { transfer.tally.Verify(job.remote, done, job.size); });
}

void CompareWhole(Transfer& transfer, Caller& caller, const UploadFile& job, int file)
{
    Compare(transfer, caller, job, job.remote, file);
    transfer.tally.Resume(job.size);
    transfer.tally.FinishFile(job.remote, job.size, true);
}

} // namespace

void SendLarge(Transfer& transfer, Caller& caller, const UploadFile& given, FileTime marker)
{
    const TransferOptions& options = transfer.options;
    bool hasBegun = false;
    UploadFile job = given;
    // Held to the end: of transfers at the same time one may be carried on.
    const auto lock = transfer.records.Lock(MakeKey(transfer, job)).lock;
    const auto target =
        job.IsInPlace() ? transfer.records.Lock(MakeTargetKey(transfer, job)) : Locking();
    const auto client = lock && !job.IsInPlace() ? transfer.records.FindClient() : std::nullopt;
    if (client)
        job.written = GetRemotePartName(job.remote, job.local, *client);
    DoUpload(transfer, job, hasBegun, [&] {
        if (target.isTaken && !job.isWhole)
            throw FileFailed(
                MakeReasonFailure(job.remote, Step::Open, "another transfer is writing it"));
        const Support::Descriptor file(open(job.local.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        if (!file.IsOpen())
            FailLocally(job.local, Step::Open);
        RequireReadable(file.Get(), job.local);
        if (job.isWhole) {
            CompareWhole(transfer, caller, job, file.Get());
            return;
        }
        ResumableTransfer resumable = MakeResumable(transfer, job, file.Get(), lock.has_value());
        const std::uint64_t start =
            options.resumes ? FindUploadStart(caller, job.written, file.Get(), job.local, resumable)
                            : 0;
        resumable.Forget();
        transfer.tally.Resume(start);
        hasBegun = true;
        const std::uint64_t size =
            LargeUpload{transfer, caller, job, file.Get(), marker, resumable}.SendOrReplace(start);
        if (options.verifies)
            Compare(transfer, caller, job, job.written, file.Get());
        if (!job.IsInPlace())
            GiveName(transfer, {&job, size, options.setsTimes});
        transfer.tally.FinishFile(job.remote, size);
    });
}

} // namespace Client
