#include "Client/FileSystem.h"

#include "Client/Watch.h"
#include "PrivateNode.h"
#include "Reasons.h"
#include "Sizes.h"
#include "Stamp.h"
#include "Tally.h"
#include "UaTimes.h"

#include <algorithm>
#include <deque>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace Client {

namespace {

constexpr std::size_t directoriesAtOnce = 16;
constexpr std::size_t pathsAtOnce = 500;
constexpr const char* findSize = "find the size";
constexpr const char* noReason = "the server gave no reason";
constexpr const char* describeNoContent = "its entries do not fit into one message";

Attempt MakeChange(const std::string& path, Step step)
{
    return {.path = path, .step = step, .isWriting = true};
}

/// A directory whose listing is on its way.
struct PendingListing
{
    std::string path; // relative to where the walk starts; empty there
    CallPointer list;
    CallPointer barrier;
};

/// Lists directory by directory, several at a time.
class Walk
{
public:
    Walk(Caller& caller, const std::string& root)
        : caller(caller)
        , root(root)
    {}

    Listing Run()
    {
        waiting.emplace_back();
        while (!waiting.empty() || !pending.empty()) {
            while (!waiting.empty() && pending.size() < directoriesAtOnce) {
                Ask(std::move(waiting.front()));
                waiting.pop_front();
            }
            const PendingListing first = std::move(pending.front());
            pending.pop_front();
            caller.AwaitEvent(first.barrier);
            Take(first);
        }
        return std::move(listing);
    }

private:
    void Ask(std::string path)
    {
        const std::string full = path.empty() ? root : Join(root, path);
        auto list = caller.List(full, false);
        pending.push_back({std::move(path), std::move(list), caller.Exists(AsDirectory(full))});
    }

    void Take(const PendingListing& done)
    {
        CheckAnswer(*done.list);
        if (done.list->outcome.hasNoResult) {
            Fail(done.path, "it cannot be read");
            return;
        }
        if (done.list->outcome.hasNoContent) {
            Fail(done.path, describeNoContent);
            return;
        }
        if (done.list->outcome.isLimitExceeded)
            Fail(done.path, "it has more entries than the server lists (61440)");
        for (auto& entry : done.list->outcome.entries) {
            entry.path = Join(done.path, entry.path);
            if (entry.isDirectory && IsSafeRelativePath(entry.path) &&
                seen.insert(entry.path).second)
                waiting.push_back(entry.path);
            listing.entries.push_back(std::move(entry));
        }
    }

    void Fail(const std::string& path, const std::string& cause)
    {
        listing.failures.push_back(
            MakeUnknownFailure(path.empty() ? root : Join(root, path), Step::List, cause));
    }

    Caller& caller;
    const std::string& root;
    std::deque<std::string> waiting;
    std::deque<PendingListing> pending;
    std::unordered_set<std::string> seen;
    Listing listing;
};

/// `ask` returns the cause, the given one where the server does not tell.
template <typename Ask>
Listing ListDirectory(Caller& caller, const std::string& directory, bool isRecursive,
                      const Ask& ask)
{
    const auto list = caller.List(directory, isRecursive);
    const auto barrier = caller.Exists(AsDirectory(directory));
    caller.AwaitEvent(barrier);
    CheckAnswer(*list);
    if (!barrier->outcome.exists)
        FailRemotely(directory, Step::List, ask("No such directory"));
    const bool isWhole =
        !list->outcome.hasNoResult && !list->outcome.isLimitExceeded && !list->outcome.hasNoContent;
    if (isRecursive && !isWhole) {
        Listing walked = Walk(caller, directory).Run();
        if (walked.entries.empty() && !walked.failures.empty())
            FailRemotely(directory, Step::List, walked.failures.front().cause);
        return walked;
    }
    if (list->outcome.hasNoContent)
        FailRemotely(directory, Step::List, describeNoContent);
    if (list->outcome.hasNoResult)
        FailRemotely(directory, Step::List, ask("it cannot be read"));
    Listing listing{std::move(list->outcome.entries), {}};
    if (list->outcome.isLimitExceeded)
        listing.failures.push_back(MakeUnknownFailure(
            directory, Step::List, "it has more entries than the server lists (61440)"));
    return listing;
}

/// Which of the paths are there.
std::vector<bool> AskExistence(Caller& caller, std::span<const std::string> paths)
{
    std::vector<CallPointer> calls;
    calls.reserve(paths.size());
    for (const auto& path : paths)
        calls.push_back(caller.Exists(path));
    std::vector<bool> existing;
    for (const auto& call : calls) {
        caller.AwaitEvent(call);
        existing.push_back(call->outcome.exists);
    }
    return existing;
}

} // namespace

