#include "CommandGrammar.h"

#include <limits>

namespace Cli {

namespace {

constexpr const char* watchFooter =
    "All clients hear a shared node: its events are the results of all their calls. Without NODE, "
    "the first shared node of the server is watched; info names them.";

} // namespace

void CommandGrammar::AddServer()
{
    auto* const watch = Add("watch", "[-n COUNT] [NODE]",
                            "print the events of a shared node as they arrive", watchFooter);
    auto* const node = AddPositional(watch);
    auto count = std::make_shared<std::size_t>(0);
    watch->add_option("-n,--count", *count, "end after so many events (until Ctrl-C)")
        ->type_name("COUNT")
        ->check(CLI::Range(1, std::numeric_limits<int>::max()).description(""));
    makers[watch] = [=] {
        return WatchCommand{.node = GetText(node).value_or(""), .count = *count};
    };
    AddPlain<InfoCommand>("info", "show endpoint, limits, session and modules");
    if (place == Place::CommandLine)
        AddPlain<ShellCommand>("shell", "read commands from the terminal or standard input");
}

void CommandGrammar::AddShellCommands()
{
    AddWithFolder<ChangeFolderCommand>("cd", "change the remote directory");
    AddWithFolder<ChangeLocalFolderCommand>("lcd", "change the local directory");
    makers[Add("pwd", "", "print the current remote directory")] = [] {
        return ShowFolderCommand{.isLocal = false};
    };
    makers[Add("lpwd", "", "print the current local directory")] = [] {
        return ShowFolderCommand{.isLocal = true};
    };
    auto* const help = Add("help", "[COMMAND]", "list the commands, or describe one");
    auto* const topic = AddPositional(help);
    makers[help] = [this, topic] {
        return HelpCommand{MakeHelp(GetText(topic))};
    };
    AddPlain<ExitCommand>("exit", "end the shell, as Ctrl-D does");
}

std::string CommandGrammar::MakeHelp(const std::optional<std::string>& topic) const
{
    if (!topic) // the help of `app` would be that of the command "help"
        return formatter->make_help(&app, "", CLI::AppFormatMode::Normal);
    try {
        return app.get_subcommand(*topic)->help();
    } catch (const CLI::OptionNotFound&) {
        throw Client::InvalidArgumentException(*topic + ": no such command");
    }
}

} // namespace Cli
