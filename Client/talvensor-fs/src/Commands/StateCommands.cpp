// Facts that the server knows of paths and disks: stat, df.

#include "Commands/ServerCommands.h"

#include "Client/FileObjects.h"
#include "Commands/Listing.h"
#include "Connection/Folders.h"
#include "Output/Json.h"
#include "Output/Text.h"
#include "Output/Times.h"

#include <fmt/format.h>

#include <algorithm>

namespace Cli {

namespace {

/// Everything that a server without file objects can tell.
Client::EntryState FindState(const std::string& path, const Workplace& workplace)
{
    auto& files = workplace.remote.GetFiles();
    Client::EntryState state;
    state.kind = files.GetKind(path, &workplace.cancellation);
    if (state.kind == Client::Kind::File)
        state.size = files.GetSize(path, &workplace.cancellation);
    state.time = files.GetTime(path, &workplace.cancellation).value_or(Client::FileTime{});
    return state;
}

const char* GetKindName(const Client::EntryState& state)
{
    if (state.isSpecial)
        return "special";
    return state.kind == Client::Kind::Directory ? "directory" : "file";
}

std::string DescribeAccess(const Client::EntryState& state)
{
    std::string text = state.isReadable ? "readable" : "not readable";
    text += state.isWritable ? ", writable" : ", not writable";
    return text + (state.isInReadOnlyFolder ? ", in a folder that clients may only read" : "");
}

std::string FormatState(const std::string& path, const Client::EntryState& state, bool hasAll)
{
    const auto line = [](const char* name, const std::string& value) {
        return fmt::format("{:16}{}\n", name, value);
    };
    std::string text = line("path", path) + line("kind", GetKindName(state));
    if (state.kind == Client::Kind::File)
        text += line("size", Count(state.size, "byte", "bytes"));
    text += line("time", FormatLocalTime(state.time));
    if (!hasAll)
        return text;
    return text +
           line("permissions",
                fmt::format("{} ({:04o})",
                            FormatMode(state.kind == Client::Kind::Directory, state.permissions),
                            state.permissions)) +
           line("access", DescribeAccess(state));
}

Folder FindFolder(Client::FileObjects& objects, const std::string& path, const Workplace& workplace)
{
    const auto resolved = workplace.remote.Resolve(path);
    const auto state = objects.GetStates({resolved}, &workplace.cancellation).front();
    return {.path = path,
            .isReadOnly = state.isInReadOnlyFolder,
            .space = objects.GetSpace(resolved, &workplace.cancellation)};
}

std::string FormatSpace(const Folder& folder, bool isHumanReadable)
{
    if (!folder.space)
        return fmt::format("{:>15} {:>15} {:>15}", "?", "?", "?");
    const auto& space = *folder.space;
    return fmt::format("{:>15} {:>15} {:>15}", FormatSize(space.total, isHumanReadable),
                       FormatSize(space.total - std::min(space.free, space.total), isHumanReadable),
                       FormatSize(space.free, isHumanReadable));
}

} // namespace

ExitStatus Run(const StateCommand& command, const Workplace& workplace)
{
    Client::FileObjects objects(workplace.remote.GetConnection());
    const bool hasAll = objects.AreOffered();
    std::vector<std::string> paths;
    for (const auto& path : command.paths)
        paths.push_back(workplace.remote.Resolve(path));
    std::vector<Client::EntryState> states;
    if (hasAll)
        states = objects.GetStates(paths, &workplace.cancellation);
    else
        for (const auto& path : paths)
            states.push_back(FindState(path, workplace));
    Output output(workplace);
    auto status = ExitStatus::Done;
    for (std::size_t i = 0; i < states.size(); ++i) {
        const auto& state = states[i];
        if (state.kind == Client::Kind::Missing) {
            workplace.console.Report(
                command.paths[i] + ": " +
                (state.reason.empty() ? "No such file or directory" : state.reason));
            status = ExitStatus::Failed;
        } else if (workplace.choice.isJson) {
            output.Write(ToJson(command.paths[i], state, hasAll, GetReader(output)) + "\n");
        } else {
            output.Write(FormatState(ShowName(output, command.paths[i]), state, hasAll));
        }
    }
    output.Flush();
    return status;
}

ExitStatus Run(const SpaceCommand& command, const Workplace& workplace)
{
    Client::FileObjects objects(workplace.remote.GetConnection());
    if (!objects.AreOffered())
        throw Client::OperationFailedException(
            "the server has no file objects: it does not tell its disk space");
    auto folders = command.paths.empty() ? FindFolders(workplace) : std::vector<Folder>{};
    for (const auto& path : command.paths)
        folders.push_back(FindFolder(objects, path, workplace));
    Output output(workplace);
    if (!workplace.choice.isJson)
        output.Write(fmt::format("{:>15} {:>15} {:>15}  {}\n", "total", "used", "free", "folder"));
    for (const auto& folder : folders)
        output.Write(workplace.choice.isJson ? ToJson(folder, GetReader(output)) + "\n"
                                             : FormatSpace(folder, command.isHumanReadable) + "  " +
                                                   ShowName(output, folder.path) + "\n");
    output.Flush();
    return ExitStatus::Done;
}

} // namespace Cli
