#include "Reasons.h"

#include "LocalFiles.h"
#include "PrivateNode.h"

#include <algorithm>
#include <exception>
#include <open62541/types.h>
#include <set>
#include <utility>

namespace Client {

namespace {

constexpr std::size_t mostAttempts = 200; // that are asked for; more hardly have other causes
constexpr std::size_t mostDisks = 8;
/// With less the disk counts as full: what is left is less than a block of some file systems.
constexpr std::uint64_t leastSpace = std::uint64_t{64} << 10U;

constexpr const char* foldersAreFixed =
    "Permission denied: the folders are those of the host's configuration";

/// Returns the directory of a remote path.
std::string GetParent(const std::string& path)
{
    return GetDirectory(Normalize(path));
}

bool IsDenied(const EntryState& state) noexcept
{
    return state.status == UA_STATUSCODE_BADUSERACCESSDENIED;
}

std::optional<Cause> FindReadingCause(const Attempt& attempt, const Circumstances& now)
{
    if (IsDenied(now.entry))
        return Cause{"Permission denied"};
    if (now.entry.kind == Kind::Missing)
        return Cause{"No such file or directory"};
    if (attempt.step == Step::List && now.entry.kind != Kind::Directory)
        return Cause{"Not a directory"};
    if (attempt.step != Step::List && now.entry.kind == Kind::Directory)
        return Cause{"is a directory (use -r)"};
    if (now.entry.isSpecial)
        return Cause{"not a regular file"};
    if (now.knowsAccess && !now.entry.isReadable)
        return Cause{"Permission denied"};
    return std::nullopt;
}

/// The cause where the path is one of the folders that the server offers.
std::optional<Cause> FindFolderCause(const Attempt& attempt)
{
    if (attempt.step == Step::Delete || attempt.step == Step::Rename)
        return Cause{foldersAreFixed};
    return std::nullopt;
}

/// The cause that lies in the directory, if it has to be changed for the attempt.
std::optional<Cause> FindDirectoryCause(const Attempt& attempt, const Circumstances& now)
{
    const std::string directory = GetParent(attempt.path);
    // The parent of one of the server's folders is not there for clients.
    if (now.knowsAccess && (now.parent.isInReadOnlyFolder || now.entry.isInReadOnlyFolder))
        return Cause{"Read-only: clients may only read this folder of the server",
                     now.parent.isInReadOnlyFolder};
    if (now.parent.kind == Kind::Missing && now.entry.kind != Kind::Missing)
        return FindFolderCause(attempt);
    if (IsDenied(now.parent))
        return Cause{"Permission denied", true};
    if (now.parent.kind == Kind::Missing && directory == "/")
        return Cause{foldersAreFixed, true};
    if (now.parent.kind == Kind::Missing)
        return Cause{"No such directory: " + directory, true};
    if (now.parent.kind != Kind::Directory)
        return Cause{"Not a directory: " + directory, true};
    if (!now.knowsAccess)
        return std::nullopt;
    const bool changesDirectory = !attempt.isInPlace || now.entry.kind == Kind::Missing ||
                                  attempt.step == Step::Delete || attempt.step == Step::Rename;
    if (changesDirectory && !now.parent.isWritable)
        return Cause{"Permission denied: the server may not write to " + directory, true};
    return std::nullopt;
}

std::optional<Cause> FindWritingCause(const Attempt& attempt, const Circumstances& now)
{
    if (auto cause = FindDirectoryCause(attempt, now))
        return cause;
    const bool isMaking = attempt.step == Step::CreateDirectory;
    const bool isSetting = attempt.step == Step::SetTime || attempt.step == Step::SetPermissions;
    if (isMaking && now.entry.kind == Kind::File)
        return Cause{"File exists"};
    if (isSetting && now.entry.kind == Kind::Missing)
        return Cause{"No such file or directory"};
    const bool isFile = !isMaking && !isSetting && attempt.step != Step::Delete;
    if (isFile && now.entry.kind == Kind::Directory)
        return Cause{"is a directory"};
    const bool isExisting = now.entry.kind != Kind::Missing && (attempt.isInPlace || isSetting);
    if (now.knowsAccess && isExisting && !isMaking && !now.entry.isWritable)
        return Cause{"Permission denied"};
    if (!isSetting && now.space && now.space->free < std::max(attempt.needed, leastSpace))
        return Cause{"No space left on the server's disk", true, now.space};
    return std::nullopt;
}

/// The states by the fifteen methods: kinds alone.
std::vector<EntryState> AskKinds(Caller& caller, std::span<const std::string> paths)
{
    std::vector<CallPointer> calls;
    for (const auto& path : paths) {
        calls.push_back(caller.Exists(path));
        calls.push_back(caller.Exists(AsDirectory(path)));
    }
    std::vector<EntryState> states(paths.size());
    for (std::size_t i = 0; i < calls.size(); ++i) {
        caller.AwaitEvent(calls[i]);
        if (calls[i]->outcome.exists)
            states[i / 2].kind = i % 2 == 0 ? Kind::File : Kind::Directory;
    }
    return states;
}

/// Asks about the space of a few directories.
class Spaces
{
public:
    Spaces(const PrivateNode& node, const Cancellation* cancellation)
        : caller(node.MakeObjectCaller(cancellation))
    {}

