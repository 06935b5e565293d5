#include "Commands/ServerCommands.h"

#include "Client/FileObjects.h"
#include "Commands/Changes.h"

#include <fmt/format.h>

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

/// Returns the line of a failure: `verb` is "rename" or "copy", and perhaps says where to.
std::string DescribeFailure(const std::string& path, const std::string& verb,
                            const std::string& cause)
{
    return fmt::format("{} (remote): cannot {}: {}", path, verb, cause);
}

/// Returns the words of a failure without the path, which stands before them.
std::string GetCause(const std::string& path, const std::string& reason)
{
    const std::string subject = path + ": ";
    return reason.starts_with(subject) ? reason.substr(subject.size()) : reason;
}

/// Finds targets as mv and cp do: below a directory, otherwise the new name. Sources that are
/// missing are failures; `verb` says of what. Throws InvalidArgumentException,
/// OperationFailedException.
std::vector<Relocation> FindTargets(const RelocationCommand& command, const Workplace& workplace,
                                    const char* verb, Changes& changes)
{
    Client::FileObjects objects(workplace.remote.GetConnection());
    if (!objects.AreOffered())
        throw Client::OperationFailedException(
            "the server has no file objects: it can neither rename nor copy");
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
        throw Client::OperationFailedException(
            DescribeFailure(command.target, verb + std::string(" into it"), "Not a directory"));
    std::vector<Relocation> found;
    for (std::size_t i = 1; i < paths.size(); ++i) {
        const auto& source = paths[i];
        const auto own = isDirectory ? JoinPath(target, GetBaseName(source)) : target;
        if (states[i].kind == Client::Kind::Missing)
            changes.AddFailed(
                source, DescribeFailure(source, verb, GetCause(source, states[i].reason)), own);
        else
            found.push_back({source, own, states[i]});
    }
    return found;
}

/// Several files of the same name would replace one another.
void CheckThatTargetsDiffer(const std::vector<Relocation>& relocations)
{
    std::vector<std::string> targets;
    targets.reserve(relocations.size());
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
    Changes changes(workplace);
    const auto found = FindTargets(command, workplace, "rename", changes);
    CheckThatTargetsDiffer(found);
    std::vector<Client::Renaming> renamings;
    renamings.reserve(found.size());
    for (const auto& relocation : found)
        renamings.push_back({relocation.source, relocation.target});
    const auto results = Client::FileObjects(workplace.remote.GetConnection())
                             .Move(renamings, true, &workplace.cancellation);
    for (std::size_t i = 0; i < results.size(); ++i) {
        const auto& [source, target, state] = found[i];
        if (results[i].IsGood())
            changes.AddDone(source, target);
        else
            changes.AddFailed(
                source,
                DescribeFailure(source, "rename to " + target, GetCause(target, results[i].reason)),
                target);
    }
    return changes.Conclude();
}

ExitStatus Run(const CopyCommand& command, const Workplace& workplace)
{
    Changes changes(workplace);
    const auto found = FindTargets(command, workplace, "copy", changes);
    CheckThatTargetsDiffer(found);
    Client::FileObjects objects(workplace.remote.GetConnection());
    for (const auto& relocation : found) {
        const auto& source = relocation.source;
        const auto& target = relocation.target;
        if (relocation.state.kind == Client::Kind::Directory && !command.isRecursive)
            changes.AddFailed(source, DescribeFailure(source, "copy", "is a directory (use -r)"),
                              target);
        else
            changes.Do(
                source, [&] { objects.Copy(source, target, true, &workplace.cancellation); },
                target);
    }
    return changes.Conclude();
}

} // namespace Cli
