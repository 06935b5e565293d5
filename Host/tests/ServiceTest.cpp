// The host as a service manager runs it: real datagrams to the socket of NOTIFY_SOCKET, and lines
// for the journal.

#include "Process/ServiceNotifier.h"

#include "Core/Exception.h"
#include "Log/Journal.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <system_error>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Host {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

/// The end of a service manager: a datagram socket, at a path or with an abstract name ("@...").
class ManagerSocket
{
public:
    explicit ManagerSocket(const std::string& name)
        : socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::copy(name.begin(), name.end(), std::begin(address.sun_path));
        if (name.front() == '@')
            address.sun_path[0] = '\0';
        const auto size = offsetof(sockaddr_un, sun_path) + name.size();
        if (bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address),
                 static_cast<socklen_t>(size)) != 0)
            throw std::system_error(errno, std::generic_category(), name);
    }

    /// Returns the next message, or nothing if none comes.
    std::optional<std::string> Receive(int limit = 60'000) const
    {
        pollfd waiting{socket.Get(), POLLIN, 0};
        if (poll(&waiting, 1, limit) != 1)
            return std::nullopt;
        std::array<char, 4096> text{};
        const auto count = recv(socket.Get(), text.data(), text.size(), 0);
        return std::string(text.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }

private:
    Support::Descriptor socket;
};

/// A real host, started with some variables in its environment. It ends with the test.
class AService : public testing::Test
{
protected:
    ~AService() override
    {
        if (process > 0) {
            kill(process, SIGKILL);
            Wait();
        }
    }

    static std::string GetModelsOwner()
    {
        struct stat status = {};
        stat(TALVENSOR_MODEL, &status);
        return std::to_string(status.st_uid);
    }

    void Start(std::vector<std::string> variables, std::vector<std::string> more = {})
    {
        std::vector<std::string> arguments = {TALVENSOR_HOST,
                                              "--listen",
                                              "opc.tcp://127.0.0.1:0",
                                              "--root",
                                              root.string(),
                                              "--module",
                                              TALVENSOR_MODULE,
                                              "--model",
                                              TALVENSOR_MODEL,
                                              "--pki",
                                              (folder.GetPath() / "pki").string(),
                                              "--trust-owner",
                                              GetModelsOwner()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        for (char** each = environ; *each != nullptr; ++each)
            variables.emplace_back(*each);
        // Leaks are looked for through /proc, which is not there in a sandbox.
        variables.emplace_back("ASAN_OPTIONS=detect_leaks=0");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        // A terminal becomes that of the new session.
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDWR, 0);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile.c_str(),
                                         O_WRONLY | O_APPEND, 0);
        const int error = posix_spawn(&process, TALVENSOR_HOST, &actions, &attributes,
                                      ToPointers(arguments).data(), ToPointers(variables).data());
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        ASSERT_EQ(error, 0);
    }

    /// Returns the exit status.
    int Wait()
    {
        int status = 0;
        waitpid(std::exchange(process, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    static std::vector<char*> ToPointers(std::vector<std::string>& texts)
    {
        std::vector<char*> pointers;
        std::transform(texts.begin(), texts.end(), std::back_inserter(pointers),
                       [](std::string& text) { return text.data(); });
        pointers.push_back(nullptr);
        return pointers;
    }

    TemporaryFolder folder;
    std::filesystem::path root = folder.MakeFolder("root");
    std::filesystem::path errorFile = folder.MakeFile("errors");
    std::string input = "/dev/null";
    std::string socketPath = (folder.GetPath() / "notify").string();
    pid_t process = -1;
};

TEST_F(AService, SaysWhenItServesReloadsAndStops)
{
    const ManagerSocket manager(socketPath);
    Start({"NOTIFY_SOCKET=" + socketPath});
    const std::string ready = "READY=1\nSTATUS=Serving 1 root at opc.tcp://127.0.0.1:[1-9]";
    EXPECT_THAT(manager.Receive().value_or(""), ContainsRegex("^" + ready));
    kill(process, SIGHUP);
    EXPECT_THAT(manager.Receive().value_or(""),
                ContainsRegex("^RELOADING=1\nMONOTONIC_USEC=[1-9][0-9]*\nSTATUS="));
    EXPECT_THAT(manager.Receive().value_or(""), ContainsRegex("^" + ready));
    kill(process, SIGTERM);
    EXPECT_THAT(manager.Receive().value_or(""), StartsWith("STOPPING=1\n"));
    EXPECT_EQ(Wait(), 0);
}

TEST_F(AService, StopsWhenItsTerminalGoesAway)
{
    const ManagerSocket manager(socketPath);
    Support::Descriptor terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_EQ(grantpt(terminal.Get()), 0);
    ASSERT_EQ(unlockpt(terminal.Get()), 0);
    std::array<char, 128> name{};
    ASSERT_EQ(ptsname_r(terminal.Get(), name.data(), name.size()), 0);
    input = name.data();
    Start({"NOTIFY_SOCKET=" + socketPath});
    ASSERT_TRUE(manager.Receive());
    terminal = Support::Descriptor();
    ASSERT_THAT(manager.Receive().value_or(""), StartsWith("STOPPING=1\n"));
    EXPECT_EQ(Wait(), 0);
}

TEST_F(AService, SaysSoToAnAbstractSocketToo)
{
    const auto name = "@" + folder.GetPath().string();
    const ManagerSocket manager(name);
    Start({"NOTIFY_SOCKET=" + name});
    EXPECT_THAT(manager.Receive().value_or(""), StartsWith("READY=1\n"));
}

TEST_F(AService, SaysThatItIsAliveAsLongAsItServes)
{
    const ManagerSocket manager(socketPath);
    Start({"NOTIFY_SOCKET=" + socketPath, "WATCHDOG_USEC=20000"});
    EXPECT_THAT(manager.Receive().value_or(""), StartsWith("READY=1\n"));
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(manager.Receive(), "WATCHDOG=1");
}

TEST_F(AService, SaysNothingWhenItRefusesToStart)
{
    const ManagerSocket manager(socketPath);
    Start({"NOTIFY_SOCKET=" + socketPath}, {"--read-only", root.string()});
    EXPECT_EQ(Wait(), 2);
    EXPECT_EQ(manager.Receive(0), std::nullopt);
}

TEST_F(AService, ServesWithAWarningWhenNobodyIsThereToBeTold)
{
    const auto log = folder.GetPath() / "log";
    Start({"NOTIFY_SOCKET=" + socketPath}, {"--log-file", log.string()});
    const auto isConfined = [&log] {
        return ReadWhole(log).find("Confined by") != std::string::npos;
    };
    while (!isConfined() && waitpid(process, nullptr, WNOHANG) == 0)
        usleep(10'000); // nothing announces a line of the log
    EXPECT_TRUE(isConfined());
    EXPECT_THAT(ReadWhole(log), HasSubstr("cannot reach the service manager at '" + socketPath +
                                          "': No such file or directory"));
}

TEST_F(AService, MarksItsLinesForTheJournalWithTheirPriority)
{
    struct stat status = {};
    ASSERT_EQ(stat(errorFile.c_str(), &status), 0);
    const auto stream = "JOURNAL_STREAM=" + std::to_string(status.st_dev) + ":";
    const ManagerSocket manager(socketPath);
    Start({"NOTIFY_SOCKET=" + socketPath, stream + std::to_string(status.st_ino)});
    ASSERT_TRUE(manager.Receive());
    kill(process, SIGTERM);
    EXPECT_EQ(Wait(), 0);
    EXPECT_THAT(manager.Receive().value_or(""), StartsWith("STOPPING=1\n"));
    EXPECT_THAT(ReadWhole(errorFile), HasSubstr("<6>Information Host 0 \"Confined by: "));
    EXPECT_THAT(ReadWhole(errorFile), HasSubstr("<5>Notice OpcUa 0 \""));

    // Another file than the one of the journal: the time is there, and no mark.
    std::filesystem::resize_file(errorFile, 0);
    Start({"NOTIFY_SOCKET=" + socketPath, stream + "1"});
    ASSERT_TRUE(manager.Receive());
    EXPECT_THAT(ReadWhole(errorFile), ContainsRegex("^20[^ ]* [A-Z]"));
}

TEST_F(AService, MarksItsRefusalForTheJournal)
{
    struct stat status = {};
    ASSERT_EQ(stat(errorFile.c_str(), &status), 0);
    Start({"JOURNAL_STREAM=" + std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)},
          {"--read-only", root.string()});
    EXPECT_EQ(Wait(), 2);
    EXPECT_THAT(ReadWhole(errorFile), StartsWith("<3>talvensor-host: --read-only: "));
}

TEST(LinesForTheJournal, AreAllMarked)
{
    EXPECT_EQ(MarkForJournal(Core::LogLevel::Error, "one\ntwo"), "<3>one\n<3>two\n");
    EXPECT_EQ(MarkForJournal(Core::LogLevel::Warning, ""), "<4>\n");
    EXPECT_EQ(MarkForJournal(Core::LogLevel::Trace, "x"), "<7>x\n");
}

/// Sets a variable of this process's environment while it exists.
class Variable
{
public:
    Variable(const char* name, const std::string& value)
        : name(name)
    {
        setenv(name, value.c_str(), 1);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { unsetenv(name); }

private:
    const char* name;
};

TEST(AServiceNotifier, HasNoIntervalUnlessItsOwnProcessIsWatched)
{
    const TemporaryFolder folder;
    const auto path = (folder.GetPath() / "notify").string();
    const ManagerSocket manager(path);
    EXPECT_EQ(ServiceNotifier::Connect().GetAliveInterval(), std::nullopt);
    const Variable socket("NOTIFY_SOCKET", path);
    EXPECT_EQ(ServiceNotifier::Connect().GetAliveInterval(), std::nullopt);
    const Variable time("WATCHDOG_USEC", "30000000");
    EXPECT_EQ(ServiceNotifier::Connect().GetAliveInterval(), std::chrono::seconds(15));
    {
        const Variable other("WATCHDOG_PID", std::to_string(getpid() + 1));
        EXPECT_EQ(ServiceNotifier::Connect().GetAliveInterval(), std::nullopt);
    }
    const Variable own("WATCHDOG_PID", std::to_string(getpid()));
    EXPECT_EQ(ServiceNotifier::Connect().GetAliveInterval(), std::chrono::seconds(15));
}

TEST(AServiceNotifier, RefusesASocketThatItDoesNotKnow)
{
    for (const auto& name : {std::string("vsock:2:1"), "/" + std::string(200, 'x')}) {
        const Variable socket("NOTIFY_SOCKET", name);
        EXPECT_THROW(std::ignore = ServiceNotifier::Connect(), Core::InvalidArgumentException)
            << name;
    }
}

} // namespace
} // namespace Host