bool IsSafeRelativePath(const std::string& path)
{
    if (path.empty() || path.find('\0') != std::string::npos)
        return false;
    std::string_view rest = path;
    for (;;) {
        const auto end = rest.find('/');
        const auto name = rest.substr(0, end);
        if (name.empty() || name == "." || name == "..")
            return false;
        if (end == std::string_view::npos)
            return true;
        rest.remove_prefix(end + 1);
    }
}

void CheckPath(const std::string& path)
{
    if (path.empty())
        throw InvalidArgumentException("the path is empty");
    if (path.find('\0') != std::string::npos)
        throw InvalidArgumentException("the path contains a NUL, which no name can have");
}

Failure MakeRemoteFailure(std::string path, Step step, std::uint32_t result)
{
    Failure failure;
    failure.path = std::move(path);
    failure.step = step;
    failure.kind = FailureKind::RemoteResult;
    failure.cause = DescribeResult(result);
    failure.remoteResult = result;
    return failure;
}

Failure MakeUnknownFailure(std::string path, Step step, std::string cause)
{
    Failure failure;
    failure.path = std::move(path);
    failure.step = step;
    failure.kind = FailureKind::RemoteUnknown;
    failure.cause = std::move(cause);
    return failure;
}

Failure MakeReasonFailure(std::string path, Step step, std::string cause)
{
    Failure failure = MakeUnknownFailure(std::move(path), step, std::move(cause));
    failure.kind = FailureKind::RemoteReason;
    return failure;
}

FileSystem::FileSystem(Connection& connection)
    : node(std::make_unique<PrivateNode>(*connection.engine))
{}

FileSystem::~FileSystem() = default;

Kind FileSystem::GetKind(const std::string& path, const Cancellation* cancellation)
{
    CheckPath(path);
    auto caller = node->MakeCaller(cancellation);
    return caller.Repeat([&] {
        const auto there = caller.Exists(path);
        const auto directory = caller.Exists(AsDirectory(path));
        caller.AwaitEvent(there);
        caller.AwaitEvent(directory);
        if (directory->outcome.exists)
            return Kind::Directory;
        return there->outcome.exists ? Kind::File : Kind::Missing;
    });
}

bool FileSystem::Exists(const std::string& path, const Cancellation* cancellation)
{
    CheckPath(path);
    auto caller = node->MakeCaller(cancellation);
    return caller.Repeat([&] {
        const auto call = caller.Exists(path);
        caller.AwaitEvent(call);
        return call->outcome.exists;
    });
}

Listing FileSystem::List(const std::string& directory, bool isRecursive,
                         const Cancellation* cancellation)
{
    CheckPath(directory);
    auto caller = node->MakeCaller(cancellation);
    const auto ask = [&](const char* otherwise) {
        return AskCause(*node, cancellation, {.path = directory, .step = Step::List}, otherwise);
    };
    return caller.Repeat([&] { return ListDirectory(caller, directory, isRecursive, ask); });
}

void FileSystem::CreateDirectory(const std::string& path, const Cancellation* cancellation)
{
    CheckPath(path);
    auto caller = node->MakeCaller(cancellation);
    const bool isThere = caller.Repeat([&] {
        const auto call = caller.CreateDirectory(path);
        const auto check = caller.Exists(AsDirectory(path));
        caller.AwaitEvent(check);
        CheckAnswer(*call);
        return check->outcome.exists;
    });
    if (!isThere)
        FailRemotely(
            path, Step::CreateDirectory,
            AskCause(*node, cancellation, MakeChange(path, Step::CreateDirectory), noReason));
}

