#include "Configuration/CommandLine.h"
#include "Configuration/InstalledFiles.h"
#include "Configuration/Settings.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace Host {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using Texts = std::vector<std::string>;

class ACommandLine : public testing::Test
{
protected:
    ACommandLine()
    {
        // The default folder of the key, which must not depend on who runs the tests.
        setenv("XDG_STATE_HOME", folder.MakeFolder("state").c_str(), 1);
    }

    static Command Parse(const Texts& arguments)
    {
        std::vector<const char*> pointers = {"talvensor-host"};
        for (const auto& argument : arguments)
            pointers.push_back(argument.c_str());
        return ParseCommandLine(static_cast<int>(pointers.size()), pointers.data());
    }

    /// With a root and a module, unless they are given in another way.
    Configuration Serve(Texts arguments) const
    {
        arguments.insert(arguments.end(), {"--root", root.string(), "--module", module.string()});
        return std::get<ServeCommand>(Parse(arguments)).configuration;
    }

    Configuration ServeFile(const std::string& content, Texts arguments = {}) const
    {
        arguments.insert(arguments.end(), {"--config", WriteFile(content).string()});
        return std::get<ServeCommand>(Parse(arguments)).configuration;
    }

    std::filesystem::path WriteFile(const std::string& content) const
    {
        return folder.MakeFile("host.toml", content);
    }

    /// Returns a text for each problem, without the folder's name.
    Texts GetProblems(const Texts& arguments) const
    {
        Texts texts;
        try {
            std::ignore = Parse(arguments);
        } catch (const ConfigurationException& error) {
            for (const auto& problem : error.GetProblems()) {
                auto text = problem.ToString();
                const auto prefix = folder.GetPath().string() + "/";
                for (auto at = text.find(prefix); at != std::string::npos; at = text.find(prefix))
                    text.erase(at, prefix.size());
                texts.push_back(text);
            }
        }
        return texts;
    }

    Texts GetFileProblems(const std::string& content) const
    {
        return GetProblems({"--check", "--config", WriteFile(content).string()});
    }

    TemporaryFolder folder;
    std::filesystem::path root = folder.MakeFolder("root");
    std::filesystem::path module = folder.MakeFile("libFiles.so");
    std::filesystem::path model = folder.MakeFile("Files.NodeSet2.xml");
    const std::string required = "root = 'root'\nmodule = 'libFiles.so'\n";
};

TEST_F(ACommandLine, HasDefaultsForEverythingButRoots)
{
    const auto configuration = Serve({});
    EXPECT_EQ(configuration.listen.ToString(), "opc.tcp://localhost:4840");
    EXPECT_THAT(configuration.roots, ElementsAre(root));
    EXPECT_THAT(configuration.readOnlyRoots, IsEmpty());
    EXPECT_THAT(configuration.modules, ElementsAre(module));
    EXPECT_THAT(configuration.nodes, ElementsAre("FileSystem"));
    EXPECT_TRUE(configuration.sharedNodes);
    EXPECT_FALSE(configuration.usersFile);
    EXPECT_FALSE(configuration.pkiFolder);
    EXPECT_FALSE(configuration.trustAnyClient);
    EXPECT_TRUE(configuration.sandbox);
    EXPECT_EQ(configuration.logLevel, Core::LogLevel::Information);
    EXPECT_FALSE(configuration.logFile);
    EXPECT_EQ(configuration.grace, 5s);
    EXPECT_EQ(configuration.drain, 10s);
    EXPECT_EQ(configuration.limits.messageSize, 20'000'000U);
    EXPECT_EQ(configuration.limits.messageChunks, 400U);
    EXPECT_EQ(configuration.limits.sessions, 100U);
    EXPECT_EQ(configuration.limits.subscriptionsPerSession, 20U);
    EXPECT_EQ(configuration.limits.fileSystemsPerSession, 4U);
    EXPECT_EQ(configuration.limits.queuedOutput, 64'000'000U);
    EXPECT_EQ(configuration.limits.queuedOutputPause, 4'000'000U);
    EXPECT_EQ(configuration.limits.queuedEventsPerSession, 64'000'000U);
    EXPECT_FALSE(configuration.limits.memory);
    EXPECT_EQ(configuration.limits.reservedDescriptors, 64U);
}

