#include "Grammar.h"

#include "CommandLine/HelpFormatter.h"
#include "Manual.h"
#include "Text.h"
#include "Times.h"
#include "Version.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <sstream>
#include <utility>

namespace Cli {

namespace {

constexpr const char* putFooter =
    "REMOTE is a directory to put into, or the new name of the one LOCAL. LOCAL - is standard "
    "input. A path that ends in . or .. stands for the contents of that directory.\n"
    "\n"
    "The server has no rename, so put writes in place: it overwrites the target from the start, "
    "and a reader sees a part meanwhile. After an interruption the target holds the part that "
    "was sent, under its own name and with another time than the source. put names these files, "
    "and put --continue carries on at their ends, unless the source or the target has changed "
    "since.\n"
    "\n"
    "Times are set to whole seconds. The server can set two permissions: executable (if the owner "
    "may execute the source) and read-only (if nobody may write to it).";

constexpr const char* getFooter =
    "LOCAL is a directory to put into, or the new name of the one REMOTE; - is standard output. "
    "A path that ends in . or .. stands for the contents of that directory.\n"
    "\n"
    "A file has another name beside its target until it is complete, and then replaces the "
    "target at once: an interruption leaves the target as it was, and get --continue carries on. "
    "Times are set to whole seconds. Permissions cannot be read from the server and are not set.";

constexpr const char* listFooter =
    "-l shows the kind (d: directory; -: file or anything else), the time in local time, and the "
    "name: permissions and owners cannot be read from the server. Sizes cost a few round trips "
    "for each file. On a terminal, control characters in names are shown as \\xNN; elsewhere "
    "names are printed as they are.";

constexpr const char* watchFooter =
    "All clients hear a shared node: its events are the results of all their calls. Without NODE, "
    "the first shared node of the server is watched; info names them.";

constexpr const char* chmodFooter =
    "MODE is +x (everyone may execute), readonly (everyone may read, nobody may write), or both: "
    "+x,readonly. The server can set nothing else, and cannot take it back. The file must be "
    "writable.";

constexpr const char* touchFooter =
    "TIME is YYYY-MM-DD HH:MM:SS in local time, with Z or +HH:MM behind it in that zone, or "
    "@SECONDS since 1970. touch creates no file.";

// The parser takes "[a,b]" for a list, and does not heed "--" behind paths. A mark before what it
// would mistake keeps it from that.
constexpr char mark = '\x01';

std::vector<std::string> Mask(const std::vector<std::string>& arguments)
{
    std::vector<std::string> masked;
    bool isBehindOptions = false;
    for (const auto& argument : arguments) {
        if (argument == "--" && !isBehindOptions)
            isBehindOptions = true;
        else if (isBehindOptions || argument.starts_with('[') || argument.starts_with(mark))
            masked.push_back(mark + argument);
        else
            masked.push_back(argument);
    }
    return masked;
}

std::string Unmask(const std::string& argument)
{
    return argument.starts_with(mark) ? argument.substr(1) : argument;
}

std::vector<std::string> GetTexts(const CLI::Option* option)
{
    // The raw results: those that are converted have lost lists and empty texts.
    std::vector<std::string> texts;
    for (const auto& text : option->results())
        texts.push_back(Unmask(text));
    return texts;
}

/// Throws InvalidArgumentException when there are none.
std::vector<std::string> GetPaths(const CLI::App* command, const CLI::Option* option)
{
    auto paths = GetTexts(option);
    if (paths.empty())
        throw Client::InvalidArgumentException(command->get_name() + " needs a path");
    return paths;
}

std::optional<std::string> GetText(const CLI::Option* option)
{
    if (option->count() == 0)
        return std::nullopt;
    return Unmask(option->results().back());
}

CLI::Option* AddFlag(CLI::App& app, const std::string& flag, const std::string& text)
{
    return app.add_flag(flag)->description(text);
}

bool IsSet(const CLI::Option* option)
{
    return option->count() > 0;
}

Client::Permissions ParsePermissions(const std::string& text)
{
    Client::Permissions permissions;
    std::istringstream modes(text);
    for (std::string mode; std::getline(modes, mode, ',');) {
        if (mode == "+x")
            permissions.executable = true;
        else if (mode == "readonly")
            permissions.readOnly = true;
        else
            throw Client::InvalidArgumentException("'" + text +
                                                   "' is not a mode: +x, readonly, or both");
    }
    return permissions;
}

/// The place in which the commands are typed.
enum class Place
{
    CommandLine,
    Shell,
};

/// The commands of a grammar, and which of them was given.
class CommandGrammar
{
public:
    CommandGrammar(CLI::App& app, Place place)
        : app(app)
        , place(place)
        , formatter(std::make_shared<CommandLine::HelpFormatter>())
    {
        app.formatter(formatter);
        formatter->SetUsage(app,
                            place == Place::Shell ? "COMMAND ..." : GetManual().synopsis.front());
        if (place == Place::CommandLine)
            formatter->SetManual(app, GetManual());
        app.set_help_flag("-h,--help", "print this text");
        app.require_subcommand(0, 1);
        quiet = AddFlag(app, "-q,--quiet", "print errors only: no progress, no totals");
        json = AddFlag(app, "--json",
                       "print the results of ls, info, watch, put and get as JSON, one object on "
                       "a line");
        AddListing();
        AddTransfers();
        AddChanges();
        AddServer();
        if (place == Place::Shell)
            AddShellCommands();
    }

