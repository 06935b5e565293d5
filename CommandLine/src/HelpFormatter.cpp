#include "CommandLine/HelpFormatter.h"

#include <algorithm>

namespace CommandLine {

namespace {

Option DescribeOption(const CLI::Option& option)
{
    Option described{.names = {}, .placeholder = {}, .text = option.get_description()};
    for (const auto& name : option.get_snames())
        described.names.push_back("-" + name);
    for (const auto& name : option.get_lnames())
        described.names.push_back("--" + name);
    if (option.get_expected_max() > 0)
        described.placeholder = option.get_type_name();
    return described;
}

/// Groups options in the order in which they were added.
std::vector<OptionGroup> DescribeOptions(const CLI::App& app)
{
    std::vector<OptionGroup> groups;
    for (const auto* const option : app.get_options()) {
        const auto& title = option->get_group();
        if (option->get_positional() || title.empty())
            continue;
        auto group = std::find_if(groups.begin(), groups.end(),
                                  [&](const OptionGroup& each) { return each.title == title; });
        if (group == groups.end())
            group = groups.insert(groups.end(), {.title = title, .options = {}});
        group->options.push_back(DescribeOption(*option));
    }
    return groups;
}

} // namespace

Command HelpFormatter::Describe(const CLI::App& app) const
{
    Command command{.name = app.get_name(),
                    .usage = usages.at(&app),
                    .summary = app.get_description(),
                    .text = app.get_footer(),
                    .groups = DescribeOptions(app),
                    .commands = {}};
    for (const auto* const each : app.get_subcommands(nullptr)) {
        if (!each->get_group().empty())
            command.commands.push_back(Describe(*each));
    }
    return command;
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string /*name*/,
                                     CLI::AppFormatMode /*mode*/) const
{
    const auto help = FormatHelp(Describe(*app));
    const auto manual = manuals.find(app);
    return manual == manuals.end() ? help : help + '\n' + FormatSections(*manual->second);
}

} // namespace CommandLine
