#include "Grammar/Grammar.h"

#include "Grammar/CommandGrammar.h"
#include "Grammar/ConnectionGrammar.h"
#include "Grammar/Manual.h"
#include "Grammar/Suggestion.h"
#include "Output/Text.h"
#include "Output/Words.h"
#include "Version.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Cli {

namespace {

/// A NUL would end a name early wherever the system takes it. Throws InvalidArgumentException.
void RefuseNul(const std::vector<std::string>& words)
{
    for (const auto& word : words)
        if (word.find('\0') != std::string::npos)
            throw Client::InvalidArgumentException("'" + EscapeName(word) +
                                                   "' contains a NUL, which no name can have");
}

std::vector<std::string> GetCommandNames(const CLI::App& app)
{
    std::vector<std::string> names;
    for (const auto* const command : app.get_subcommands(nullptr))
        names.push_back(command->get_name());
    return names;
}

/// Returns the options that a command takes, with their dashes.
std::vector<std::string> GetOptionNames(const CLI::App& app, const CLI::App& command)
{
    std::vector<std::string> names;
    for (const auto* const one : {&app, &command})
        for (const auto* const option : one->get_options()) {
            for (const auto& name : option->get_lnames())
                names.push_back("--" + name);
            for (const auto& name : option->get_snames())
                names.push_back("-" + name);
        }
    return names;
}

/// Returns what is wrong with an argument that nothing takes.
std::string DescribeExtra(const CLI::App& app, const CLI::App* command, const std::string& extra)
{
    const auto shown = "'" + EscapeName(extra) + "'";
    const auto prefix = command == nullptr ? std::string() : command->get_name() + ": ";
    if (extra.size() > 1 && extra.starts_with('-'))
        return prefix + "unknown option " + shown +
               Suggest(extra.substr(0, extra.find('=')),
                       GetOptionNames(app, command == nullptr ? app : *command));
    if (command == nullptr)
        return "unknown command " + shown + Suggest(extra, GetCommandNames(app));
    return prefix + "unexpected argument " + shown;
}

/// Returns what the parser says, in words of our own where its own are hard to read.
std::string Reword(const CLI::ParseError& error)
{
    auto text = Unmask(error.what());
    const auto option = text.substr(0, text.find_first_of(": "));
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr)
        return option + (text.ends_with("missing") ? ": needs a value" : ": is given twice");
    if (dynamic_cast<const CLI::ExcludesError*>(&error) != nullptr)
        return option + ": cannot be combined with " + text.substr(text.rfind(' ') + 1);
    return text;
}

/// Returns what is wrong with arguments that could not be parsed.
std::string Describe(const CLI::App& app, const CLI::ParseError& error)
{
    const auto given = app.get_subcommands();
    const auto* const command = given.empty() ? nullptr : given.front();
    const auto extras = app.remaining(true);
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !extras.empty())
        return DescribeExtra(app, command, Unmask(extras.front()));
    return (command == nullptr ? std::string() : command->get_name() + ": ") + Reword(error);
}

/// Parses words that have the marks of what was quoted. Returns the help or the version when that
/// was asked for. Throws InvalidArgumentException.
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
        throw Client::InvalidArgumentException(Describe(app, error));
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
    std::vector<std::string> words;
    std::transform(arguments.begin(), arguments.end(), std::back_inserter(words), MarkUnquoted);
    if (auto text = Parse(app, words))
        return ShowText{std::move(*text)};
    auto command = commands.MakeCommand();
    if (const auto* const help = std::get_if<HelpCommand>(&command))
        return ShowText{help->text};
    return Invocation{.connection = connection.GetSettings(),
                      .profile = connection.GetProfile(),
                      .hosts = connection.GetHosts(),
                      .trust = connection.GetTrust(),
                      .choice = commands.GetChoice(),
                      .command = std::move(command)};
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
        auto all = GetCommandNames(app);
        std::sort(all.begin(), all.end());
        return all;
    }();
    return names;
}

} // namespace Cli
