#include "Commands/ServerCommands.h"

#include "Commands/LocalDigest.h"
#include "Output/Json.h"
#include "Output/Progress.h"
#include "Output/Text.h"
#include "Sync/SetAside.h"
#include "Sync/SyncScan.h"

#include "Client/FileObjects.h"
#include "Support/Descriptor.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <system_error>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace Cli {

namespace {

constexpr std::uint32_t permissionBits = 0777;

/// Returns true for the mode of a directory that not everybody may list and enter.
bool IsClosed(std::uint32_t mode)
{
    constexpr std::uint32_t open = 0055;
    return (mode & open) != open;
}

bool IsAtOrBelow(const std::string& path, const std::string& top)
{
    return path.starts_with(top) && (path.size() == top.size() || path[top.size()] == '/');
}

/// Returns the one of some paths that another one is, or is below; empty without.
std::string FindAbove(const std::vector<std::string>& paths, const std::string& path)
{
    const auto found = std::find_if(paths.begin(), paths.end(),
                                    [&](const auto& each) { return IsAtOrBelow(path, each); });
    return found == paths.end() ? std::string() : *found;
}

/// Returns false, with errno, for a file that cannot be read.
bool IsReadable(const std::string& path)
{
    const Support::Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    char first = 0;
    return file.IsOpen() && read(file.Get(), &first, 1) >= 0;
}

Client::ListEntry ToListEntry(const SyncEntry& entry)
{
    return {
        .path = entry.path, .time = entry.time, .isDirectory = entry.type == EntryType::Directory};
}

/// One run of `sync`.
class SyncRun
{
public:
    SyncRun(const SyncCommand& command, const Workplace& workplace)
        : command(command)
        , workplace(workplace)
        , objects(workplace.remote.GetConnection())
        , local(command.isUpload ? command.source : command.target)
        , remote(workplace.remote.Resolve(command.isUpload ? command.target : command.source))
        , exclusions(command.exclusions)
        , target(command.isUpload ? Client::Side::Remote : Client::Side::Local,
                 command.isUpload ? remote : local, workplace, GetFail())
        , output(none, workplace.kept)
    {}

    ExitStatus Run()
    {
        const auto begin = std::chrono::steady_clock::now();
        if (command.comparesContents && !objects.AreOffered())
            throw Client::OperationFailedException(
                "the server has no file objects: it cannot find checksums");
        auto source = command.isUpload ? ScanLocalSide() : ScanRemoteSide(true);
        auto before = command.isUpload ? ScanRemoteSide(false) : ScanLocalTarget();
        if (!objects.AreOffered())
            FindSizes(command.isUpload ? before : source, command.isUpload ? source : before);
        auto plan = MakeSyncPlan(source, before,
                                 {.deletes = command.deletes,
                                  .keepsNewer = command.keepsNewer,
                                  .comparesContents = command.comparesContents});
        CompareContents(plan);
        for (const auto& conflict : plan.conflicts)
            Fail(conflict);
        if (command.deletes && !source.isWhole)
            workplace.console.Report("nothing is deleted, since the source could not be listed "
                                     "whole");
        WarnOfLinks(plan);
        summary.isTrial = command.isTrial;
        summary.same = plan.same;
        summary.newer = plan.newer;
        if (command.isTrial)
            Show(plan);
        else
            Do(std::move(plan));
        summary.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        return Conclude();
    }

private:
    ScanReport MakeReport(bool isSource)
    {
        return {.note = [this](const std::string& text) { workplace.console.Report(text); },
                .fail = GetFail(),
                .notesAside = !isSource};
    }

    SyncTarget::Fail GetFail()
    {
        return [this](const std::string& text) {
            Fail(text);
        };
    }

    void Fail(const std::string& text)
    {
        workplace.console.Report(text);
        hasFailed = true;
    }

    SyncTree ScanLocalSide()
    {
        return ScanLocal(local, exclusions, command.followsLinks ? Links::Followed : Links::Skipped,
                         MakeReport(true), workplace.cancellation);
    }

    /// A target that is missing is made by the transfer.
    SyncTree ScanLocalTarget()
    {
        struct stat status = {};
        if (stat(local.c_str(), &status) != 0 && errno == ENOENT)
            return {};
        return ScanLocal(local, exclusions, Links::Shown, MakeReport(false),
                         workplace.cancellation);
    }

