#include "UploadWhole.h"

#include "RemoteTimes.h"
#include "Sizes.h"

#include <algorithm>
#include <span>
#include <utility>

namespace Client {

namespace {

constexpr std::size_t filesAskedAtOnce = 200;

/// Moves those out that have the time of their source: it is set last.
std::vector<UploadFile> TakeStamped(Caller& caller, std::vector<UploadFile>& files)
{
    std::vector<UploadFile> stamped;
    std::vector<UploadFile> left;
    for (std::size_t start = 0; start < files.size(); start += filesAskedAtOnce) {
        const auto part =
            std::span(files).subspan(start, std::min(filesAskedAtOnce, files.size() - start));
        const auto times = caller.Repeat([&] { return AskTimes(caller, part); });
        for (std::size_t i = 0; i < part.size(); ++i)
            (times[i] == part[i].time ? stamped : left).push_back(std::move(part[i]));
    }
    files = std::move(left);
    return stamped;
}

void SkipWhole(Transfer& transfer, Caller& caller, std::vector<UploadFile>& files)
{
    auto candidates = TakeStamped(caller, files);
    std::vector<std::string> paths;
    paths.reserve(candidates.size());
    for (const auto& file : candidates)
        paths.push_back(file.remote);
    const auto sizes = FindSizes(caller, paths);
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        UploadFile& file = candidates[i];
        file.isWhole = sizes[i] == file.size;
        if (file.isWhole && !transfer.options.verifies) {
            transfer.tally.Resume(file.size);
            transfer.tally.FinishFile(file.remote, file.size, true);
        } else {
            files.push_back(std::move(file));
        }
    }
}

} // namespace

void SkipWhole(Transfer& transfer, Caller& caller, UploadPlan& plan)
{
    SkipWhole(transfer, caller, plan.small);
    SkipWhole(transfer, caller, plan.large);
}

} // namespace Client
