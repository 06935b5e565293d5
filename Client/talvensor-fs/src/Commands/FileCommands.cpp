#include "Commands/ServerCommands.h"

#include "Client/FileObjects.h"
#include "Commands/Listing.h"
#include "Output/Json.h"

#include <algorithm>
#include <chrono>
#include <functional>

namespace Cli {

namespace {

/// Changes something that has to be there. Throws OperationFailedException, which says so if it
/// is not.
template <typename Operation>
void Change(const std::string& path, const Workplace& workplace, const Operation& operation)
{
    try {
        operation();
    } catch (const Client::OperationFailedException&) {
        if (workplace.remote.GetFiles().Exists(path, &workplace.cancellation))
            throw;
        throw Client::OperationFailedException(path + ": No such file or directory");
    }
}

/// Reports the failure of one path, and goes on with the others.
ExitStatus ForEach(const std::vector<std::string>& paths, const Workplace& workplace,
                   const std::function<void(const std::string&)>& operation)
{
    auto status = ExitStatus::Done;
    for (const auto& path : paths) {
        try {
            operation(workplace.remote.Resolve(path));
        } catch (const Client::OperationFailedException& error) {
            workplace.console.Report(error.what());
            status = ExitStatus::Failed;
        } catch (const Client::CallRefusedException& error) {
            workplace.console.Report(error.what());
            status = ExitStatus::Failed;
        }
    }
    return status;
}

/// Without the directories among them, which are reported.
std::vector<std::string> KeepFiles(const std::vector<std::string>& paths,
                                   const Workplace& workplace)
{
    std::vector<std::string> files;
    for (const auto& path : paths) {
        const auto kind = workplace.remote.GetFiles().GetKind(path, &workplace.cancellation);
        if (kind == Client::Kind::Directory)
            workplace.console.Report(path + ": is a directory (use -r)");
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
            "chmod: the server offers no file objects: it can set +x and readonly only");
    std::vector<std::string> paths;
    for (const auto& path : command.paths)
        paths.push_back(workplace.remote.Resolve(path));
    const std::vector<std::uint32_t> modes(paths.size(), *command.mode);
    const auto results = objects.SetPermissions(paths, modes, &workplace.cancellation);
    auto status = ExitStatus::Done;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (results.at(i).IsGood())
            continue;
        workplace.console.Report(paths[i] + ": " + results[i].reason);
        status = ExitStatus::Failed;
    }
    return status;
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

/// Returns the step as it follows "cannot".
const char* GetVerb(Client::Step step)
{
    switch (step) {
    case Client::Step::List:
        return "list";
    case Client::Step::CreateDirectory:
        return "create directory";
    case Client::Step::Open:
        return "open";
    case Client::Step::Read:
        return "read";
    case Client::Step::Write:
        return "write";
    case Client::Step::Close:
        return "close";
    case Client::Step::SetTime:
        return "set the time";
    case Client::Step::SetPermissions:
        return "set the permissions";
    case Client::Step::Rename:
        return "rename";
    case Client::Step::Delete:
        return "delete";
    case Client::Step::Resume:
        return "resume";
    case Client::Step::Verify:
        return "verify";
    }
    return "";
}

} // namespace

std::string Describe(const Client::Failure& failure)
{
    const auto* const side = failure.side == Client::Side::Local ? "local" : "remote";
    return failure.path + " (" + side + "): cannot " + GetVerb(failure.step) + ": " + failure.cause;
}

void Report(Console& console, const Client::Failure& failure)
{
    console.Report(Describe(failure));
}

void ReportNote(Console& console, const Client::Failure& note)
{
    const bool isSent = note.step == Client::Step::SetPermissions;
    console.Report(note.path + (isSent ? ": warning: " : ": skipped: ") + note.cause);
}

ExitStatus Run(const RemoveCommand& command, const Workplace& workplace)
{
    std::vector<std::string> paths;
    for (const auto& path : command.paths) {
        CheckThatItMayGo(path);
        paths.push_back(workplace.remote.Resolve(path));
    }
    const auto wanted = paths.size();
    if (!command.isRecursive)
        paths = KeepFiles(paths, workplace);
    auto status = paths.size() == wanted ? ExitStatus::Done : ExitStatus::Failed;
    if (paths.empty())
        return status;
    for (const auto& failure :
         workplace.remote.GetFiles().Delete(paths, command.mayBeMissing, &workplace.cancellation)) {
        Report(workplace.console, failure);
        status = ExitStatus::Failed;
    }
    return status;
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
    bool isAnyMissing = false;
    const auto status =
        ForEach(command.paths, workplace, [&workplace, &output, &isAnyMissing](const auto& path) {
            const auto kind = workplace.remote.GetFiles().GetKind(path, &workplace.cancellation);
            isAnyMissing = isAnyMissing || kind == Client::Kind::Missing;
            if (workplace.choice.isQuiet)
                return;
            if (workplace.choice.isJson)
                output.Write(ToJson(path, GetName(kind), GetReader(output)) + "\n");
            else
                output.Write(std::string(GetName(kind)) + "  " + ShowName(output, path) + "\n");
        });
    output.Flush();
    return isAnyMissing ? ExitStatus::Failed : status;
}

ExitStatus Run(const TouchCommand& command, const Workplace& workplace)
{
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    return ForEach(command.paths, workplace, [&](const std::string& path) {
        Change(path, workplace, [&] {
            workplace.remote.GetFiles().SetTime(path, command.time.value_or(now),
                                                &workplace.cancellation);
        });
    });
}

ExitStatus Run(const PermissionsCommand& command, const Workplace& workplace)
{
    if (command.mode)
        return SetMode(command, workplace);
    return ForEach(command.paths, workplace, [&](const std::string& path) {
        Change(path, workplace, [&] {
            workplace.remote.GetFiles().SetPermissions(path, command.permissions,
                                                       &workplace.cancellation);
        });
    });
}

} // namespace Cli
