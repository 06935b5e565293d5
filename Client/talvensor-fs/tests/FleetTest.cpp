// One command on many hosts, some of which are down, stuck, slow, full, or refuse us.

#include "Fleet/HostList.h"
#include "Relay.h"
#include "SmallDisk.h"
#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <optional>
#include <sstream>
#include <thread>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

/// A port of this machine: without anybody behind it, or one that connects and says nothing.
class SilentPort
{
public:
    explicit SilentPort(bool listens)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(descriptor, any, size), 0);
        EXPECT_TRUE(!listens || listen(descriptor, 8) == 0);
        EXPECT_EQ(getsockname(descriptor, any, &size), 0);
        port = ntohs(address.sin_port);
    }
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;
    ~SilentPort() { HangUp(); }

    void HangUp()
    {
        if (descriptor >= 0)
            close(std::exchange(descriptor, -1));
    }

    [[nodiscard]] std::string GetUrl() const
    {
        return "opc.tcp://127.0.0.1:" + std::to_string(port);
    }

private:
    int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int port = 0;
};

/// A host with a root of its own.
struct OwnHost
{
    ClientTest::TemporaryFolder root;
    std::optional<ClientTest::HostProcess> process;

    void Start(const fs::path& pki, const std::vector<std::string>& flags = {},
               const std::string& address = "127.0.0.1")
    {
        process.emplace(root.GetPath(), flags, std::uint16_t{0},
                        ClientTest::HostStart{.address = address, .pki = pki});
    }
};

class AFleet : public testing::Test
{
protected:
    AFleet() { desk.environment.erase("TALVENSOR_ENDPOINT"); }

    /// One key for all hosts: it takes longer to make one than to start a host.
    [[nodiscard]] fs::path GetPki() const { return desk.GetHome() / "pki"; }

    /// Starts hosts several at a time; they are called good0 and so on.
    void StartGood(std::size_t count)
    {
        constexpr std::size_t atOnce = 6;
        good = std::vector<OwnHost>(count);
        good[0].Start(GetPki());
        for (std::size_t first = 1; first < count; first += atOnce) {
            std::vector<std::future<void>> starts;
            for (std::size_t i = first; i < std::min(first + atOnce, count); ++i)
                starts.push_back(
                    std::async(std::launch::async, [this, i] { good[i].Start(GetPki()); }));
            for (auto& start : starts)
                start.get();
        }
        for (std::size_t i = 0; i < count; ++i)
            AddProfile(NameGood(i), good[i].process->GetUrl());
    }

    static std::string NameGood(std::size_t number) { return "good" + std::to_string(number); }

    void AddProfile(const std::string& name, const std::string& url, const std::string& more = "")
    {
        profiles += "[" + name + "]\nendpoint = \"" + url + "\"\n" + more;
        members += (members.empty() ? "\"" : ", \"") + name + "\"";
    }

    /// Returns the settings of a profile whose user has this password.
    [[nodiscard]] std::string MakeLogin(const std::string& secret) const
    {
        const auto file = desk.GetHome() / secret;
        WriteFile(file, secret + "\n");
        fs::permissions(file, fs::perms::owner_read);
        return "user = \"" + std::string(userName) + "\"\npassword-file = \"" + file.string() +
               "\"\n";
    }

    /// All profiles make the group "line".
    void WriteProfiles() const
    {
        fs::create_directories(desk.GetHome() / ".config/talvensor");
        WriteFile(desk.GetHome() / ".config/talvensor/client.toml",
                  profiles + "[groups]\nline = [" + members + "]\nodd = [1]\n");
    }

    Desk desk;
    std::vector<OwnHost> good;

private:
    std::string profiles;
    std::string members;
};

/// Returns the rest of the line of standard error that begins so.
std::string FindLine(const std::string& text, const std::string& begin)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(begin))
            return line.substr(begin.size());
    return "no such line: " + begin;
}

std::vector<json> ParseObjects(const std::string& text)
{
    std::vector<json> objects;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        objects.push_back(json::parse(line));
    return objects;
}