    std::optional<Space> Ask(const std::string& directory)
    {
        const auto known = spaces.find(directory);
        if (known != spaces.end())
            return known->second;
        if (spaces.size() == mostDisks)
            return std::nullopt;
        std::optional<Space> space;
        try {
            space = caller.GetSpace(directory);
        } catch (const OperationFailedException&) { // NOLINT(bugprone-empty-catch): not known
        } catch (const CallRefusedException&) {     // NOLINT(bugprone-empty-catch)
        }
        return spaces.emplace(directory, space).first->second;
    }

private:
    ObjectCaller caller;
    std::map<std::string, std::optional<Space>> spaces;
};

} // namespace

std::optional<Cause> FindCause(const Attempt& attempt, const Circumstances& circumstances)
{
    return attempt.isWriting ? FindWritingCause(attempt, circumstances)
                             : FindReadingCause(attempt, circumstances);
}

std::vector<std::optional<Cause>> AskCauses(const PrivateNode& node,
                                            const Cancellation* cancellation,
                                            std::span<const Attempt> attempts)
{
    std::vector<std::string> paths;
    for (const auto& attempt : attempts) {
        paths.push_back(attempt.path);
        paths.push_back(GetParent(attempt.path));
    }
    const bool hasObjects = node.OffersObjects();
    std::vector<EntryState> states;
    std::optional<Spaces> spaces;
    if (hasObjects) {
        states = node.MakeObjectCaller(cancellation).GetStates(paths);
        spaces.emplace(node, cancellation);
    } else {
        Caller caller = node.MakeCaller(cancellation);
        states = caller.Repeat([&] { return AskKinds(caller, paths); });
    }
    std::vector<std::optional<Cause>> causes;
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        Circumstances now{states[2 * i], states[2 * i + 1], hasObjects, std::nullopt};
        auto cause = FindCause(attempts[i], now);
        if (!cause && attempts[i].isWriting && spaces) {
            now.space = spaces->Ask(paths[2 * i + 1]);
            cause = FindCause(attempts[i], now);
        }
        causes.push_back(std::move(cause));
    }
    return causes;
}

std::string AskCause(const PrivateNode& node, const Cancellation* cancellation,
                     const Attempt& attempt, const std::string& otherwise)
{
    const auto cause = AskCauses(node, cancellation, std::span(&attempt, 1)).front();
    return cause ? cause->text : otherwise;
}

bool Reasons::IsTimeToAsk(const std::string& directory)
{
    const Support::Lock lock(mutex);
    Place& place = places[directory];
    const std::uint64_t number = ++place.failures;
    const bool isPowerOfTwo = (number & (number - 1)) == 0;
    return !place.obstacle && isPowerOfTwo;
}

void Reasons::Look(const Attempt& attempt) noexcept
{
    try {
        const std::string directory = GetParent(attempt.path);
        if (!IsTimeToAsk(directory))
            return;
        const auto cause = AskCauses(node, options.cancellation, std::span(&attempt, 1)).front();
        const Support::Lock lock(mutex);
        if (cause && cause->fullDisk)
            fullDisk = {cause->fullDisk->total, cause->text};
        if (cause && cause->isOfDirectory)
            places[directory].obstacle = cause->text;
    } catch (const std::exception&) {
        // Lost or cancelled: the transfer notices it by itself.
    }
}

void Reasons::AddObstacle(const std::string& directory, const std::string& cause)
{
    const Support::Lock lock(mutex);
    places[Normalize(directory)].obstacle = cause;
}

std::optional<std::string> Reasons::FindObstacle(const std::string& path)
{
    std::string directory;
    {
        const Support::Lock lock(mutex);
        if (places.empty())
            return std::nullopt;
        directory = GetParent(path);
        const Place& place = places[directory];
        if (place.obstacle || place.hasRoom || !fullDisk)
            return place.obstacle;
    }
    const auto space = Spaces(node, options.cancellation).Ask(directory);
    const Support::Lock lock(mutex);
    Place& place = places[directory];
    place.hasRoom = !space || space->total != fullDisk->total;
    if (!place.hasRoom)
        place.obstacle = fullDisk->cause;
    return place.obstacle;
}

void Reasons::ExplainSome(std::vector<Failure*>& failures, bool isWriting) const
{
    std::vector<Attempt> attempts;
    attempts.reserve(failures.size());
    for (const auto* const failure : failures)
        attempts.push_back({failure->path, failure->step, isWriting, options.isInPlace, 0});
    const auto causes = AskCauses(node, options.cancellation, attempts);
    for (std::size_t i = 0; i < failures.size(); ++i)
        if (causes[i])
            failures[i]->cause = causes[i]->text;
}

void Reasons::Explain(std::vector<Failure>& failures, bool isWriting) noexcept
{
    try {
        std::vector<Failure*> unexplained;
        for (auto& failure : failures) {
            const bool isUnknown = failure.kind == FailureKind::RemoteUnknown ||
                                   failure.kind == FailureKind::RemoteResult;
            if (!isUnknown || failure.step == Step::Resume || failure.step == Step::Verify)
                continue;
            if (const auto obstacle = isWriting ? FindObstacle(failure.path) : std::nullopt)
                failure.cause = *obstacle;
            else if (unexplained.size() < mostAttempts)
                unexplained.push_back(&failure);
        }
        if (!unexplained.empty())
            ExplainSome(unexplained, isWriting);
    } catch (const std::exception&) {
        // Lost, cancelled or refused: the failures keep the words that they have.
    }
}

} // namespace Client