    SyncTree ScanRemoteSide(bool isSource)
    {
        auto& files = workplace.remote.GetFiles();
        const auto kind = files.GetKind(remote, &workplace.cancellation);
        if (kind == Client::Kind::File)
            throw Client::OperationFailedException(remote +
                                                   " (remote): cannot list: Not a directory");
        if (kind == Client::Kind::Directory)
            return ScanRemote(remote, exclusions, MakeReport(isSource), workplace);
        if (isSource)
            throw Client::OperationFailedException(
                remote + " (remote): cannot list: No such file or directory");
        if (!command.isTrial)
            MakeRemoteTop();
        return {};
    }

    /// Nobody who cannot list the source lists the target.
    void MakeRemoteTop()
    {
        workplace.remote.GetFiles().CreateDirectory(remote, &workplace.cancellation);
        struct stat status = {};
        if (!objects.AreOffered() || stat(local.c_str(), &status) != 0 || !IsClosed(status.st_mode))
            return;
        const auto results = objects.SetPermissions(
            {remote}, {(status.st_mode & permissionBits) | S_IRWXU}, &workplace.cancellation);
        if (results.front().IsGood())
            return;
        // A link may have led to another folder, where the file objects do not follow.
        if (objects.GetStates({remote}, &workplace.cancellation).front().kind ==
            Client::Kind::Missing) {
            workplace.console.Report(remote + " (remote): others may list it there, but not " +
                                     local + " here");
            return;
        }
        // The next run would find it open, and fill it.
        static_cast<void>(workplace.remote.GetFiles().Delete({remote}));
        throw Client::OperationFailedException(
            remote + " (remote): cannot set the permissions: " + results.front().reason);
    }

    /// Asks for the sizes of remote files whose times do not differ already.
    void FindSizes(SyncTree& remoteTree, const SyncTree& localTree)
    {
        std::unordered_map<std::string, const SyncEntry*> locals;
        for (const auto& entry : localTree.entries)
            locals.emplace(entry.path, &entry);
        std::vector<SyncEntry*> measured;
        std::vector<std::string> paths;
        for (auto& entry : remoteTree.entries) {
            const auto found = locals.find(entry.path);
            if (entry.type != EntryType::File || found == locals.end() ||
                found->second->time != entry.time)
                continue;
            measured.push_back(&entry);
            paths.push_back(JoinPath(remote, entry.path));
        }
        if (paths.empty())
            return;
        const auto sizes = workplace.remote.GetFiles().GetSizes(paths, &workplace.cancellation);
        for (std::size_t i = 0; i < measured.size(); ++i)
            measured[i]->size = sizes.at(i);
    }

    /// A listing without file objects shows links to directories as directories.
    void WarnOfLinks(const SyncPlan& plan)
    {
        const bool isBelow =
            std::any_of(plan.deleted.begin(), plan.deleted.end(),
                        [](const auto& path) { return path.find('/') != std::string::npos; });
        if (command.isUpload && !objects.AreOffered() && isBelow)
            workplace.console.Report("warning: a server without file objects cannot tell links "
                                     "from directories: --delete deletes where links lead, too");
    }

    void CompareContents(SyncPlan& plan)
    {
        for (const auto& entry : plan.compared) {
            if (HasSameContent(entry))
                ++plan.same;
            else
                plan.files.push_back(entry);
        }
    }

    bool HasSameContent(const SyncEntry& entry)
    {
        try {
            return DigestFile(local + "/" + entry.path, workplace.cancellation) ==
                   objects.GetChecksum(JoinPath(remote, entry.path), 0, 0, &workplace.cancellation);
        } catch (const Client::OperationFailedException&) {
            return false; // the transfer says why
        }
    }

    void Show(const SyncPlan& plan)
    {
        for (const auto& path : plan.replaced)
            ShowStep("delete", path);
        for (const auto& entry : plan.files) {
            ShowStep("send", entry.path);
            ++summary.sent;
            summary.bytes += entry.size.value_or(0);
        }
        for (const auto& entry : plan.permissions)
            ShowStep("chmod", entry.path);
        for (const auto& path : plan.deleted)
            ShowStep("delete", path);
        summary.deleted = plan.replaced.size() + plan.deleted.size();
        summary.directories = plan.made;
        output.Flush();
    }