std::vector<Failure> FileSystem::Delete(const std::vector<std::string>& paths, bool mayBeMissing,
                                        const Cancellation* cancellation,
                                        std::vector<std::string>* missing)
{
    std::for_each(paths.begin(), paths.end(), CheckPath);
    auto caller = node->MakeCaller(cancellation);
    std::vector<Failure> failures;
    for (std::size_t start = 0; start < paths.size(); start += pathsAtOnce) {
        const auto part =
            std::span(paths).subspan(start, std::min(pathsAtOnce, paths.size() - start));
        const auto before = caller.Repeat([&] { return AskExistence(caller, part); });
        const auto after = caller.Repeat([&] {
            caller.AwaitEvent(caller.Delete({part.begin(), part.end()}));
            return AskExistence(caller, part);
        });
        for (std::size_t i = 0; i < part.size(); ++i) {
            if (after[i])
                failures.push_back(MakeUnknownFailure(part[i], Step::Delete, noReason));
            else if (!before[i] && !mayBeMissing)
                failures.push_back(
                    MakeReasonFailure(part[i], Step::Delete, "No such file or directory"));
            else if (!before[i] && missing != nullptr)
                missing->push_back(part[i]);
        }
    }
    TransferOptions options;
    options.cancellation = cancellation;
    Reasons(*node, options).Explain(failures, true);
    return failures;
}

std::optional<FileTime> FileSystem::GetTime(const std::string& path,
                                            const Cancellation* cancellation)
{
    CheckPath(path);
    auto caller = node->MakeCaller(cancellation);
    return caller.Repeat([&] {
        const auto call = caller.GetDateTime(path);
        caller.AwaitAnswer(call);
        return GetFileTime(*call);
    });
}

void FileSystem::SetTime(const std::string& path, FileTime time, const Cancellation* cancellation)
{
    CheckPath(path);
    auto caller = node->MakeCaller(cancellation);
    bool wasSet = false;
    const bool isSet = caller.Repeat([&] {
        const auto first = caller.GetDateTime(path);
        const auto set = caller.SetDateTime(path, ToUaTime(time));
        const auto check = caller.GetDateTime(path);
        const auto there = caller.Exists(path);
        caller.AwaitAnswer(first);
        caller.AwaitAnswer(set);
        caller.AwaitAnswer(check);
        caller.AwaitEvent(there);
        wasSet = HasTime(*first, time);
        return there->outcome.exists && HasTime(*check, time);
    });
    if (isSet && !wasSet)
        return;
    const auto change = MakeChange(path, Step::SetTime);
    if (!isSet)
        FailRemotely(path, Step::SetTime,
                     AskCause(*node, cancellation, change, "the server did not set it"));
    // It was so before: the time does not say that it could be set.
    if (const auto cause = AskCauses(*node, cancellation, std::span(&change, 1)).front())
        FailRemotely(path, Step::SetTime, cause->text);
}

void FileSystem::SetPermissions(const std::string& path, Permissions permissions,
                                const Cancellation* cancellation)
{
    const Kind kind = GetKind(path, cancellation);
    if (kind != Kind::File)
        FailRemotely(path, Step::SetPermissions,
                     kind == Kind::Missing ? "No such file or directory" : "is a directory");
    auto caller = node->MakeCaller(cancellation);
    const auto flags = MakePermissions(permissions);
    const std::uint32_t result = caller.Repeat([&] {
        const auto open = caller.Open(path, openForAppending);
        OpenedFiles opened(caller);
        opened.Add(open);
        caller.AwaitAnswer(open);
        const auto close = caller.WriteClose(open->outcome.opened->GetNumber(), 0, flags);
        const auto barrier = caller.Barrier();
        caller.AwaitEvent(barrier);
        caller.AwaitAnswer(close);
        opened.Release();
        if (!open->outcome.opened->IsAcknowledged())
            FailRemotely(path, Step::SetPermissions, "the server did not confirm it");
        return open->outcome.opened->GetFailure();
    });
    if (result != 0)
        FailRemotely(path, Step::SetPermissions,
                     AskCause(*node, cancellation, MakeChange(path, Step::SetPermissions),
                              DescribeResult(result)));
}

std::uint64_t FileSystem::GetSize(const std::string& path, const Cancellation* cancellation)
{
    if (GetKind(path, cancellation) == Kind::Directory)
        FailRemotely(path, findSize, "is a directory");
    auto caller = node->MakeCaller(cancellation);
    const auto size = FindSizes(caller, std::span(&path, 1)).front();
    if (!size)
        FailRemotely(path, findSize, "it cannot be opened");
    return *size;
}

std::vector<std::optional<std::uint64_t>>
FileSystem::GetSizes(const std::vector<std::string>& paths, const Cancellation* cancellation)
{
    std::for_each(paths.begin(), paths.end(), CheckPath);
    auto caller = node->MakeCaller(cancellation);
    return FindSizes(caller, paths);
}

} // namespace Client
