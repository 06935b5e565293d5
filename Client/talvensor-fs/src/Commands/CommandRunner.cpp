#include "Commands/CommandRunner.h"

#include "Commands/PathArguments.h"
#include "Commands/ServerCommands.h"

#include <concepts>
#include <stdexcept>
#include <variant>

namespace Cli {

namespace {

template <typename CommandType>
concept Runnable = requires(const CommandType& command, const Workplace& workplace)
{
    {
        Run(command, workplace)
        } -> std::same_as<ExitStatus>;
};

template <typename CommandType>
concept WithPaths = requires(CommandType command)
{
    {
        command.paths
        } -> std::same_as<std::vector<std::string>&>;
};

// Each turns the arguments of a command into paths, and returns what has to be left to run it.

template <WithPaths CommandType>
bool TakePaths(CommandType& command, PathArguments& arguments)
{
    if constexpr (requires { command.takesPatterns; })
        if (!command.takesPatterns) {
            PathArguments::TakeRemote(command.paths);
            return true;
        }
    arguments.ExpandRemote(command.paths);
    return !command.paths.empty();
}

bool TakePaths(SpaceCommand& command, PathArguments& arguments)
{
    const bool isForAll = command.paths.empty();
    arguments.ExpandRemote(command.paths);
    return isForAll || !command.paths.empty();
}

bool TakePaths(RemoveCommand& command, PathArguments& arguments)
{
    if (command.takesPatterns)
        arguments.ExpandRemote(command.paths, command.mayBeMissing);
    else
        PathArguments::TakeRemote(command.paths);
    return !command.paths.empty();
}

bool TakePaths(MakeDirectoryCommand& command, PathArguments&)
{
    PathArguments::TakeRemote(command.paths);
    return true;
}

bool TakePaths(ExistsCommand& command, PathArguments&)
{
    PathArguments::TakeRemote(command.paths);
    return true;
}

bool TakePaths(MoveCommand& command, PathArguments& arguments)
{
    PathArguments::TakeRemote(command.target);
    if (command.takesPatterns)
        arguments.ExpandRemote(command.sources);
    else
        PathArguments::TakeRemote(command.sources);
    return !command.sources.empty();
}

bool TakePaths(CopyCommand& command, PathArguments& arguments)
{
    PathArguments::TakeRemote(command.target);
    arguments.ExpandRemote(command.sources);
    return !command.sources.empty();
}

bool TakePaths(PutCommand& command, PathArguments& arguments)
{
    PathArguments::TakeRemote(command.target);
    arguments.ExpandLocal(command.sources);
    return !command.sources.empty();
}

bool TakePaths(GetCommand& command, PathArguments& arguments)
{
    PathArguments::CheckLocal(command.target);
    arguments.ExpandRemote(command.sources);
    return !command.sources.empty();
}

template <typename CommandType>
bool TakePaths(CommandType&, PathArguments&)
{
    return true;
}

} // namespace

ExitStatus RunCommand(const Command& given, const Workplace& workplace)
{
    PathArguments arguments(workplace);
    return std::visit(
        [&]<typename CommandType>(CommandType command) -> ExitStatus {
            if constexpr (Runnable<CommandType>) {
                const bool isRunning = TakePaths(command, arguments);
                const auto status = isRunning ? Run(command, workplace) : ExitStatus::Done;
                return arguments.HasFailed() && status == ExitStatus::Done ? ExitStatus::Failed
                                                                           : status;
            } else {
                throw std::logic_error("A command of the shell was run outside it");
            }
        },
        given);
}

} // namespace Cli
