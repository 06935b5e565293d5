#include "Pages.h"

#include "Completion.h"
#include "Configuration/CommandLine.h"
#include "Configuration/Manual.h"
#include "Configuration/Settings.h"
#include "Grammar/Grammar.h"
#include "Grammar/Manual.h"
#include "Roff.h"

#include <cctype>

namespace Manual {

namespace {

using CommandLine::Command;

std::string MakeSentence(std::string text)
{
    text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
    return text + '.';
}

void AddCommands(Roff& page, const Command& program)
{
    page.Section("Commands");
    for (const auto& command : program.commands) {
        page.Subsection(command.name);
        page.Usage(command.usage);
        page.Text(MakeSentence(command.summary));
        for (const auto& option : GetOwnOptions(command))
            page.Option(option);
        page.Text(command.text);
    }
}

void AddOptions(Roff& page, const Command& program)
{
    for (const auto& group : program.groups) {
        if (group.title == "Options")
            page.Section(group.title);
        else
            page.Subsection(group.title);
        for (const auto& option : group.options)
            page.Option(option);
    }
}

void AddBegin(Roff& page, const CommandLine::Manual& manual)
{
    page.Section("Synopsis");
    for (const auto& usage : manual.synopsis)
        page.Usage(usage);
    page.Section("Description");
    page.Text(manual.description);
}

void AddEnd(Roff& page, const CommandLine::Manual& manual)
{
    for (const auto& section : manual.sections) {
        page.Section(section.title);
        page.Text(section.text);
        for (const auto& term : section.terms)
            page.Term(term.name, term.text);
    }
    page.Section("See also");
    std::string all;
    for (const auto& each : manual.seeAlso)
        all += (all.empty() ? "" : ", ") + each;
    page.Text(all);
}

std::string DescribeValue(const Host::Setting& setting)
{
    const auto kind = Host::DescribeValue(setting.kind);
    return setting.isRepeatable ? kind + ", or a list of these" : kind;
}

void AddSettings(Roff& page)
{
    page.Section("Settings");
    std::string group;
    for (const auto& setting : Host::GetSettings()) {
        if (setting.group != group)
            page.Subsection(setting.group);
        group = setting.group;
        page.Term(setting.name,
                  MakeSentence(setting.help) + "\n\nValue: " + DescribeValue(setting) + '.');
    }
}

} // namespace

std::vector<Program> GetPrograms()
{
    return {{.manual = Host::GetManual(), .grammar = Host::DescribeCommandLine()},
            {.manual = Cli::GetManual(), .grammar = Cli::DescribeCommandLine()}};
}

std::string MakeProgramPage(const Program& program)
{
    Roff page(program.manual);
    AddBegin(page, program.manual);
    AddOptions(page, program.grammar);
    AddCommands(page, program.grammar);
    AddEnd(page, program.manual);
    return page.GetPage();
}

std::string MakeConfigurationPage()
{
    const auto& manual = Host::GetFileManual();
    Roff page(manual);
    AddBegin(page, manual);
    AddSettings(page);
    AddEnd(page, manual);
    return page.GetPage();
}

Files MakeFiles()
{
    Files files{{"man/host.toml.5", MakeConfigurationPage()}};
    for (const auto& program : GetPrograms()) {
        const auto& name = program.manual.name;
        files["man/" + name + '.' + program.manual.chapter] = MakeProgramPage(program);
        files["bash/" + name] = MakeBashCompletion(program.grammar);
        files["zsh/_" + name] = MakeZshCompletion(program.grammar);
        files["fish/" + name + ".fish"] = MakeFishCompletion(program.grammar);
    }
    return files;
}

} // namespace Manual