    /// Throws InvalidArgumentException. REQUIRES: it was parsed.
    [[nodiscard]] Command MakeCommand() const
    {
        const auto given = app.get_subcommands();
        if (given.empty())
            throw Client::InvalidArgumentException("no command given: --help lists them");
        return makers.at(given.front())();
    }

    [[nodiscard]] CommandLine::Command Describe() const { return formatter->Describe(app); }

    [[nodiscard]] OutputChoice GetChoice() const
    {
        return {.isQuiet = IsSet(quiet), .isJson = IsSet(json)};
    }

private:
    struct Transfer
    {
        CLI::App* command;
        CLI::Option* paths;
        CLI::Option* recursive;
        CLI::Option* resumes;
        CLI::Option* verifies;
        std::shared_ptr<std::size_t> jobs;
    };

    CLI::App* Add(const std::string& name, const std::string& arguments, const std::string& text,
                  const std::string& end = "")
    {
        auto* const command = app.add_subcommand(name, text);
        command->fallthrough();
        command->group("Commands");
        command->footer(end);
        formatter->SetUsage(*command, (place == Place::Shell ? "" : "talvensor-fs ") + name +
                                          (arguments.empty() ? "" : " " + arguments));
        return command;
    }

    /// Adds the arguments behind a command that have no name; the usage line shows them.
    static CLI::Option* AddPaths(CLI::App* command)
    {
        return command->add_option("PATHS")
            ->expected(0, CLI::detail::expected_max_vector_size)
            ->allow_extra_args()
            ->group("");
    }

    static CLI::Option* AddPositional(CLI::App* command)
    {
        return command->add_option("PATH")->group("");
    }

    void AddListing()
    {
        auto* const command =
            Add("ls", "[-R] [-l] [-s] [-0] [PATH]", "list a directory", listFooter);
        auto* const path = AddPositional(command);
        auto* const recursive = AddFlag(*command, "-R,--recursive", "list subdirectories, too");
        auto* const isLong = AddFlag(*command, "-l,--long", "show kind, time and name");
        auto* const sizes =
            AddFlag(*command, "-s,--size", "show the sizes of files, found by reading");
        auto* const zero = AddFlag(*command, "-0,--print0",
                                   "print names as they are, each with a zero byte behind it");
        makers[command] = [=] {
            return ListCommand{.path = GetText(path).value_or("."),
                               .isRecursive = IsSet(recursive),
                               .isLong = IsSet(isLong),
                               .hasSizes = IsSet(sizes),
                               .endsWithZero = IsSet(zero)};
        };
        AddForPaths<CatCommand>("cat", "REMOTE...", "write files to standard output");
        AddForPaths<ExistsCommand>("exists", "PATH...",
                                   "print the kind of each path; fail if one is missing");
    }

