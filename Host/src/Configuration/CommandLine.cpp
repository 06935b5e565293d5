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
        rejected = AddCommand("rejected", "[--config PATH | --pki DIR]",
                              "list the certificates of refused clients");
        rejected->footer("Shows fingerprint (SHA-256), subject and validity of each, when it was "
                         "last refused, and from which address it came first; the latest comes "
                         "first. Anybody can send a certificate with any subject: compare the "
                         "fingerprint with the one that the client's operator tells you.");
        AddPkiOptions(*rejected);
        trust = AddCommand("trust", "[--config PATH | --pki DIR] FINGERPRINT",
                           "trust the certificate of a refused client");
        trust->footer("FINGERPRINT may be its beginning, at least eight hexadecimal digits, with "
                      "or without colons. The certificate moves to the trusted ones; a host that "
                      "runs takes it when it reloads.");
        AddPkiOptions(*trust);
        trust->add_option("FINGERPRINT", fingerprint)->required();
        own = AddCommand("fingerprint", "[--config PATH | --pki DIR]",
                         "show the fingerprint of this host's certificate");
        own->footer("Clients show the same fingerprint (SHA-256) when they see this host for the "
                    "first time. The host makes its certificate when it starts first.");
        AddPkiOptions(*own);
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
        if (rejected->parsed())
            return RejectedCommand{FindPkiFolder()};
        if (trust->parsed())
            return TrustCommand{FindPkiFolder(), fingerprint};
        if (own->parsed())
            return FingerprintCommand{FindPkiFolder()};
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

    void AddPkiOptions(CLI::App& command)
    {
        command.add_option("--config", configFile, "the configuration of the host")
            ->type_name("PATH");
        command.add_option("--pki", pkiFolder, "the host's folder of keys and certificates")
            ->type_name("DIR");
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

    /// Returns the values of the file, replaced by those of the flags, and adds their problems.
    Configuration ReadConfiguration(std::vector<ConfigurationProblem>& problems)
    {
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
        return configuration;
    }

    std::filesystem::path FindPkiFolder()
    {
        if (!pkiFolder.empty())
            return std::filesystem::absolute(pkiFolder);
        std::vector<ConfigurationProblem> problems;
        const auto configuration = ReadConfiguration(problems);
        if (!problems.empty())
            throw ConfigurationException(std::move(problems));
        return GetPkiFolder(configuration);
    }

    Configuration MakeConfiguration()
    {
        std::vector<ConfigurationProblem> problems;
        auto configuration = ReadConfiguration(problems);
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
    std::string pkiFolder; ///< of a command
    std::string fingerprint;
    CLI::Option* check = nullptr;
    CLI::App* passwd = nullptr;
    CLI::App* rejected = nullptr;
    CLI::App* trust = nullptr;
    CLI::App* own = nullptr;
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