TEST_F(ACommandLine, SetsEverything)
{
    const auto users = folder.MakeFile("users");
    const auto configuration = Serve({"--listen",
                                      "opc.tcp://[::1]:0",
                                      "--read-only",
                                      folder.MakeFolder("more").string(),
                                      "--model",
                                      model.string(),
                                      "--node",
                                      "One",
                                      "--node",
                                      "Two",
                                      "--no-shared-nodes",
                                      "--no-file-objects",
                                      "--users",
                                      users.string(),
                                      "--pki",
                                      (folder.GetPath() / "pki").string(),
                                      "--trust-any-client",
                                      "--no-sandbox",
                                      "--log-level",
                                      "debug",
                                      "--log-file",
                                      (folder.GetPath() / "log").string(),
                                      "--grace",
                                      "250ms",
                                      "--drain",
                                      "2min",
                                      "--max-message",
                                      "1MiB",
                                      "--max-chunks",
                                      "1",
                                      "--max-sessions",
                                      "2",
                                      "--max-subscriptions",
                                      "3",
                                      "--max-file-systems",
                                      "0",
                                      "--max-queued-output",
                                      "5kB",
                                      "--pause-at-queued-output",
                                      "6",
                                      "--max-queued-events",
                                      "7 GB",
                                      "--max-memory",
                                      "8GiB",
                                      "--reserved-descriptors",
                                      "9"});
    EXPECT_EQ(configuration.listen.ToString(), "opc.tcp://[::1]:0");
    EXPECT_THAT(configuration.readOnlyRoots, ElementsAre(folder.GetPath() / "more"));
    EXPECT_THAT(configuration.models, ElementsAre(model));
    EXPECT_THAT(configuration.nodes, ElementsAre("One", "Two"));
    EXPECT_FALSE(configuration.sharedNodes);
    EXPECT_FALSE(configuration.fileObjects);
    EXPECT_EQ(configuration.usersFile, users);
    EXPECT_EQ(configuration.pkiFolder, folder.GetPath() / "pki");
    EXPECT_TRUE(configuration.trustAnyClient);
    EXPECT_FALSE(configuration.sandbox);
    EXPECT_EQ(configuration.logLevel, Core::LogLevel::Debug);
    EXPECT_EQ(configuration.logFile, folder.GetPath() / "log");
    EXPECT_EQ(configuration.grace, 250ms);
    EXPECT_EQ(configuration.drain, 2min);
    EXPECT_EQ(configuration.limits.messageSize, 1U << 20U);
    EXPECT_EQ(configuration.limits.messageChunks, 1U);
    EXPECT_EQ(configuration.limits.sessions, 2U);
    EXPECT_EQ(configuration.limits.subscriptionsPerSession, 3U);
    EXPECT_EQ(configuration.limits.fileSystemsPerSession, 0U);
    EXPECT_EQ(configuration.limits.queuedOutput, 5'000U);
    EXPECT_EQ(configuration.limits.queuedOutputPause, 6U);
    EXPECT_EQ(configuration.limits.queuedEventsPerSession, 7'000'000'000U);
    EXPECT_EQ(configuration.limits.memory, 8ULL << 30U);
    EXPECT_EQ(configuration.limits.reservedDescriptors, 9U);
}

TEST_F(ACommandLine, TakesSettingsFromAFile)
{
    const auto configuration =
        ServeFile(required + "max-sessions = 7\ngrace = 3\ndrain = '1500ms'\n"
                             "max-memory = 1000\nmax-message = '2MB'\n"
                             "sandbox = false\nnode = ['A', 'B']\n");
    EXPECT_EQ(configuration.limits.sessions, 7U);
    EXPECT_EQ(configuration.grace, 3s);
    EXPECT_EQ(configuration.drain, 1500ms);
    EXPECT_EQ(configuration.limits.memory, 1000U);
    EXPECT_EQ(configuration.limits.messageSize, 2'000'000U);
    EXPECT_FALSE(configuration.sandbox);
    EXPECT_THAT(configuration.nodes, ElementsAre("A", "B"));
    EXPECT_THAT(configuration.files, ElementsAre(folder.GetPath() / "host.toml"));
}

TEST_F(ACommandLine, TakesAFolderOfFilesWhoseLaterOnesReplaceValues)
{
    WriteFile(required + "max-sessions = 7\nmax-chunks = 8\nnode = ['A', 'B']\n");
    const auto more = folder.MakeFolder("conf.d");
    folder.MakeFile("conf.d/20.toml", "max-sessions = 20\n");
    folder.MakeFile("conf.d/10.toml", "max-sessions = 10\nnode = 'C'\nusers = '../users'\n");
    folder.MakeFile("conf.d/30.toml~", "nonsense");
    folder.MakeFile("conf.d/.#30.toml", "nonsense");
    folder.MakeFile("users");
    chmod((folder.GetPath() / "users").c_str(), 0600);
    const auto configuration =
        std::get<ServeCommand>(Parse({"--config", folder.GetPath().string()})).configuration;
    EXPECT_EQ(configuration.limits.sessions, 20U);
    EXPECT_EQ(configuration.limits.messageChunks, 8U);
    EXPECT_THAT(configuration.nodes, ElementsAre("C"));
    EXPECT_EQ(configuration.usersFile, folder.GetPath() / "users");
    EXPECT_THAT(configuration.files,
                ElementsAre(folder.GetPath() / "host.toml", more / "10.toml", more / "20.toml"));
}

TEST_F(ACommandLine, SeesPathsOfAFileFromTheFilesFolder)
{
    EXPECT_THAT(ServeFile(required).roots, ElementsAre(root));
    EXPECT_THAT(
        ServeFile("root = ['root', '" + root.string() + "']\nmodule = './libFiles.so'").roots,
        ElementsAre(root, root));
}

TEST_F(ACommandLine, WinsOverTheFile)
{
    const auto other = folder.MakeFolder("other");
    const auto configuration =
        ServeFile(required + "max-sessions = 7\nmax-chunks = 8\nsandbox = false\n"
                             "trust-any-client = true\nnode = ['A', 'B']\n",
                  {"--root", other.string(), "--max-sessions", "9", "--sandbox",
                   "--no-trust-any-client", "--node", "C"});
    EXPECT_THAT(configuration.roots, ElementsAre(other));
    EXPECT_EQ(configuration.limits.sessions, 9U);
    EXPECT_EQ(configuration.limits.messageChunks, 8U);
    EXPECT_TRUE(configuration.sandbox);
    EXPECT_FALSE(configuration.trustAnyClient);
    EXPECT_THAT(configuration.nodes, ElementsAre("C"));
}

TEST_F(ACommandLine, CanOnlyCheck)
{
    EXPECT_TRUE(std::holds_alternative<CheckCommand>(
        Parse({"--check", "--config", WriteFile(required).string()})));
}

TEST_F(ACommandLine, ReportsEverythingThatIsWrongInAFileWithLineAndKey)
{
    EXPECT_THAT(
        GetFileProblems("listen = 'http://localhost'\n"
                        "rooot = 'x'\n"
                        "root = ['root',\n"
                        "        'nowhere', 5]\n"
                        "max-sessions = 'many'\n"
                        "grace = '5 parsecs'\n"
                        "max-memory = 0\n"
                        "log-level = 'loud'\n"
                        "sandbox = 'no'\n"
                        "node = []\n"
                        "module = 'libFiles.so'\n"
                        "[log]\n"
                        "level = 'debug'\n"),
        ElementsAre(
            StartsWith("host.toml:1: listen: 'http://localhost' does not start with opc.tcp://"),
            "host.toml:2: rooot: there is no such setting",
            "host.toml:4: root: must be a text in quotes, or a list of these",
            "host.toml:4: root: 'nowhere' cannot be a root: No such file or directory",
            "host.toml:5: max-sessions: must be a whole number",
            StartsWith("host.toml:6: grace: '5 parsecs' is not a time"),
            "host.toml:7: max-memory: '0' must be more than 0",
            StartsWith("host.toml:8: log-level: 'loud' is not one of the levels off, error"),
            "host.toml:9: sandbox: must be true or false", "host.toml:10: node: the list is empty",
            "host.toml:12: log: there is no such setting"));
}

TEST_F(ACommandLine, SaysWhereAFileIsNotToml)
{
    const auto problems = GetFileProblems("root = 'root'\n\nmodule = \n");
    ASSERT_THAT(problems, SizeIs(1));
    EXPECT_THAT(problems.front(), StartsWith("host.toml:3: "));
    EXPECT_THAT(GetFileProblems("root = 'a'\nroot = 'b'\n"),
                ElementsAre(StartsWith("host.toml:2: ")));
}

TEST_F(ACommandLine, SaysWhenAFileCannotBeRead)
{
    EXPECT_THAT(GetProblems({"--config", (folder.GetPath() / "none.toml").string()}),
                ElementsAre("--config: cannot read 'none.toml': No such file or directory"));
    EXPECT_THAT(GetProblems({"--config", root.string()}),
                ElementsAre("--config: cannot read 'root/host.toml': No such file or directory"));
}

TEST_F(ACommandLine, ReportsWhatIsWrongWithItsFlags)
{
    EXPECT_THAT(GetProblems({"--max-chunks", "x", "--grace", "2d", "--root", root.string(),
                             "--module", module.string()}),
                ElementsAre("--grace: '2d' is not a time such as 5, 5s or 500ms (units: ms, s, "
                            "min, h)",
                            "--max-chunks: 'x' is not a whole number from 0 to 4294967295"));
    EXPECT_THAT(GetProblems({"--bogus"}), ElementsAre(HasSubstr("--bogus")));
    EXPECT_THAT(GetProblems({"--listen", "a", "--listen", "b"}),
                ElementsAre(HasSubstr("--listen")));
    EXPECT_THAT(GetProblems({"passwd", "file"}), ElementsAre(HasSubstr("USER")));
}

TEST_F(ACommandLine, NeedsARoot)
{
    EXPECT_THAT(GetProblems({}), Contains(StartsWith("--root: no folder to serve is given")));
}

TEST_F(ACommandLine, FindsModulesAndModelsOfItsOwnBuildWithoutAFlag)
{
    EXPECT_THAT(FindModules(Configuration{}), Contains(TALVENSOR_MODULE));
    EXPECT_THAT(FindModels(Configuration{}),
                Contains(GetModelFolder() / "Talvensor.FileSystem.NodeSet2.xml"));
}

TEST_F(ACommandLine, LeavesOutTheFileObjectsEvenIfTheirModuleIsNamed)
{
    Configuration configuration;
    configuration.modules = {"/a/libFiles.so", "/b/libTalvensor.FileObjects.so"};
    EXPECT_THAT(FindModules(configuration), SizeIs(2));
    configuration.fileObjects = false;
    EXPECT_THAT(FindModules(configuration), ElementsAre("/a/libFiles.so"));
}

TEST_F(ACommandLine, ReportsFilesThatAreNotThere)
{
    EXPECT_THAT(GetFileProblems("root = 'root'\nmodule = ['libFiles.so', 'libNone.so']\n"
                                "model = 'none.xml'\nusers = 'root'\nlog-file = 'none/log'\n"),
                ElementsAre("host.toml:2: module: 'libNone.so': No such file or directory",
                            "host.toml:3: model: 'none.xml': No such file or directory",
                            "host.toml:4: users: 'root' is not a regular file",
                            "host.toml:4: users: 'root' lies inside the root 'root', where clients "
                            "could change it",
                            "host.toml:5: log-file: there is no folder 'none'"));
}

TEST_F(ACommandLine, FindsTheModelBesideTheModule)
{
    EXPECT_THAT(FindModels(Serve({})), ElementsAre(model));
    std::filesystem::remove(model);
    EXPECT_THAT(GetProblems({"--root", root.string(), "--module", module.string()}),
                ElementsAre(AllOf(StartsWith("--module: "), HasSubstr("'Files.NodeSet2.xml'"),
                                  HasSubstr("share/talvensor/models/Files.NodeSet2.xml"))));
}

TEST_F(ACommandLine, KeepsSecretsOutOfTheRoots)
{
    folder.MakeFile("root/users");
    folder.MakeFile("root/libFiles.so");
    folder.MakeFile("root/Files.NodeSet2.xml");
    std::filesystem::create_symlink(root, folder.GetPath() / "link");
    EXPECT_THAT(
        GetFileProblems("root = 'root'\nmodule = 'root/libFiles.so'\n"
                        "users = 'link/users'\npki = 'link/not/yet'\n"
                        "log-file = 'root/log'\n"),
        ElementsAre(AllOf(StartsWith("host.toml:2: module: "), HasSubstr("could change it")),
                    AllOf(StartsWith("host.toml:3: users: "), HasSubstr("could change it")),
                    AllOf(StartsWith("host.toml:4: pki: "), HasSubstr("could change it")),
                    AllOf(StartsWith("host.toml:5: log-file: "), HasSubstr("could change it"))));
    EXPECT_THAT(GetFileProblems("read-only = '.'\nmodule = 'libFiles.so'\npki = 'pki'\n"),
                ElementsAre("host.toml:3: pki: 'pki' lies inside the root '" +
                            folder.GetPath().string() + "', where clients could read it"));
    EXPECT_THAT(GetFileProblems("root = '.'\nmodule = 'libFiles.so'\n"),
                Contains(AllOf(StartsWith("--config: "), HasSubstr("could change it"))));
}

TEST_F(ACommandLine, FindsContradictions)
{
    EXPECT_THAT(GetFileProblems(required + "read-only = 'root'\n"),
                ElementsAre("host.toml:3: read-only: the root 'root' is given both as read-only "
                            "and as writable"));
    EXPECT_THAT(GetFileProblems(required + "pause-at-queued-output = '65MB'\n"),
                ElementsAre(HasSubstr("is more than max-queued-output")));
}

TEST_F(ACommandLine, KeepsItsKeyInTheUsersStateUnlessTold)
{
    EXPECT_EQ(GetPkiFolder(Serve({})), folder.GetPath() / "state" / "talvensor" / "pki");
    unsetenv("XDG_STATE_HOME");
    setenv("HOME", folder.GetPath().c_str(), 1);
    EXPECT_EQ(GetPkiFolder(Serve({})), folder.GetPath() / ".local" / "state" / "talvensor" / "pki");
    unsetenv("HOME");
    EXPECT_THAT(GetProblems({"--root", root.string(), "--module", module.string()}),
                ElementsAre(AllOf(StartsWith("--pki: "), HasSubstr("XDG_STATE_HOME"))));
}

TEST_F(ACommandLine, SetsAPassword)
{
    const auto command = std::get<PasswordCommand>(Parse({"passwd", "users", "ann"}));
    EXPECT_EQ(command.usersFile, "users");
    EXPECT_EQ(command.user, "ann");
}

TEST_F(ACommandLine, ShowsHelpWithEverySettingAndItsVersion)
{
    const auto help = std::get<ShowCommand>(Parse({"--help"})).text;
    for (const auto& setting : GetSettings())
        EXPECT_THAT(help, HasSubstr("--" + setting.name)) << setting.name;
    EXPECT_THAT(std::get<ShowCommand>(Parse({"--version"})).text,
                testing::MatchesRegex("talvensor-host [0-9.]+\n"));
    EXPECT_THAT(std::get<ShowCommand>(Parse({"passwd", "--help"})).text, HasSubstr("USER"));
}

TEST(AListenUrl, HasAHostAndAPort)
{
    const auto parse = [](const std::string& text) {
        return ParseListenUrl(text).ToString();
    };
    EXPECT_EQ(parse("opc.tcp://localhost"), "opc.tcp://localhost:4840");
    EXPECT_EQ(parse("opc.tcp://files.example.org:1234/"), "opc.tcp://files.example.org:1234");
    EXPECT_EQ(parse("opc.tcp://0.0.0.0:0"), "opc.tcp://0.0.0.0:0");
    EXPECT_EQ(parse("opc.tcp://[2001:db8::1]:65535"), "opc.tcp://[2001:db8::1]:65535");
    EXPECT_EQ(parse("opc.tcp://[::]"), "opc.tcp://[::]:4840");
    EXPECT_EQ(ParseListenUrl("opc.tcp://[::1]:1").host, "::1");
}

TEST(AListenUrl, IsNothingElse)
{
    for (const auto* const text :
         {"", "localhost", "http://localhost:1", "opc.tcp://", "opc.tcp://:4840",
          "opc.tcp://a:", "opc.tcp://a:x", "opc.tcp://a:65536", "opc.tcp://a:-1", "opc.tcp://a:1x",
          "opc.tcp://a:1:2", "opc.tcp://[::1", "opc.tcp://[::1]x", "opc.tcp://[]:1",
          "opc.tcp://a/b:1", "opc.tcp://a b:1", "opc.tcp://a:1/path"})
        EXPECT_THROW(std::ignore = ParseListenUrl(text), Core::InvalidArgumentException) << text;
}

TEST(ASize, HasUnits)
{
    EXPECT_EQ(ParseSize("0"), 0U);
    EXPECT_EQ(ParseSize("12B"), 12U);
    EXPECT_EQ(ParseSize("3 kB"), 3'000U);
    EXPECT_EQ(ParseSize("9223372036854775807"), 9223372036854775807U);
    for (const auto* const text : {"", "MB", "-1", "1.5MB", "1mb", "1 M B", "9223372036854775808",
                                   "99999999999GB", "99999999999999999999", "0x10", " 1"})
        EXPECT_THROW(std::ignore = ParseSize(text), Core::InvalidArgumentException) << text;
}

TEST(ADuration, HasUnits)
{
    EXPECT_EQ(ParseDuration("0"), 0s);
    EXPECT_EQ(ParseDuration("7"), 7s);
    EXPECT_EQ(ParseDuration("7 ms"), 7ms);
    EXPECT_EQ(ParseDuration("24h"), 24h);
    for (const auto* const text : {"", "s", "-1s", "1d", "1.5s", "25h", "18446744073709551615"})
        EXPECT_THROW(std::ignore = ParseDuration(text), Core::InvalidArgumentException) << text;
}

} // namespace
} // namespace Host