    void ShowStep(const char* action, const std::string& path)
    {
        if (workplace.choice.isJson)
            output.Write(ToJson(action, path, GetReader()) + "\n");
        else
            output.Write(std::string(action) + "  " +
                         (output.IsTerminal() ? EscapeName(path) : path) + "\n");
    }

    void Do(SyncPlan plan)
    {
        CloseDirectories(plan); // before anything is set aside: an exception would leave that
        SetAside aside(target, GetFail());
        if (target.CanRename())
            aside.Add(plan.replaced);
        else
            DeleteBefore(plan);
        summary.directories = plan.made;
        TransferAll(plan, aside);
        aside.PutBack([this](const auto& path) { return HasFailed(path); });
        const auto replaced = aside.Delete();
        summary.deleted += replaced;
        EraseFailed(plan.files);
        EraseFailed(plan.directories);
        target.SetPermissions(plan.files);
        const auto deleted = DeleteLast(plan);
        summary.deleted += deleted;
        if (replaced + deleted > 0)
            Transfer(MakePart(plan.directories)); // what was deleted changed their times
        target.SetPermissions(plan.permissions);
        // Last, since nothing is deleted in a directory that cannot be written.
        target.SetPermissions(plan.directories);
    }

    /// Nothing goes into a directory that cannot be closed, and nothing gives way there.
    void CloseDirectories(SyncPlan& plan)
    {
        for (const auto& open : target.SetPermissions(plan.closed)) {
            AddFailed(open);
            const auto isBelow = [&](const SyncEntry& entry) {
                return IsAtOrBelow(entry.path, open);
            };
            std::erase_if(plan.files, isBelow);
            std::erase_if(plan.directories, isBelow);
            std::erase_if(plan.permissions, isBelow);
            std::erase_if(plan.replaced,
                          [&](const std::string& path) { return IsAtOrBelow(path, open); });
        }
    }

    /// An exception finds all back that was set aside.
    void TransferAll(const SyncPlan& plan, SetAside& aside)
    {
        Client::TreePart part = MakePart(plan.directories);
        for (const auto& entry : plan.files)
            part.entries.push_back(ToListEntry(entry));
        try {
            Transfer(part);
        } catch (const Client::ClientException&) {
            target.IgnoreInterruption();
            aside.PutBack([](const auto&) { return true; });
            throw;
        }
    }

    /// Entries that give way are deleted first where nothing can be renamed: only for what can be
    /// read.
    void DeleteBefore(SyncPlan& plan)
    {
        for (const auto& entry : plan.files)
            if (const auto replaced = FindAbove(plan.replaced, entry.path);
                !replaced.empty() && !IsReadable(local + "/" + entry.path)) {
                Fail(local + "/" + entry.path +
                     ": cannot read: " + std::generic_category().message(errno) + "; " +
                     target.GetPath(replaced) + " stays");
                AddFailed(entry.path);
            }
        std::erase_if(plan.replaced, [&](const auto& path) {
            if (!HasFailed(path))
                return false;
            const auto isBelow = [&](const SyncEntry& entry) {
                return IsAtOrBelow(entry.path, path);
            };
            std::erase_if(plan.files, isBelow);
            std::erase_if(plan.directories, isBelow);
            return true;
        });
        summary.deleted += target.Delete(plan.replaced);
    }

    /// Returns how many were deleted.
    std::size_t DeleteLast(const SyncPlan& plan)
    {
        if (plan.deleted.empty() || !hasFailed)
            return target.Delete(plan.deleted);
        Fail("nothing is deleted, since not all was done before");
        return 0;
    }

    /// Marks a path, and the directories that hold it, as not done.
    void AddFailed(const std::string& path)
    {
        for (auto end = path.size(); end != std::string::npos; end = path.rfind('/', end - 1)) {
            failed.insert(path.substr(0, end));
            if (end == 0)
                return;
        }
    }

