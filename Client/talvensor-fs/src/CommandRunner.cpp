#include "CommandRunner.h"

#include "ServerCommands.h"

#include <stdexcept>
#include <type_traits>
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

} // namespace

ExitStatus RunCommand(const Command& command, const Workplace& workplace)
{
    return std::visit(
        [&workplace]<typename CommandType>(const CommandType& one) -> ExitStatus {
            if constexpr (Runnable<CommandType>)
                return Run(one, workplace);
            else
                throw std::logic_error("A command of the shell was run outside it");
        },
        command);
}

} // namespace Cli