    /// A command that takes paths and nothing else.
    template <typename PathsCommand>
    void AddForPaths(const std::string& name, const std::string& arguments, const std::string& text)
    {
        auto* const command = Add(name, arguments, text);
        auto* const paths = AddPaths(command);
        makers[command] = [command, paths] {
            return PathsCommand{GetPaths(command, paths)};
        };
    }

    Transfer AddTransfer(const std::string& name, const std::string& arguments,
                         const std::string& text, const std::string& end)
    {
        auto* const command = Add(name, "[-r] [-c] [--verify] [-j COUNT] " + arguments, text, end);
        auto jobs = std::make_shared<std::size_t>(2);
        command->add_option("-j,--jobs", *jobs, "transfer so many large files at once, 1 to 64 (2)")
            ->type_name("COUNT")
            ->check(CLI::Range(1, 64).description(""));
        return {.command = command,
                .paths = AddPaths(command),
                .recursive =
                    AddFlag(*command, "-r,--recursive", "transfer directories with their contents"),
                .resumes =
                    AddFlag(*command, "-c,--continue",
                            "carry on at the place where an earlier transfer broke off; start "
                            "over if source or target have changed since"),
                .verifies = AddFlag(*command, "--verify", "compare the contents afterwards"),
                .jobs = jobs};
    }

    /// In the shell one path is enough: the target is the current directory then.
    template <typename Made>
    [[nodiscard]] Made MakeTransfer(const Transfer& parts) const
    {
        auto paths = GetTexts(parts.paths);
        if (paths.size() == 1 && place == Place::Shell)
            paths.emplace_back(".");
        if (paths.size() < 2)
            throw Client::InvalidArgumentException(parts.command->get_name() +
                                                   " needs a source and a target");
        Made made;
        made.target = paths.back();
        paths.pop_back();
        made.sources = std::move(paths);
        made.isRecursive = IsSet(parts.recursive);
        made.resumes = IsSet(parts.resumes);
        made.verifies = IsSet(parts.verifies);
        made.jobs = *parts.jobs;
        return made;
    }

    void AddTransfers()
    {
        const auto put =
            AddTransfer("put", "LOCAL... REMOTE", "send files to the server", putFooter);
        makers[put.command] = [this, put] {
            return MakeTransfer<PutCommand>(put);
        };
        const auto get =
            AddTransfer("get", "REMOTE... LOCAL", "fetch files from the server", getFooter);
        makers[get.command] = [this, get] {
            return MakeTransfer<GetCommand>(get);
        };
    }

    void AddChanges()
    {
        auto* const remove = Add("rm", "[-r] [-f] PATH...", "delete files");
        auto* const removed = AddPaths(remove);
        auto* const recursive =
            AddFlag(*remove, "-r,--recursive", "delete directories with their contents");
        auto* const force = AddFlag(*remove, "-f,--force", "do not fail if a path is missing");
        makers[remove] = [=] {
            return RemoveCommand{.paths = GetPaths(remove, removed),
                                 .isRecursive = IsSet(recursive),
                                 .mayBeMissing = IsSet(force)};
        };
        AddForPaths<MakeDirectoryCommand>("mkdir", "PATH...",
                                          "create directories, and those above them");
        auto* const touch =
            Add("touch", "[-d TIME] PATH...", "set the time of files and directories", touchFooter);
        auto* const touched = AddPaths(touch);
        auto* const time =
            touch->add_option("-d,--date")->description("set this time (now)")->type_name("TIME");
        makers[touch] = [=] {
            TouchCommand made{.paths = GetPaths(touch, touched), .time = std::nullopt};
            if (const auto text = GetText(time))
                made.time = ParseTime(*text);
            return made;
        };
        AddPermissions();
    }

    void AddPermissions()
    {
        auto* const command = Add("chmod", "MODE PATH...", "set permissions", chmodFooter);
        auto* const words = AddPaths(command);
        makers[command] = [words] {
            auto texts = GetTexts(words);
            if (texts.size() < 2)
                throw Client::InvalidArgumentException("chmod needs a mode and paths");
            const auto permissions = ParsePermissions(texts.front());
            texts.erase(texts.begin());
            return PermissionsCommand{.paths = std::move(texts), .permissions = permissions};
        };
    }

