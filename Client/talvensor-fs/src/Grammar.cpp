#include "Grammar.h"

#include "CommandGrammar.h"
#include "ConnectionGrammar.h"
#include "Manual.h"
#include "Text.h"
#include "Version.h"

#include <algorithm>
#include <utility>

namespace Cli {

namespace {

/// A NUL would end a name early wherever the system takes it. Throws InvalidArgumentException.
void RefuseNul(const std::vector<std::string>& words)
{
    for (const auto& word : words)
        if (word.find('\0') != std::string::npos)
            throw Client::InvalidArgumentException("'" + EscapeName(word) +
                                                   "' holds a NUL, which no name can have");
}

/// Returns the help or the version when that was asked for.
std::optional<std::string> Parse(CLI::App& app, const std::vector<std::string>& words)
{
    RefuseNul(words);
    auto backwards = Mask(words);
    std::reverse(backwards.begin(), backwards.end());
    try {
        app.parse(backwards);
        return std::nullopt;
    } catch (const CLI::CallForVersion& version) {
        return std::string(version.what()) + "\n";
    } catch (const CLI::CallForHelp&) {
        return app.help();
    } catch (const CLI::ParseError& error) {
        throw Client::InvalidArgumentException(error.what());
    }
}

} // namespace

std::variant<ShowText, Invocation> ParseArguments(const std::vector<std::string>& arguments)
{
    CLI::App app{GetManual().description};
    app.name("talvensor-fs");
    app.set_version_flag("--version", std::string("talvensor-fs ") + GetVersion(),
                         "print the version");
    const CommandGrammar commands(app, Place::CommandLine);
    const ConnectionGrammar connection(app);
    if (auto text = Parse(app, arguments))
        return ShowText{std::move(*text)};
    return Invocation{.connection = connection.GetSettings(),
                      .profile = connection.GetProfile(),
                      .hosts = connection.GetHosts(),
                      .trust = connection.GetTrust(),
                      .choice = commands.GetChoice(),
                      .command = commands.MakeCommand()};
}

ShellLine ParseShellLine(const std::vector<std::string>& words)
{
    CLI::App app;
    const CommandGrammar commands(app, Place::Shell);
    if (auto text = Parse(app, words))
        return {.choice = {}, .command = HelpCommand{std::move(*text)}};
    return {.choice = commands.GetChoice(), .command = commands.MakeCommand()};
}

CommandLine::Command DescribeCommandLine()
{
    CLI::App app{GetManual().description};
    app.name("talvensor-fs");
    app.set_version_flag("--version", "", "print the version");
    const CommandGrammar commands(app, Place::CommandLine);
    const ConnectionGrammar connection(app);
    return commands.Describe();
}

const std::vector<std::string>& GetShellCommands()
{
    static const auto names = [] {
        CLI::App app;
        const CommandGrammar commands(app, Place::Shell);
        std::vector<std::string> all;
        for (const auto* const command : app.get_subcommands(nullptr))
            all.push_back(command->get_name());
        std::sort(all.begin(), all.end());
        return all;
    }();
    return names;
}

} // namespace Cli
