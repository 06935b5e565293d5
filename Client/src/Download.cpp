#include "Client/FileSystem.h"
#include "DownloadPlaces.h"
#include "DownloadPlan.h"
#include "Jobs.h"
#include "LargeDownload.h"
#include "LocalFiles.h"
#include "SmallDownloads.h"

#include <utility>
#include <vector>

namespace Client {

namespace {

/// Sets the times of directories, from below to above: what is done in a directory changes its
/// time.
void SetTimes(Transfer& transfer, const std::vector<DownloadDirectory>& directories)
{
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

template <typename Sources>
void RunDownload(Transfer& transfer, FileSystem& fileSystem, const Sources& sources)
{
    const TransferOptions& options = transfer.options;
    DownloadPlan plan = PlanDownload(transfer, fileSystem, sources);
    const DownloadPlaces places(plan);
    std::vector<DownloadFile> large;
    if (plan.files.size() > 1 && !options.verifies)
        DoStep(transfer, [&] {
            Caller caller = transfer.node.MakeCaller(options.cancellation);
            SmallDownloads(transfer, caller, places, large).Run(plan.files);
        });
    else
        large = std::move(plan.files);
    if (!transfer.isOver)
        DoAll(transfer, large, [&](Caller& caller, const DownloadFile& job) {
            FetchLarge(transfer, caller, job, places);
        });
    if (!transfer.isOver && options.setsTimes)
        SetTimes(transfer, plan.directories);
}

} // namespace

TransferResult FileSystem::Download(const std::vector<TransferItem>& items,
                                    const TransferOptions& options)
{
    Transfer transfer{*node, options, options.resumes};
    RunDownload(transfer, *this, items);
    return Conclude(transfer, false);
}

TransferResult FileSystem::DownloadPart(const TreePart& part, const TransferOptions& options)
{
    Transfer transfer{*node, options};
    RunDownload(transfer, *this, part);
    return Conclude(transfer, false);
}

} // namespace Client
