#include "Tally.h"

#include <cerrno>
#include <system_error>
#include <utility>

namespace Client {

namespace {

std::string Describe(const std::string& path, Side side, const std::string& verb,
                     const std::string& cause)
{
    const auto* const name = side == Side::Local ? "local" : "remote";
    return path + " (" + name + "): cannot " + verb + ": " + cause;
}

} // namespace

void FailRemotely(const std::string& path, const std::string& verb, const std::string& cause)
{
    throw OperationFailedException(Describe(path, Side::Remote, verb, cause));
}

void FailRemotely(const std::string& path, Step step, const std::string& cause)
{
    FailRemotely(path, GetVerb(step), cause);
}

std::string Describe(const Failure& failure)
{
    return Describe(failure.path, failure.side, GetVerb(failure.step), failure.cause);
}

void FailLocally(const std::string& path, Step step)
{
    FailLocally(path, step, errno);
}

void FailLocally(const std::string& path, Step step, int error)
{
    Failure failure;
    failure.side = Side::Local;
    failure.path = path;
    failure.step = step;
    failure.kind = FailureKind::LocalSystem;
    failure.cause = std::generic_category().message(error);
    failure.systemError = error;
    throw FileFailed(std::move(failure));
}

const char* GetName(Step step) noexcept
{
    switch (step) {
    case Step::List:
        return "listing";
    case Step::CreateDirectory:
        return "creating the directory";
    case Step::Open:
        return "opening";
    case Step::Read:
        return "reading";
    case Step::Write:
        return "writing";
    case Step::Close:
        return "closing";
    case Step::SetTime:
        return "setting the time of";
    case Step::SetPermissions:
        return "setting the permissions of";
    case Step::Rename:
        return "renaming";
    case Step::Delete:
        return "deleting";
    case Step::Resume:
        return "resuming";
    case Step::Verify:
        return "verifying";
    }
    return "";
}

const char* GetVerb(Step step) noexcept
{
    switch (step) {
    case Step::List:
        return "list";
    case Step::CreateDirectory:
        return "create directory";
    case Step::Open:
        return "open";
    case Step::Read:
        return "read";
    case Step::Write:
        return "write";
    case Step::Close:
        return "close";
    case Step::SetTime:
        return "set the time";
    case Step::SetPermissions:
        return "set the permissions";
    case Step::Rename:
        return "rename";
    case Step::Delete:
        return "delete";
    case Step::Resume:
        return "resume";
    case Step::Verify:
        return "verify";
    }
    return "";
}

void Tally::Find(std::uint64_t files, std::optional<std::uint64_t> size)
{
    const Support::Lock lock(mutex);
    allFiles += files;
    allBytes += size.value_or(0);
    knowsSizes = knowsSizes && size;
}

void Tally::EndFinding()
{
    const Support::Lock lock(mutex);
    isAllFound = true;
}

void Tally::Show(const std::string& remote, std::uint64_t done, std::optional<std::uint64_t> size,
                 bool isFinished, bool isVerifying)
{
    if (!options.progress)
        return;
    Progress progress;
    progress.path = remote;
    progress.fileBytes = done;
    progress.fileSize = size;
    progress.isFileFinished = isFinished;
    progress.isVerifying = isVerifying;
    progress.files = finished;
    progress.allFiles = allFiles;
    progress.bytes = bytes;
    if (knowsSizes && isAllFound)
        progress.allBytes = allBytes;
    options.progress(progress);
}

void Tally::Move(const std::string& remote, std::uint64_t done, std::optional<std::uint64_t> size,
                 std::uint64_t moved)
{
    const Support::Lock lock(mutex);
    bytes += moved;
    result.bytes += moved;
    Show(remote, done, size, false);
}

void Tally::Verify(const std::string& remote, std::uint64_t done, std::optional<std::uint64_t> size)
{
    const Support::Lock lock(mutex);
    Show(remote, done, size, false, true);
}

void Tally::Resume(std::uint64_t resumed)
{
    const Support::Lock lock(mutex);
    bytes += resumed;
    result.resumedBytes += resumed;
}

void Tally::FinishFile(const std::string& remote, std::uint64_t size, bool wasWhole)
{
    const Support::Lock lock(mutex);
    ++finished;
    ++result.files;
    result.skippedFiles += wasWhole ? 1 : 0;
    Show(remote, size, size, true);
}

void Tally::FailFile(const std::string& remote, Failure failure, const std::string& unfinished)
{
    const Support::Lock lock(mutex);
    ++finished;
    result.failures.push_back(std::move(failure));
    if (!unfinished.empty())
        result.unfinished.push_back(unfinished);
    Show(remote, 0, std::nullopt, true);
}

void Tally::AddDirectory()
{
    const Support::Lock lock(mutex);
    ++result.directories;
}

void Tally::AddFailure(Failure failure)
{
    const Support::Lock lock(mutex);
    result.failures.push_back(std::move(failure));
}

void Tally::AddNote(Failure note)
{
    const Support::Lock lock(mutex);
    result.notes.push_back(std::move(note));
}

void Tally::AddUnfinished(const std::string& target)
{
    const Support::Lock lock(mutex);
    result.unfinished.push_back(target);
}

void Tally::SetCancelled()
{
    const Support::Lock lock(mutex);
    result.isCancelled = true;
}

void Tally::SetConnectionLost()
{
    const Support::Lock lock(mutex);
    result.isConnectionLost = true;
}

TransferResult Tally::Take()
{
    const Support::Lock lock(mutex);
    result.duration = std::chrono::steady_clock::now() - start;
    return std::move(result);
}

} // namespace Client
