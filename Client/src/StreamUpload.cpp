#include "BlockSource.h"
#include "BlockUpload.h"
#include "Client/FileSystem.h"
#include "Jobs.h"
#include "UploadNames.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Client {

namespace {

UploadFile MakeJob(const std::string& remote)
{
    UploadFile job;
    job.remote = remote;
    job.written = remote;
    return job;
}

/// Writes all that comes and gives it its name.
std::uint64_t SendStream(Transfer& transfer, Caller& caller, const FileSystem::ByteSource& source,
                         const UploadFile& job)
{
    StreamSource stream(source);
    const BlockUpload::Target target{
        job.remote, job.written, {}, std::nullopt, MakePreparation(transfer, caller, job)};
    BlockUpload upload(transfer, caller, stream, target);
    const std::uint64_t size = upload.Run(0);
    if (!job.IsInPlace())
        GiveName(transfer, {&job, size, false});
    return size;
}

void Send(Transfer& transfer, Caller& caller, const FileSystem::ByteSource& source,
          const UploadFile& job)
{
    bool hasBegun = job.IsInPlace();
    DoFile(transfer, job.remote, job.written, hasBegun, [&] {
        try {
            transfer.tally.FinishFile(job.remote, SendStream(transfer, caller, source, job));
        } catch (...) {
            // A stream cannot be carried on.
            if (!job.IsInPlace())
                hasBegun = !caller.DeleteAnyway({job.written});
            throw;
        }
    });
}

} // namespace

TransferResult FileSystem::UploadFrom(const ByteSource& source, const std::string& remote,
                                      const TransferOptions& options)
{
    Transfer transfer{*node, options};
    transfer.tally.Find(1, std::nullopt);
    DoStep(transfer, [&] {
        Caller caller = node->MakeCaller(options.cancellation);
        CheckPath(remote);
        UploadPlan plan;
        plan.large.push_back(MakeJob(remote));
        ChooseNames(transfer, plan);
        for (const auto& job : plan.large)
            Send(transfer, caller, source, job);
    });
    return Conclude(transfer, true);
}

} // namespace Client
