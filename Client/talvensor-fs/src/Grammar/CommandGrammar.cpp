#include "Grammar/CommandGrammar.h"

#include "Grammar/Manual.h"

namespace Cli {

CommandGrammar::CommandGrammar(CLI::App& app, Place place)
    : app(app)
    , place(place)
    , formatter(std::make_shared<CommandLine::HelpFormatter>())
{
    app.formatter(formatter);
    formatter->SetUsage(app, place == Place::Shell ? "COMMAND ..." : GetManual().synopsis.front());
    if (place == Place::CommandLine)
        formatter->SetManual(app, GetManual());
    app.set_help_flag("-h,--help", "print this text");
    app.require_subcommand(0, 1);
    quiet = AddFlag(app, "-q,--quiet", "print errors only: no progress, no totals");
    json = AddFlag(app, "--json", "print results as JSON, one object on a line");
    AddListing();
    AddTransfers();
    AddSync();
    AddChanges();
    AddServer();
    if (place == Place::Shell)
        AddShellCommands();
}

Command CommandGrammar::MakeCommand() const
{
    const auto given = app.get_subcommands();
    if (given.empty())
        throw Client::InvalidArgumentException("no command given: --help lists them");
    return makers.at(given.front())();
}

CLI::App* CommandGrammar::Add(const std::string& name, const std::string& arguments,
                              const std::string& text, const std::string& end)
{
    auto* const command = app.add_subcommand(name, text);
    command->fallthrough();
    command->group("Commands");
    command->footer(end);
    formatter->SetUsage(*command, (place == Place::Shell ? "" : "talvensor-fs ") + name +
                                      (arguments.empty() ? "" : " " + arguments));
    return command;
}

} // namespace Cli