    void AddServer()
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

    template <typename PlainCommand>
    void AddPlain(const std::string& name, const std::string& text)
    {
        makers[Add(name, "", text)] = [] {
            return PlainCommand{};
        };
    }

    void AddShellCommands()
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

    [[nodiscard]] std::string MakeHelp(const std::optional<std::string>& topic) const
    {
        if (!topic) // the help of `app` would be that of the command "help"
            return formatter->make_help(&app, "", CLI::AppFormatMode::Normal);
        try {
            return app.get_subcommand(*topic)->help();
        } catch (const CLI::OptionNotFound&) {
            throw Client::InvalidArgumentException(*topic + ": no such command");
        }
    }

    template <typename FolderCommand>
    void AddWithFolder(const std::string& name, const std::string& text)
    {
        auto* const command = Add(name, "[PATH]", text);
        auto* const path = AddPositional(command);
        makers[command] = [path] {
            return FolderCommand{GetText(path).value_or("")};
        };
    }

    CLI::App& app;
    const Place place;
    const std::shared_ptr<CommandLine::HelpFormatter> formatter;
    CLI::Option* quiet = nullptr;
    CLI::Option* json = nullptr;
    std::map<const CLI::App*, std::function<Command()>> makers;
};

/// The options of the connection.
class ConnectionGrammar
{
public:
    explicit ConnectionGrammar(CLI::App& app)
        : endpoint(Add(app, "-e,--endpoint", "URL", "the server, opc.tcp://HOST:PORT"))
        , profile(Add(app, "--profile", "NAME", "take settings from this profile"))
        , user(Add(app, "-u,--user", "NAME", "log in as this user (anonymous)"))
        , passwordFile(Add(app, "--password-file", "FILE",
                           "read the password from the first line of this file; nobody else may "
                           "read it"))
        , security(Add(app, "--security", "auto|plain|encrypted",
                       "auto: encrypted if the server offers it (encrypted with a user, "
                       "otherwise auto)"))
        , timeout(Add(app, "--timeout", "SECONDS",
                      "give up on a call after so long without a sign of life (60)"))
        , fingerprint(Add(app, "--trust-fingerprint", "FP",
                          "trust the server with this certificate (SHA-256) and no other"))
        , acceptsNew(AddFlag(app, "--accept-new",
                             "trust a server that was never seen before without asking; a changed "
                             "certificate is still refused")
                         ->group(groupName))
    {}

    [[nodiscard]] ConnectionSettings GetSettings() const
    {
        ConnectionSettings settings;
        settings.endpoint = GetText(endpoint);
        settings.user = GetText(user);
        settings.passwordFile = GetText(passwordFile);
        if (const auto text = GetText(security))
            settings.security = ParseSecurity(*text);
        if (const auto text = GetText(timeout))
            settings.timeout = ParseTimeout(*text);
        return settings;
    }

    [[nodiscard]] std::optional<std::string> GetProfile() const { return GetText(profile); }

    [[nodiscard]] Trust::Options GetTrust() const
    {
        Trust::Options options{.fingerprint = std::nullopt, .acceptsNew = IsSet(acceptsNew)};
        if (const auto text = GetText(fingerprint))
            options.fingerprint = ParseFingerprint(*text);
        return options;
    }

private:
    static constexpr const char* groupName = "Connection";

    static CLI::Option* Add(CLI::App& app, const std::string& flag, const std::string& placeholder,
                            const std::string& text)
    {
        return app.add_option(flag)->type_name(placeholder)->description(text)->group(groupName);
    }

    CLI::Option* const endpoint;
    CLI::Option* const profile;
    CLI::Option* const user;
    CLI::Option* const passwordFile;
    CLI::Option* const security;
    CLI::Option* const timeout;
    CLI::Option* const fingerprint;
    CLI::Option* const acceptsNew;
};

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
