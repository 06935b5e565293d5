#include "Configuration/CommandLine.h"

#include "CommandLine/HelpFormatter.h"
#include "Configuration/ConfigurationFile.h"
#include "Configuration/Manual.h"
#include "Configuration/Settings.h"
#include "Version.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <tuple>
#include <utility>

namespace Host {

namespace {

/// The grammar of the command line, and the values that it parsed.
class Grammar
{
public:
    Grammar()
    {
        app.name("talvensor-host");
        app.formatter(formatter);
        formatter->SetUsage(app, "talvensor-host [OPTION]... --root DIR\n"
                                 "talvensor-host COMMAND ...");
        formatter->SetManual(app, GetManual());
        app.set_help_flag("-h,--help", "print this text");
        app.set_version_flag("--version", std::string("talvensor-host ") + GetVersion(),
                             "print the version");
        app.add_option("--config", configFile,
                       "a configuration file, or a folder with host.toml and conf.d/*.toml")
            ->type_name("PATH");
        check = app.add_flag("--check")->description(
            "check the configuration, report problems with line and key, and exit");
        for (const auto& setting : GetSettings())
            options[setting.name] = AddOption(setting);
        passwd = AddCommand("passwd", "FILE USER", "set a user's password in a user file");
        passwd->footer("Creates the user file if it does not exist. Asks for the password if "
                       "standard input is a terminal; otherwise reads the first line of standard "
                       "input.");
        passwd->add_option("FILE", usersFile)->required();
        passwd->add_option("USER", user)->required();
    }

    [[nodiscard]] CommandLine::Command Describe() const { return formatter->Describe(app); }

    Command Parse(int argumentCount, const char* const* arguments)
    {
        try {
            app.parse(argumentCount, arguments);
        } catch (const CLI::CallForVersion& version) {
            return ShowCommand{std::string(version.what()) + "\n"};
        } catch (const CLI::CallForHelp&) {
            return ShowCommand{app.help()};
        } catch (const CLI::ParseError& error) {
            throw ConfigurationException(std::vector{ConfigurationProblem{{}, error.what()}});
        }
        if (passwd->parsed())
            return PasswordCommand{usersFile, user};
        auto configuration = MakeConfiguration();
        if (check->count() > 0)
            return CheckCommand{std::move(configuration)};
        return ServeCommand{std::move(configuration)};
    }

private:
    CLI::App* AddCommand(const std::string& name, const std::string& arguments,
                         const std::string& text)
    {
        auto* const command = app.add_subcommand(name, text);
        formatter->SetUsage(*command, "talvensor-host " + name + ' ' + arguments);
        return command;
    }

    CLI::Option* AddOption(const Setting& setting)
    {
        const auto flag = "--" + setting.name;
        auto* const option = setting.kind == SettingKind::Flag
                                 ? app.add_flag(flag + ",!--no-" + setting.name)
                                 : AddOptionWithValue(flag, setting);
        option->description(setting.help + (setting.isRepeatable ? "; repeatable" : ""));
        return option->group(setting.group);
    }

    CLI::Option* AddOptionWithValue(const std::string& flag, const Setting& setting)
    {
        return app.add_option(flag)
            ->type_name(setting.placeholder)
            ->allow_extra_args(false)
            ->multi_option_policy(setting.isRepeatable ? CLI::MultiOptionPolicy::TakeAll
                                                       : CLI::MultiOptionPolicy::Throw);
    }

    /// Returns the values of the file, replaced by those of the flags.
    Configuration MakeConfiguration()
    {
        std::vector<ConfigurationProblem> problems;
        SettingValues values;
        const auto files = FindConfigurationFiles(configFile);
        for (const auto& file : files) {
            for (auto& [name, fromFile] : ReadConfigurationFile(file, problems))
                values[name] = std::move(fromFile);
        }
        for (const auto& [name, option] : options) {
            if (option->count() > 0)
                values[name] = GetValues(name, *option);
        }
        auto configuration = ApplySettings(values, problems);
        for (const auto& file : files)
            configuration.files.push_back(std::filesystem::absolute(file));
        const auto more = FindProblems(configuration);
        problems.insert(problems.end(), more.begin(), more.end());
        if (problems.empty())
            return configuration;
        std::stable_sort(problems.begin(), problems.end(), IsEarlier);
        throw ConfigurationException(std::move(problems));
    }

    /// Orders problems: flags first, then each file from its top.
    static bool IsEarlier(const ConfigurationProblem& left, const ConfigurationProblem& right)
    {
        return std::tie(left.place.file, left.place.line) <
               std::tie(right.place.file, right.place.line);
    }

    static std::vector<SettingValue> GetValues(const std::string& name, const CLI::Option& option)
    {
        std::vector<SettingValue> values;
        for (const auto& text : option.reduced_results())
            values.push_back({text, {.file = {}, .line = 0, .key = "--" + name}});
        return values;
    }

    const std::shared_ptr<CommandLine::HelpFormatter> formatter =
        std::make_shared<CommandLine::HelpFormatter>();
    CLI::App app{GetManual().description};
    std::string configFile;
    std::string usersFile;
    std::string user;
    CLI::Option* check = nullptr;
    CLI::App* passwd = nullptr;
    std::map<std::string, CLI::Option*> options;
};

} // namespace

Command ParseCommandLine(int argumentCount, const char* const* arguments)
{
    return Grammar().Parse(argumentCount, arguments);
}

CommandLine::Command DescribeCommandLine()
{
    return Grammar().Describe();
}

} // namespace Host