TEST_F(AFleet, GetsAFileWhileSomeAreDownStuckSlowFullOrRefuseUs)
{
    std::thread([this] {
        constexpr std::size_t goodOnes = 29;
        SilentPort stuck(true);
        AddProfile("stuck", stuck.GetUrl(), "timeout = 3600\n");
        OwnHost slow;
        slow.Start(GetPki());
        ClientTest::Relay slowWay(slow.process->GetPort());
        slowWay.HoldAfter(SmallDisk::size); // half of the file is not there by then
        AddProfile("slow", slowWay.GetUrl(), "timeout = 3600\n");
        StartGood(goodOnes);
        std::vector<std::unique_ptr<SilentPort>> down;
        for (int i = 0; i < 5; ++i) {
            down.push_back(std::make_unique<SilentPort>(false));
            AddProfile("down" + std::to_string(i), down.back()->GetUrl());
        }
        const SmallDisk disk;
        const ClientTest::HostProcess full(disk.GetPath(), {}, std::uint16_t{0},
                                           ClientTest::HostStart{.pki = GetPki()});
        disk.Limit(full.GetProcess());
        AddProfile("full", full.GetUrl());
        const ClientTest::TemporaryFolder users;
        const auto userFile = Desk::MakeUserFile(users.GetPath()).string();
        OwnHost withUsers;
        withUsers.Start(GetPki(), {"--users", userFile});
        AddProfile("wrongpassword", withUsers.process->GetUrl(), MakeLogin("wrong"));
        AddProfile("nopassword", withUsers.process->GetUrl(), "user = \"bob\"\n");
        // One for other machines too lets in those clients alone whose certificates it trusts.
        OwnHost distrusting;
        distrusting.Start(GetPki(), {"--users", userFile}, "0.0.0.0");
        AddProfile("distrusting", distrusting.process->GetUrl(), MakeLogin(password));
        WriteProfiles();
        MakeMarkedFile(desk.GetLocal("fw.bin"), 2 * SmallDisk::size);

        Terminal terminal(
            desk,
            {"--accept-new", "--connect-timeout", "3600", "--on", "@line", "put", "fw.bin", "."},
            200);
        // Those that are stuck and slow began first; all others end before them.
        ASSERT_TRUE(terminal.WaitFor("38 of 40 hosts ended; under way: stuck slow"))
            << terminal.GetSeen();
        EXPECT_TRUE(slowWay.IsHolding());
        EXPECT_LT(fs::file_size(slow.root.GetPath() / "fw.bin"), 2 * SmallDisk::size);
        slowWay.Release();
        ASSERT_TRUE(terminal.WaitFor("39 of 40 hosts ended; under way: stuck"))
            << terminal.GetSeen();
        EXPECT_THAT(terminal.GetSeen(), HasSubstr("slow: done"));
        EXPECT_TRUE(AreSame(desk.GetLocal("fw.bin"), slow.root.GetPath() / "fw.bin"));
        EXPECT_THAT(terminal.GetSeen(), Not(HasSubstr("stuck: ")));
        stuck.HangUp();
        EXPECT_EQ(terminal.WaitForEnd(), 4);
        const auto& seen = terminal.GetSeen();
        EXPECT_THAT(seen, HasSubstr("stuck: no connection"));
        EXPECT_THAT(seen, HasSubstr("down3: no connection"));
        EXPECT_THAT(seen, HasSubstr("full: failed"));
        EXPECT_THAT(seen, HasSubstr("wrongpassword: refused"));
        EXPECT_THAT(seen, HasSubstr("distrusting: refused"));
        EXPECT_THAT(seen, HasSubstr("it does not trust the certificate of this client"));
        EXPECT_THAT(seen, HasSubstr("nopassword: wrong settings"));
        EXPECT_THAT(seen, HasSubstr("40 hosts: 30 done, 1 failed, 6 no connection, 2 refused, 1 "
                                    "wrong settings"));
        for (const auto& host : good)
            EXPECT_TRUE(AreSame(desk.GetLocal("fw.bin"), host.root.GetPath() / "fw.bin"));
    }).join(); // what is unshared goes with the thread
}

TEST_F(AFleet, IsListedWithTheHostBeforeEachLine)
{
    StartGood(2);
    WriteProfiles();
    WriteFile(good[0].root.GetPath() / "one", "");
    WriteFile(good[1].root.GetPath() / "a", "");
    WriteFile(good[1].root.GetPath() / "b", "");
    auto result = desk.Run({"--accept-new", "--on", "good1", "ls"});
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(result.output, "good1: a\ngood1: b\n");
    result = desk.Run({"--accept-new", "--json", "--on", "good0,good1", "ls"});
    EXPECT_EQ(result.error, FindLine(result.error, "") + "\n") << "but for the trust";
    std::map<std::string, int> count;
    for (const auto& object : ParseObjects(result.output))
        ++count[object["host"].get<std::string>() +
                (object.contains("status") ? object["status"] : object["path"]).get<std::string>()];
    EXPECT_EQ(
        count,
        (std::map<std::string, int>{
            {"good0one", 1}, {"good0done", 1}, {"good1a", 1}, {"good1b", 1}, {"good1done", 1}}));
}

TEST_F(AFleet, ComesFromStandardInput)
{
    StartGood(2);
    WriteProfiles();
    const auto result =
        desk.Run({"--accept-new", "--on", "-", "-q", "exists", "."},
                 "# all of them\ngood0\n\n" + good[1].process->GetUrl() + "\ngood0\n");
    EXPECT_EQ(result.status, 0) << result.error;
    const auto listed =
        desk.Run({"--on", "-", "mkdir", "made"}, "good0\n" + good[1].process->GetUrl() + "\n");
    EXPECT_EQ(listed.status, 0) << listed.error;
    EXPECT_THAT(listed.error, HasSubstr("2 hosts: 2 done"));
    for (const auto& host : good)
        EXPECT_TRUE(fs::is_directory(host.root.GetPath() / "made"));
}

