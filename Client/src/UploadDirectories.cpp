#include "UploadDirectories.h"

#include "RemoteTimes.h"
#include "UaTimes.h"

#include <algorithm>
#include <span>

namespace Client {

namespace {

constexpr std::size_t directoriesInOnePart = 200;

/// Returns for each directory if it is there afterwards.
std::vector<bool> MakeSome(Caller& caller, std::span<const UploadDirectory> part)
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

/// Nothing that should go into it is tried.
void FailToMake(Transfer& transfer, const std::string& directory)
{
    transfer.reasons.AddObstacle(directory, "No such directory: " + directory);
    transfer.tally.AddFailure(
        MakeUnknownFailure(directory, Step::CreateDirectory, "it does not exist afterwards"));
}

} // namespace

void MakeDirectories(Transfer& transfer, Caller& caller, std::vector<UploadDirectory>& directories)
{
    for (std::size_t start = 0; start < directories.size(); start += directoriesInOnePart) {
        const auto part =
            std::span(directories)
                .subspan(start, std::min(directoriesInOnePart, directories.size() - start));
        const auto made = caller.Repeat([&] { return MakeSome(caller, part); });
        for (std::size_t i = 0; i < part.size(); ++i) {
            part[i].isThere = made[i];
            if (made[i])
                transfer.tally.AddDirectory();
            else
                FailToMake(transfer, part[i].remote);
        }
    }
    std::erase_if(directories, [](const UploadDirectory& directory) { return !directory.isThere; });
}

void SetDirectoryTimes(Transfer& transfer, Caller& caller,
                       std::vector<UploadDirectory>& directories)
{
    std::reverse(directories.begin(), directories.end());
    for (std::size_t start = 0; start < directories.size(); start += directoriesInOnePart) {
        const auto part =
            std::span(directories)
                .subspan(start, std::min(directoriesInOnePart, directories.size() - start));
        const auto times = caller.Repeat([&] {
            for (const auto& directory : part)
                caller.SetDateTime(directory.remote, ToUaTime(directory.time));
            return AskTimes(caller, part);
        });
        for (std::size_t i = 0; i < part.size(); ++i)
            if (times[i] != part[i].time && (times[i] || !IsUntold(part[i].time)))
                transfer.tally.AddFailure(MakeUnknownFailure(part[i].remote, Step::SetTime,
                                                             "it does not read back as set"));
    }
}

} // namespace Client
