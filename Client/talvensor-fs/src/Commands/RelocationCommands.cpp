#include "Commands/ServerCommands.h"

#include "Client/FileObjects.h"

#include <algorithm>
#include <string>
#include <vector>

namespace Cli {

namespace {

/// A source and its target, as the server has to be told them.
struct Relocation
{
    std::string source;
    std::string target;
    Client::EntryState state; ///< of the source
};

/// Returns the words of a failure without the path, which stands before them.
std::string GetCause(const std::string& path, const std::string& reason)
{
    const std::string subject = path + ": ";
    return reason.starts_with(subject) ? reason.substr(subject.size()) : reason;
}

/// Finds targets as mv and cp do: below a directory, otherwise the new name. Reports sources that
/// are missing. Throws InvalidArgumentException, OperationFailedException.
std::vector<Relocation> FindTargets(const RelocationCommand& command, const Workplace& workplace)
{
    Client::FileObjects objects(workplace.remote.GetConnection());
    if (!objects.AreOffered())
        throw Client::OperationFailedException(
            "the server can neither rename nor copy: it has no file objects");
    const auto target = workplace.remote.Resolve(command.target);
    std::vector<std::string> paths{target};
    for (const auto& source : command.sources) {
        if (GetBaseName(source).empty())
            throw Client::InvalidArgumentException("'" + source +
                                                   "' is the root, or ends in . or ..");
        paths.push_back(workplace.remote.Resolve(source));
    }
    const auto states = objects.GetStates(paths, &workplace.cancellation);
    const bool isDirectory = states.front().kind == Client::Kind::Directory;
    if (!isDirectory && (command.sources.size() > 1 || command.target.ends_with('/')))
        throw Client::OperationFailedException(command.target + ": is not a directory");
    std::vector<Relocation> found;
    for (std::size_t i = 1; i < paths.size(); ++i) {
        if (states[i].kind == Client::Kind::Missing)
            workplace.console.Report(paths[i] + ": " + states[i].reason);
        else
            found.push_back({paths[i],
                             isDirectory ? JoinPath(target, GetBaseName(paths[i])) : target,
                             states[i]});
    }
    return found;
}

/// Several files of the same name would replace one another.
void CheckThatTargetsDiffer(const std::vector<Relocation>& relocations)
{
    std::vector<std::string> targets;
    for (const auto& relocation : relocations)
        targets.push_back(relocation.target);
    std::sort(targets.begin(), targets.end());
    const auto twice = std::adjacent_find(targets.begin(), targets.end());
    if (twice != targets.end())
        throw Client::InvalidArgumentException("several sources have the same target: " + *twice);
}

} // namespace

ExitStatus Run(const MoveCommand& command, const Workplace& workplace)
{
    const auto found = FindTargets(command, workplace);
    CheckThatTargetsDiffer(found);
    auto status = found.size() == command.sources.size() ? ExitStatus::Done : ExitStatus::Failed;
    std::vector<Client::Renaming> renamings;
    for (const auto& relocation : found)
        renamings.push_back({relocation.source, relocation.target});
    const auto results = Client::FileObjects(workplace.remote.GetConnection())
                             .Move(renamings, true, &workplace.cancellation);
    for (std::size_t i = 0; i < results.size(); ++i) {
        if (results[i].IsGood())
            continue;
        workplace.console.Report(found[i].source + ": cannot rename to " + found[i].target + ": " +
                                 GetCause(found[i].target, results[i].reason));
        status = ExitStatus::Failed;
    }
    return status;
}

ExitStatus Run(const CopyCommand& command, const Workplace& workplace)
{
    const auto found = FindTargets(command, workplace);
    CheckThatTargetsDiffer(found);
    auto status = found.size() == command.sources.size() ? ExitStatus::Done : ExitStatus::Failed;
    Client::FileObjects objects(workplace.remote.GetConnection());
    for (const auto& [source, target, state] : found) {
        try {
            if (state.kind == Client::Kind::Directory && !command.isRecursive)
                throw Client::OperationFailedException(source + ": is a directory (use -r)");
            objects.Copy(source, target, true, &workplace.cancellation);
        } catch (const Client::OperationFailedException& failed) {
            workplace.console.Report(failed.what());
            status = ExitStatus::Failed;
        }
    }
    return status;
}

} // namespace Cli
