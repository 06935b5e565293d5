#include "Client/FileSystem.h"
#include "Jobs.h"
#include "LargeUpload.h"
#include "SmallUploads.h"
#include "Stamp.h"
#include "UploadDirectories.h"
#include "UploadNames.h"
#include "UploadPlan.h"
#include "UploadWhole.h"

namespace Client {

namespace {

template <typename Sources>
void RunUpload(Transfer& transfer, const Sources& sources)
{
    const TransferOptions& options = transfer.options;
    const FileTime marker = MakeMarker();
    UploadPlan plan = PlanUpload(transfer, sources);
    DoStep(transfer, [&] {
        Caller caller = transfer.node.MakeCaller(options.cancellation);
        MakeDirectories(transfer, caller, plan);
        if (transfer.skipsWhole)
            SkipWhole(transfer, caller, plan);
        ChooseNames(transfer, plan);
        SmallUploads(transfer, caller, marker, plan.large).Run(plan.small);
    });
    if (!transfer.isOver)
        DoAll(transfer, plan.large, [&](Caller& caller, const UploadFile& job) {
            SendLarge(transfer, caller, job, marker);
        });
    if (!transfer.isOver && options.setsTimes)
        DoStep(transfer, [&] {
            Caller caller = transfer.node.MakeCaller(options.cancellation);
            SetDirectoryTimes(transfer, caller, plan.directories);
        });
}

} // namespace

TransferResult FileSystem::Upload(const std::vector<TransferItem>& items,
                                  const TransferOptions& options)
{
    Transfer transfer{*node, options, options.resumes};
    RunUpload(transfer, items);
    return Conclude(transfer, true);
}

TransferResult FileSystem::UploadPart(const TreePart& part, const TransferOptions& options)
{
    Transfer transfer{*node, options};
    RunUpload(transfer, part);
    return Conclude(transfer, true);
}

} // namespace Client