    /// A failure of no path, or of the top, is one of all.
    [[nodiscard]] bool HasFailed(const std::string& path) const
    {
        return failed.contains(path) || failed.contains("");
    }

    void EraseFailed(std::vector<SyncEntry>& entries) const
    {
        std::erase_if(entries, [this](const auto& entry) { return HasFailed(entry.path); });
    }

    [[nodiscard]] Client::TreePart MakePart(const std::vector<SyncEntry>& entries) const
    {
        Client::TreePart part{.local = local, .remote = remote, .entries = {}};
        for (const auto& entry : entries)
            part.entries.push_back(ToListEntry(entry));
        return part;
    }

    /// Throws CancelledException, ConnectionLostException.
    void Transfer(const Client::TreePart& part)
    {
        if (part.entries.empty())
            return;
        auto result = Move(part);
        summary.sent += result.files;
        summary.bytes += result.bytes;
        std::erase_if(result.notes,
                      [this](const auto& note) { return !noted.insert(note.path).second; });
        ReportNotes(workplace.console, result.notes);
        ReportFailures(workplace.console, result.failures);
        for (const auto& failure : result.failures)
            AddFailed(
                GetRelative(failure.side == Client::Side::Local ? local : remote, failure.path));
        for (const auto& path : result.unfinished)
            ReportUnfinished(workplace.console, path,
                             command.isUpload ? Client::Side::Remote : Client::Side::Local, "sync");
        hasFailed = hasFailed || !result.IsComplete();
        if (result.isCancelled)
            throw Client::CancelledException();
        if (result.isConnectionLost)
            throw Client::ConnectionLostException(
                "the connection was lost and could not be restored");
    }

    Client::TransferResult Move(const Client::TreePart& part)
    {
        std::optional<ProgressDisplay> display;
        Client::TransferOptions options;
        options.jobs = command.jobs;
        options.resumes = true;
        options.bytesPerSecond = command.bytesPerSecond;
        options.cancellation = &workplace.cancellation;
        if (!workplace.choice.isQuiet && workplace.console.CanDraw()) {
            display.emplace(workplace.console);
            options.progress = [&display](const Client::Progress& progress) {
                display->Update(progress);
            };
        }
        auto& files = workplace.remote.GetFiles();
        return command.isUpload ? files.UploadPart(part, options)
                                : files.DownloadPart(part, options);
    }

    ExitStatus Conclude()
    {
        summary.isComplete = !hasFailed;
        if (workplace.totals != nullptr) {
            workplace.totals->files += summary.sent;
            workplace.totals->bytes += summary.bytes;
        }
        if (workplace.choice.isJson) {
            output.Write(ToJson(summary, GetReader()) + "\n");
            output.Flush();
        } else if (!workplace.choice.isQuiet)
            workplace.console.Say(Describe());
        return hasFailed ? ExitStatus::Failed : ExitStatus::Done;
    }

    [[nodiscard]] std::string Describe() const
    {
        auto text = fmt::format("{}{} ({}), {} the same", summary.isTrial ? "would send " : "sent ",
                                Count(summary.sent, "file", "files"), FormatBytes(summary.bytes),
                                summary.same);
        if (summary.newer > 0)
            text += fmt::format(", {} newer", summary.newer);
        if (summary.deleted > 0)
            text +=
                fmt::format(", {} {}", summary.deleted, summary.isTrial ? "to delete" : "deleted");
        return text + fmt::format(" in {:.1f} s", summary.seconds);
    }

    [[nodiscard]] JsonReader GetReader() const
    {
        return output.IsTerminal() ? JsonReader::Terminal : JsonReader::Program;
    }

    const SyncCommand& command;
    const Workplace& workplace;
    Client::FileObjects objects;
    const std::string local;
    const std::string remote;
    const Exclusions exclusions;
    SyncTarget target;
    std::unordered_set<std::string> failed; // paths that were not sent, and what holds them
    std::unordered_set<std::string> noted;  // paths
    const Client::Cancellation none;        // the result is wanted after an interruption, too
    Output output;
    SyncSummary summary;
    bool hasFailed = false;
};

} // namespace

ExitStatus Run(const SyncCommand& command, const Workplace& workplace)
{
    return SyncRun(command, workplace).Run();
}

} // namespace Cli