TEST_F(AFleet, HasEachServerOnceForEachUser)
{
    const auto find = [this](const std::string& list) {
        std::vector<std::string> names;
        for (const auto& host :
             Cli::FindHosts(list, desk.GetHome() / ".config/talvensor/client.toml", {}))
            names.push_back(host.name);
        return names;
    };
    AddProfile("one", "PLC1");
    AddProfile("ann", "opc.tcp://plc1", "user = \"ann\"\n");
    AddProfile("other", "plc1:4841");
    WriteProfiles();
    EXPECT_THAT(find("opc.tcp://h,opc.tcp://h:4840,opc.tcp://H/,opc.tcp://h:4841"),
                testing::ElementsAre("h", "h:4841"));
    EXPECT_THAT(find("opc.tcp://[::1],opc.tcp://[::1]:4840"), testing::ElementsAre("[::1]"));
    EXPECT_THAT(find("@line,opc.tcp://plc1:4840"), testing::ElementsAre("one", "ann", "other"));
}

TEST_F(AFleet, FillsADirectoryForEachHost)
{
    StartGood(2);
    WriteProfiles();
    for (std::size_t i = 0; i < good.size(); ++i)
        WriteFile(good[i].root.GetPath() / "log", NameGood(i));
    const auto result = desk.Run({"--accept-new", "--on", "@line", "get", "log", "logs"});
    EXPECT_EQ(result.status, 0) << result.error;
    for (std::size_t i = 0; i < good.size(); ++i)
        EXPECT_EQ(ReadFile(desk.GetLocal("logs/" + NameGood(i) + "/log")), NameGood(i));
    const auto table = FindLine(result.error, "good1  ");
    EXPECT_THAT(table, HasSubstr("done"));
    EXPECT_THAT(table, HasSubstr("5 B"));
}

TEST_F(AFleet, SaysWhyACommandFailedOnEach)
{
    StartGood(1);
    WriteProfiles();
    const auto result = desk.Run({"--accept-new", "--on", "@line", "rm", "nothing"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(FindLine(result.error, "good0  "), HasSubstr("nothing"));
    EXPECT_THAT(FindLine(result.error, "good0: nothing"), HasSubstr("No such file"));
}

TEST_F(AFleet, TrustsNobodyUnasked)
{
    StartGood(1);
    WriteProfiles();
    const auto result = desk.Run({"--on", "good0", "ls"});
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.error, HasSubstr("good0: refused"));
    EXPECT_THAT(result.error, HasSubstr("--accept-new"));
}

TEST_F(AFleet, IsNotBegunWithWrongNamesOrCommands)
{
    AddProfile("one", "opc.tcp://127.0.0.1:1");
    WriteProfiles();
    const auto expectRefused = [this](const std::vector<std::string>& arguments,
                                      const std::string& why) {
        const auto result = desk.Run(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.error, HasSubstr(why));
        EXPECT_THAT(result.error, Not(HasSubstr("one:")));
    };
    expectRefused({"--on", "one,two", "ls"}, "has no profile [two]");
    expectRefused({"--on", "@none", "ls"}, "has no group none");
    expectRefused({"--on", "@odd", "ls"}, "the group odd takes a list of profiles");
    expectRefused({"--on", ",", "ls"}, "--on names no host");
    expectRefused({"--on", "one", "-e", "opc.tcp://h", "ls"}, "cannot be combined with -e");
    expectRefused({"--on", "one", "shell"}, "the shell is for one host");
    expectRefused({"--on", "one", "watch"}, "watch is for one host");
    expectRefused({"--on", "one", "put", "-", "x"}, "standard input");
    expectRefused({"--on", "one", "get", "x", "-"}, "standard output");
}

TEST_F(AFleet, EndsWithControlCAndNamesWhatIsUnfinished)
{
    const SilentPort first(true);
    const SilentPort second(true);
    const SilentPort third(true);
    AddProfile("first", first.GetUrl());
    AddProfile("second", second.GetUrl());
    AddProfile("third", third.GetUrl());
    WriteProfiles();
    Terminal terminal(desk, {"--connect-timeout", "3600", "--parallel", "2", "--on", "@line", "ls"},
                      120);
    ASSERT_TRUE(terminal.WaitFor("under way: first second")) << terminal.GetSeen();
    terminal.Type(controlC);
    EXPECT_EQ(terminal.WaitForEnd(), 130);
    EXPECT_THAT(terminal.GetSeen(), HasSubstr("interrupted: unfinished: first, second"));
    EXPECT_THAT(terminal.GetSeen(), HasSubstr("interrupted: not begun: third"));
}

} // namespace
} // namespace CliTest
