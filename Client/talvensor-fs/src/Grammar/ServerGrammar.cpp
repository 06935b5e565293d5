#include "Grammar/CommandGrammar.h"

#include <limits>

namespace Cli {

namespace {

constexpr const char* watchFooter =
    "A shared node sends the results of all calls of it to all clients. Without NODE, the "
    "first shared node of the server is watched; info names them. The commands of "
    "talvensor-fs use nodes of their own, whose results are not shown here.";

constexpr const char* shellFooter =
    "On a terminal, it prompts for commands; help lists them. With -b, with -c, and if "
    "standard input is not a terminal, it stops at the first command that fails, with the "
    "exit status of that command; a command with a dash before it (-rm old) may fail. "
    "Text in quotes and characters after a backslash are taken literally, not as "
    "patterns.";

} // namespace

void CommandGrammar::AddServer()
{
    auto* const watch = Add("watch", "[-n COUNT] [NODE]",
                            "print the events of a shared node as they arrive", watchFooter);
    auto* const node = AddPositional(watch);
    auto count = std::make_shared<std::size_t>(0);
    watch->add_option("-n,--count", *count, "stop after this many events (default: at Ctrl-C)")
        ->type_name("COUNT")
        ->check(CLI::Range(1, std::numeric_limits<int>::max()).description(""));
    makers[watch] = [=] {
        return WatchCommand{.node = GetText(node).value_or(""), .count = *count};
    };
    AddPlain<InfoCommand>("info",
                          "show the server, its limits, the session, its modules and folders");
    AddHelp();
    if (place == Place::CommandLine)
        AddCertificates();
    if (place == Place::CommandLine)
        AddShell();
}

void CommandGrammar::AddCertificates()
{
    AddPlain<CertificateCommand>("certificate", "show this client's own certificate");
    auto* const known =
        Add("known", "[--forget HOST]...", "list the servers that are trusted, or forget some");
    auto* const forgotten = known->add_option("--forget")
                                ->description("stop trusting the servers at HOST, or the one at "
                                              "HOST:PORT; the next connection asks again")
                                ->type_name("HOST")
                                ->take_all();
    makers[known] = [forgotten] {
        return KnownCommand{GetTexts(forgotten)};
    };
}

void CommandGrammar::AddHelp()
{
    auto* const help = Add("help", "[COMMAND]", "list the commands, or describe one");
    auto* const topic = AddPositional(help);
    makers[help] = [this, topic] {
        return HelpCommand{MakeHelp(GetText(topic))};
    };
}

void CommandGrammar::AddShell()
{
    auto* const shell =
        Add("shell", "[-b FILE | -c COMMAND]...",
            "read commands from the terminal, a file or standard input", shellFooter);
    auto* const file = shell->add_option("-b,--batch")
                           ->description("read the commands from FILE; -: standard input")
                           ->type_name("FILE");
    auto* const lines = shell->add_option("-c,--command")
                            ->description("run COMMAND and exit; may be given several times")
                            ->type_name("COMMAND")
                            ->take_all()
                            ->excludes(file);
    makers[shell] = [=] {
        return ShellCommand{.file = GetText(file), .lines = GetTexts(lines)};
    };
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
    auto* const list = Add("lls", "[ARGUMENT]...", "run ls on this machine");
    list->fallthrough(false)->prefix_command();
    makers[list] = [list] {
        LocalProgramCommand made{.arguments = {"ls"}};
        for (const auto& argument : list->remaining())
            made.arguments.push_back(UnmaskPattern(argument));
        return made;
    };
    app.footer("!COMMAND runs a command line on this machine; ! alone runs a shell there.");
    AddExit();
}

void CommandGrammar::AddExit()
{
    auto* const exit = Add("exit", "[STATUS]", "end the shell, as quit, bye and Ctrl-D do");
    exit->alias("quit")->alias("bye");
    auto status = std::make_shared<int>(0);
    exit->add_option("STATUS", *status)->check(CLI::Range(0, 255).description(""))->group("");
    makers[exit] = [status] {
        return ExitCommand{*status};
    };
}

std::string CommandGrammar::MakeHelp(const std::optional<std::string>& topic) const
{
    if (!topic) // the help of `app` would be that of the command "help"
        return formatter->make_help(&app, "", CLI::AppFormatMode::Normal);
    try {
        return app.get_subcommand(*topic)->help();
    } catch (const CLI::OptionNotFound&) {
        throw Client::InvalidArgumentException("unknown command '" + *topic + "'");
    }
}

} // namespace Cli
