#include "Configuration/CommandLine.h"

#include "Configuration/ConfigurationFile.h"
#include "Configuration/Settings.h"
#include "Support/Wrap.h"
#include "Version.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

namespace Host {

namespace {

constexpr const char* description =
    "Serves files to OPC UA clients.\n"
    "\n"
    "By default it listens on loopback only, where anybody may log in unless there is a user "
    "file.\n"
    "On other addresses, users and encryption are required. The kernel confines the host to the\n"
    "folders that it serves.\n";

constexpr const char* footer =
    "\nConfiguration files are TOML. Their keys are the names of the flags without the dashes; a\n"
    "repeatable flag takes a list. Relative paths start at the folder of the file. Flags on the\n"
    "command line take precedence.\n"
    "\n"
    "    root = [\"/srv/files\", \"/srv/more\"]\n"
    "    users = \"/etc/talvensor/users\"\n"
    "    max-message = \"20MB\"\n"
    "    trust-any-client = false\n"
    "\n"
    "Exit status:\n"
    "    0    stopped by SIGINT or SIGTERM, or done\n"
    "    1    failed\n"
    "    2    wrong flags or configuration\n"
    "    3    refused to start: the host would be open to others\n"
    "    4    refused to start: the kernel allows no sandbox\n"
    "    5    stopped, but a node did not finish its queued work in time\n"
    "    128 + the signal's number: ended at once by a second signal\n";

constexpr std::size_t nameColumn = 32;
constexpr std::size_t textColumn = 64;

/// Formats the help: wraps descriptions, and hides the value of negative flags.
class HelpFormatter : public CLI::Formatter
{
public:
    HelpFormatter() { column_width(nameColumn); }

    /// Returns the names of an option without the value that a negative flag has.
    std::string make_option_name(const CLI::Option* option, bool isPositional) const override
    {
        auto name = CLI::Formatter::make_option_name(option, isPositional);
        constexpr std::string_view value = "{false}";
        if (const auto found = name.find(value); found != std::string::npos)
            name.erase(found, value.size());
        return name;
    }

    std::string make_option_desc(const CLI::Option* option) const override
    {
        return Support::Wrap(option->get_description(), textColumn);
    }
};

/// The grammar of the command line, and the values that it parsed.
class Grammar
{
public:
    Grammar()
    {
        app.name("talvensor-host");
        app.footer(footer);
        app.set_help_flag("-h,--help", "print this text");
        app.set_version_flag("--version", std::string("talvensor-host ") + GetVersion(),
                             "print the version");
        app.formatter(std::make_shared<HelpFormatter>());
        app.add_option("--config", configFile, "a configuration file")->type_name("FILE");
        check = app.add_flag("--check")->description(
            "check the configuration, report problems with line and key, and exit");
        for (const auto& setting : GetSettings())
            options[setting.name] = AddOption(setting);
        passwd = app.add_subcommand("passwd", "set a user's password in a user file");
        passwd->footer(
            "\nCreates the user file if it does not exist. Asks for the password if standard "
            "input\nis a terminal; otherwise reads the first line of standard input.\n");
        passwd->add_option("FILE", usersFile, "the user file")->required()->type_name("");
        passwd->add_option("USER", user, "the user's name")->required()->type_name("");
    }

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
        if (!configFile.empty())
            values = ReadConfigurationFile(configFile, problems);
        for (const auto& [name, option] : options) {
            if (option->count() > 0)
                values[name] = GetValues(name, *option);
        }
        auto configuration = ApplySettings(values, problems);
        if (!configFile.empty())
            configuration.file = std::filesystem::absolute(configFile);
        const auto more = FindProblems(configuration);
        problems.insert(problems.end(), more.begin(), more.end());
        if (problems.empty())
            return configuration;
        std::stable_sort(problems.begin(), problems.end(), IsEarlier);
        throw ConfigurationException(std::move(problems));
    }

    /// Orders problems: flags first, then the file from its top.
    static bool IsEarlier(const ConfigurationProblem& left, const ConfigurationProblem& right)
    {
        return left.place.line < right.place.line;
    }

    static std::vector<SettingValue> GetValues(const std::string& name, const CLI::Option& option)
    {
        std::vector<SettingValue> values;
        for (const auto& text : option.reduced_results())
            values.push_back({text, {.file = {}, .line = 0, .key = "--" + name}});
        return values;
    }

    CLI::App app{description};
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

} // namespace Host
