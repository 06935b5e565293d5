#include "UploadDirectories.h"

#include "LocalFiles.h"
#include "ObjectCaller.h"
#include "RemoteTimes.h"
#include "StatusWords.h"
#include "UaTimes.h"

#include <algorithm>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace Client {

namespace {

constexpr std::size_t directoriesInOnePart = 200;
constexpr std::uint32_t listableByOthers = 0004;
/// Those of group and others who may enter, in a mode; shifted by 2, those who may list.
constexpr std::uint32_t enterable = 0011;

/// Returns for each directory if it is there afterwards.
std::vector<bool> MakeSome(Caller& caller, std::span<UploadDirectory* const> part)
{
    std::vector<CallPointer> checks;
    for (const auto* const directory : part) {
        caller.CreateDirectory(directory->remote);
        checks.push_back(caller.Exists(AsDirectory(directory->remote)));
    }
    std::vector<bool> made;
    for (const auto& check : checks) {
        caller.AwaitEvent(check);
        made.push_back(check->outcome.exists);
    }
    return made;
}

void NoteOpen(Transfer& transfer, const std::string& directory)
{
    Failure note = MakeUnknownFailure(directory, Step::SetPermissions,
                                      "others cannot list it here, but may on the server");
    note.kind = FailureKind::Skipped;
    transfer.tally.AddNote(std::move(note));
}

/// Those that are there keep their modes.
void KeepModes(Transfer& transfer, UploadPlan& plan)
{
    std::vector<UploadDirectory*> asked;
    std::vector<std::string> paths;
    for (auto& directory : plan.directories)
        if (directory.mode) {
            asked.push_back(&directory);
            paths.push_back(directory.remote);
        }
    if (asked.empty())
        return;
    const auto states =
        transfer.node.MakeObjectCaller(transfer.options.cancellation).GetStates(paths);
    for (std::size_t i = 0; i < asked.size(); ++i) {
        if (states[i].kind == Kind::Missing)
            continue;
        const bool isOpener = (states[i].permissions & ~*asked[i]->mode & listableByOthers) != 0;
        if (isOpener && !plan.isPart)
            NoteOpen(transfer, asked[i]->remote);
        asked[i]->mode.reset();
    }
}

/// Makes directories in rounds: one that has to be closed before anything is in it comes in an
/// earlier round than what is in it.
class DirectoryMaker
{
public:
    DirectoryMaker(Transfer& transfer, Caller& caller, std::vector<UploadDirectory>& directories)
        : transfer(transfer)
        , caller(caller)
    {
        for (auto& directory : directories)
            Add(directory);
    }

    void Run()
    {
        for (const auto& round : rounds) {
            for (std::size_t start = 0; start < round.size(); start += directoriesInOnePart)
                Make(std::span(round).subspan(
                    start, std::min(directoriesInOnePart, round.size() - start)));
            Close(round);
        }
    }

private:
    struct Place
    {
        std::size_t round = 0;         // of what is in it
        std::uint32_t who = enterable; // may enter it, as far as is known
    };

    /// REQUIRES: a directory comes before those in it. Who cannot come as far as a directory needs
    /// no closing of it: so there are few rounds.
    void Add(UploadDirectory& directory)
    {
        const auto path = Normalize(directory.remote);
        const auto found = places.find(GetDirectory(path));
        Place place = found == places.end() ? Place() : found->second;
        rounds.resize(std::max(rounds.size(), place.round + 1));
        rounds[place.round].push_back(&directory);
        if (const auto mode = directory.mode) {
            if ((place.who & ~(*mode & (*mode >> 2U))) != 0)
                ++place.round;
            place.who &= *mode;
        }
        places.emplace(path, place);
    }

    void Make(std::span<UploadDirectory* const> part)
    {
        std::vector<UploadDirectory*> wanted;
        for (auto* const directory : part) {
            if (failed.contains(GetDirectory(Normalize(directory->remote))))
                Fail(*directory, "the directory above it could not be made");
            else
                wanted.push_back(directory);
        }
        const auto made = caller.Repeat([&] { return MakeSome(caller, wanted); });
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            wanted[i]->isThere = made[i];
            if (!made[i])
                Fail(*wanted[i], "it does not exist afterwards");
        }
    }

    void Close(const std::vector<UploadDirectory*>& round)
    {
        std::vector<UploadDirectory*> closed;
        std::vector<std::string> paths;
        std::vector<std::uint32_t> modes;
        for (auto* const directory : round)
            if (directory->isThere && directory->mode) {
                closed.push_back(directory);
                paths.push_back(directory->remote);
                modes.push_back(*directory->mode);
            }
        if (closed.empty())
            return;
        const auto results = transfer.node.MakeObjectCaller(transfer.options.cancellation)
                                 .SetPermissions(paths, modes);
        for (std::size_t i = 0; i < closed.size(); ++i)
            if (!results[i].IsGood())
                TakeUnclosed(*closed[i], results[i]);
    }

    /// Nothing goes into it, unless the file objects do not see it, as below a link into another
    /// folder.
    void TakeUnclosed(UploadDirectory& directory, const Result& result)
    {
        if (result.status == UA_STATUSCODE_BADNOTFOUND) {
            if ((*directory.mode & listableByOthers) == 0)
                NoteOpen(transfer, directory.remote);
            directory.mode.reset();
            return;
        }
        directory.isThere = false;
        failed.insert(Normalize(directory.remote));
        transfer.reasons.AddObstacle(directory.remote,
                                     "the permissions of its directory could not be set");
        transfer.tally.AddFailure(
            MakeReasonFailure(directory.remote, Step::SetPermissions, DescribeResult(result)));
    }

    /// Nothing that should go into it is tried.
    void Fail(UploadDirectory& directory, const char* cause)
    {
        failed.insert(Normalize(directory.remote));
        transfer.reasons.AddObstacle(directory.remote, "No such directory: " + directory.remote);
        transfer.tally.AddFailure(
            MakeUnknownFailure(directory.remote, Step::CreateDirectory, cause));
    }

    Transfer& transfer;
    Caller& caller;
    std::vector<std::vector<UploadDirectory*>> rounds;
    std::unordered_map<std::string, Place> places; // normalized
    std::unordered_set<std::string> failed;        // normalized
};

} // namespace

void MakeDirectories(Transfer& transfer, Caller& caller, UploadPlan& plan)
{
    KeepModes(transfer, plan);
    DirectoryMaker(transfer, caller, plan.directories).Run();
    std::erase_if(plan.directories, [](const auto& directory) { return !directory.isThere; });
    for (std::size_t i = 0; i < plan.directories.size(); ++i)
        transfer.tally.AddDirectory();
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
