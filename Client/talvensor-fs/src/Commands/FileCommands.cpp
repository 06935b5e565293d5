#include "Commands/ServerCommands.h"

#include "Client/FileObjects.h"
#include "Commands/Changes.h"
#include "Commands/Listing.h"
#include "Output/Json.h"
#include "Output/Text.h"

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string_view>

namespace Cli {

namespace {

/// Changes each path, whatever comes of the others.
ExitStatus ForEach(const std::vector<std::string>& paths, const Workplace& workplace,
                   const std::function<void(const std::string&)>& operation)
{
    Changes changes(workplace);
    for (const auto& given : paths) {
        const auto path = workplace.remote.Resolve(given);
        changes.Do(path, [&] { operation(path); });
    }
    return changes.Conclude();
}

/// Returns those that are no directories; these are failures.
std::vector<std::string> KeepFiles(const std::vector<std::string>& paths,
                                   const Workplace& workplace, Changes& changes)
{
    std::vector<std::string> files;
    for (const auto& path : paths) {
        const auto kind = workplace.remote.GetFiles().GetKind(path, &workplace.cancellation);
        if (kind == Client::Kind::Directory)
            changes.AddFailed(path, Client::Describe({.path = path,
                                                      .step = Client::Step::Delete,
                                                      .cause = "is a directory (use -r)"}));
        else
            files.push_back(path);
    }
    return files;
}

/// Those that a typing error makes. Throws InvalidArgumentException.
void CheckThatItMayGo(const std::string& path)
{
    if (GetBaseName(path).empty())
        throw Client::InvalidArgumentException("refusing to delete '" + path +
                                               "': it is the root, or ends in . or ..");
}

ExitStatus SetMode(const PermissionsCommand& command, const Workplace& workplace)
{
    Client::FileObjects objects(workplace.remote.GetConnection());
    if (!objects.AreOffered())
        throw Client::OperationFailedException(
            "the server has no file objects: it can set +x and readonly only");
    std::vector<std::string> paths;
    for (const auto& path : command.paths)
        paths.push_back(workplace.remote.Resolve(path));
    const std::vector<std::uint32_t> modes(paths.size(), *command.mode);
    const auto results = objects.SetPermissions(paths, modes, &workplace.cancellation);
    Changes changes(workplace);
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (results.at(i).IsGood())
            changes.AddDone(paths[i]);
        else
            changes.AddFailed(paths[i], Client::Describe({.path = paths[i],
                                                          .step = Client::Step::SetPermissions,
                                                          .cause = results[i].reason}));
    }
    return changes.Conclude();
}

const char* GetName(Client::Kind kind)
{
    switch (kind) {
    case Client::Kind::File:
        return "file";
    case Client::Kind::Directory:
        return "directory";
    case Client::Kind::Missing:
        break;
    }
    return "missing";
}

/// Returns false for a path that is missing.
bool PrintKind(const std::string& path, const Workplace& workplace, Output& output)
{
    const auto kind = workplace.remote.GetFiles().GetKind(path, &workplace.cancellation);
    const bool isThere = kind != Client::Kind::Missing;
    if (workplace.choice.isQuiet)
        return isThere;
    if (workplace.choice.isJson)
        output.Write(ToJson(path, GetName(kind), GetReader(output)) + "\n");
    else
        output.Write(std::string(GetName(kind)) + "  " + ShowName(output, path) + "\n");
    return isThere;
}

void ReportNote(Console& console, const Client::Failure& note)
{
    const bool isSent = note.step == Client::Step::SetPermissions;
    console.Report(note.path + (isSent ? ": warning: " : ": skipped: ") + note.cause);
}

void ReportAll(Console& console, const std::vector<Client::Failure>& items,
               void (*report)(Console& console, const Client::Failure& item))
{
    constexpr std::size_t mostAlike = 5;
    std::map<std::string, std::size_t> counts;
    for (const auto& item : items)
        if (++counts[item.cause] <= mostAlike)
            report(console, item);
    for (const auto& [cause, count] : counts)
        if (count > mostAlike)
            console.Report("and " + Count(count - mostAlike, "other", "others") + ": " + cause);
}

} // namespace

void Report(Console& console, const Client::Failure& failure)
{
    console.Report(Client::Describe(failure));
}

void ReportFailures(Console& console, const std::vector<Client::Failure>& failures)
{
    ReportAll(console, failures, Report);
}

void ReportNotes(Console& console, const std::vector<Client::Failure>& notes)
{
    ReportAll(console, notes, ReportNote);
}

ExitStatus Run(const RemoveCommand& command, const Workplace& workplace)
{
    std::vector<std::string> paths;
    for (const auto& path : command.paths) {
        CheckThatItMayGo(path);
        paths.push_back(workplace.remote.Resolve(path));
    }
    Changes changes(workplace);
    if (!command.isRecursive)
        paths = KeepFiles(paths, workplace, changes);
    std::map<std::string, std::string> reasons;
    std::vector<std::string> missing;
    if (!paths.empty())
        for (const auto& failure : workplace.remote.GetFiles().Delete(
                 paths, command.mayBeMissing, &workplace.cancellation, &missing))
            reasons.emplace(failure.path, Client::Describe(failure));
    const std::set<std::string_view> left(missing.begin(), missing.end());
    for (const auto& path : paths) {
        if (const auto found = reasons.find(path); found != reasons.end())
            changes.AddFailed(path, found->second);
        else if (!left.contains(path))
            changes.AddDone(path);
    }
    return changes.Conclude();
}

ExitStatus Run(const MakeDirectoryCommand& command, const Workplace& workplace)
{
    return ForEach(command.paths, workplace, [&workplace](const std::string& path) {
        workplace.remote.GetFiles().CreateDirectory(path, &workplace.cancellation);
    });
}

ExitStatus Run(const ExistsCommand& command, const Workplace& workplace)
{
    Output output(workplace);
    auto status = ExitStatus::Done;
    for (const auto& path : command.paths) {
        try {
            if (!PrintKind(workplace.remote.Resolve(path), workplace, output))
                status = ExitStatus::Failed;
        } catch (const Client::CallRefusedException& error) {
            workplace.console.Report(error.what());
            status = ExitStatus::Failed;
        }
    }
    output.Flush();
    return status;
}

ExitStatus Run(const TouchCommand& command, const Workplace& workplace)
{
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    return ForEach(command.paths, workplace, [&](const std::string& path) {
        workplace.remote.GetFiles().SetTime(path, command.time.value_or(now),
                                            &workplace.cancellation);
    });
}

ExitStatus Run(const PermissionsCommand& command, const Workplace& workplace)
{
    if (command.mode)
        return SetMode(command, workplace);
    return ForEach(command.paths, workplace, [&](const std::string& path) {
        workplace.remote.GetFiles().SetPermissions(path, command.permissions,
                                                   &workplace.cancellation);
    });
}

} // namespace Cli
