#include "Application.h"

#include "Core/Embedding/LogControl.h"
#include "TemporaryFolder.h"
#include "ThreadSanitizer.h"

#include <algorithm>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <open62541/server.h>
#include <open62541/server_config_default.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Host {
namespace {

using Texts = std::vector<std::string>;

/// Every command runs in a process of its own, since it changes its process for good.
class TheApplication : public testing::Test
{
protected:
    static ExitStatus Run(const Texts& arguments, const ServeOperation& serve = ServeNothing)
    {
        std::vector<const char*> pointers = {"talvensor-host"};
        for (const auto& argument : arguments)
            pointers.push_back(argument.c_str());
        return RunApplication(static_cast<int>(pointers.size()), pointers.data(), serve,
                              TryNothing);
    }

    [[noreturn]] static void RunAndExit(const Texts& arguments,
                                        const ServeOperation& serve = ServeNothing)
    {
        std::_Exit(static_cast<int>(Run(arguments, serve)));
    }

    static ExitStatus ServeNothing(PreparedHost& /*host*/, const Signals& /*stop*/)
    {
        return ExitStatus::NotDrained;
    }

    static ExitStatus TryNothing(PreparedHost& /*host*/) { return ExitStatus::Stopped; }

    Texts GetArguments(const Texts& more) const
    {
        Texts arguments = {"--root",        root.string(),
                           "--module",      TALVENSOR_MODULE,
                           "--model",       TALVENSOR_MODEL,
                           "--pki",         (folder.GetPath() / "pki").string(),
                           "--trust-owner", GetOwner(TALVENSOR_MODEL)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    /// The owner of the checkout, who need not be the user who runs the tests.
    static std::string GetOwner(const char* file)
    {
        struct stat status = {};
        stat(file, &status);
        return std::to_string(status.st_uid);
    }

    static testing::ExitedWithCode Exits(ExitStatus status)
    {
        return testing::ExitedWithCode(static_cast<int>(status));
    }

    /// Root has a sandbox everywhere that tests run.
    static bool StoppedUnlessTheSandboxIsRefused(int status)
    {
        return Exits(ExitStatus::Stopped)(status) ||
               (geteuid() != 0 && Exits(ExitStatus::SandboxRefused)(status));
    }

    static UA_ByteString Borrow(const Bytes& bytes)
    {
        UA_ByteString result;
        result.length = bytes.size();
        result.data = const_cast<UA_Byte*>(bytes.data());
        return result;
    }

    TemporaryFolder folder;
    std::filesystem::path root = folder.MakeFolder("root");
};

TEST_F(TheApplication, EndsWithTheStatusOfWhatItServed)
{
    EXPECT_EXIT(RunAndExit(GetArguments({"--no-sandbox"})), Exits(ExitStatus::NotDrained), "");
}

TEST_F(TheApplication, ShowsItsVersion)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(Run({"--version"}), ExitStatus::Stopped);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::StartsWith("talvensor-host "));
}

TEST_F(TheApplication, SaysWhatIsWrongWithItsConfiguration)
{
    EXPECT_EXIT(RunAndExit({"--check", "--model", "none.xml"}),
                Exits(ExitStatus::WrongConfiguration),
                "talvensor-host: --root: (.*\n)+talvensor-host: --model: ");
    EXPECT_EXIT(RunAndExit(GetArguments({"--check", "--no-sandbox"})), Exits(ExitStatus::Stopped),
                "");
}

TEST_F(TheApplication, ChecksTheUserFileToo)
{
    const auto users = folder.MakeFile("users", "nonsense\n");
    chmod(users.c_str(), 0600);
    EXPECT_EXIT(RunAndExit(GetArguments({"--check", "--users", users.string()})),
                Exits(ExitStatus::Failed), "users', line 1");
}

TEST_F(TheApplication, RefusesToBeOpenToOtherMachines)
{
    EXPECT_EXIT(RunAndExit(GetArguments({"--no-sandbox", "--listen", "opc.tcp://0.0.0.0:0"})),
                Exits(ExitStatus::DoorsOpen), "0.0.0.0.*--users");
    const auto users = folder.GetPath() / "users";
    SetPassword(users, "ann", "one");
    EXPECT_EXIT(RunAndExit(GetArguments({"--no-sandbox", "--listen", "opc.tcp://0.0.0.0:0",
                                         "--users", users.string()})),
                Exits(ExitStatus::NotDrained), "");
}

TEST_F(TheApplication, SetsAPasswordFromStandardInput)
{
    const auto users = folder.GetPath() / "users";
    const auto input = folder.MakeFile("input", "one two \nmore\n");
    const auto setPassword = [&] {
        dup2(open(input.c_str(), O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        RunAndExit({"passwd", users.string(), "ann"});
    };
    EXPECT_EXIT(setPassword(), Exits(ExitStatus::Stopped), "");
    EXPECT_TRUE(Users(users).Verify("ann", "one two "));
}

TEST_F(TheApplication, SetsNoPasswordWithoutOne)
{
    const auto users = folder.GetPath() / "users";
    const auto setPassword = [&] {
        dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        RunAndExit({"passwd", users.string(), "ann"});
    };
    EXPECT_EXIT(setPassword(), Exits(ExitStatus::Failed), "standard input has no password");
    EXPECT_FALSE(std::filesystem::exists(users));
}

TEST_F(TheApplication, IsPreparedAndConfinedBeforeItServes)
{
    SKIP_UNDER_THREAD_SANITIZER();
    const auto log = folder.GetPath() / "log";
    const auto serve = [this](PreparedHost& host, const Signals& /*stop*/) {
        const auto isReady = [&] {
            const auto& runtime = *host.runtime;
            return !runtime.GetInformationModel()->GetObjectTypes().empty() &&
                   host.memory.Read() > 0 && host.memoryLimit > 0 && host.descriptors > 0 &&
                   host.admission.allowsAnonymous && !host.addresses.empty() &&
                   host.sandbox.hasMountNamespace && !host.pki.GetKey().empty() &&
                   std::filesystem::current_path() == root;
        };
        std::ofstream(root / "made") << "inside";
        const bool isConfined =
            std::filesystem::exists(root / "made") && !std::filesystem::exists("/etc") &&
            !std::filesystem::exists(folder.GetPath() / "pki") && !std::filesystem::exists("/proc");
        return isReady() && isConfined ? ExitStatus::Stopped : ExitStatus::NotDrained;
    };
    EXPECT_EXIT(RunAndExit(GetArguments({"--log-file", log.string()}), serve),
                StoppedUnlessTheSandboxIsRefused, "");
    if (!std::filesystem::exists(root / "made") && geteuid() != 0)
        GTEST_SKIP() << "NOT TESTED, this machine has no sandbox for those who are not root";
    EXPECT_THAT(ReadWhole(log), testing::HasSubstr("Confined by: mount namespace"));
}

TEST_F(TheApplication, CanMakeItsNodesInsideTheSandbox)
{
    SKIP_UNDER_THREAD_SANITIZER();
    const auto serve = [this](PreparedHost& host, const Signals& /*stop*/) {
        auto& runtime = *host.runtime;
        for (const auto& type : runtime.GetInformationModel()->GetObjectTypes()) {
            if (type.behaviourFactory) {
                const auto node =
                    runtime.CreateObject({.type = type.id, .browseName = {1, "Node"}});
                runtime.RemoveObject(node);
                std::ofstream(root / "made") << "a node";
            }
        }
        return ExitStatus::Stopped;
    };
    EXPECT_EXIT(RunAndExit(GetArguments({}), serve), StoppedUnlessTheSandboxIsRefused, "");
    if (!std::filesystem::exists(root / "made") && geteuid() != 0)
        GTEST_SKIP() << "NOT TESTED, this machine has no sandbox for those who are not root";
    EXPECT_EQ(ReadWhole(root / "made"), "a node");
}

TEST_F(TheApplication, CanUseItsKeyInsideTheSandbox)
{
    SKIP_UNDER_THREAD_SANITIZER();
    const auto serve = [this](PreparedHost& host, const Signals& /*stop*/) {
        const auto certificate = Borrow(host.pki.GetCertificate());
        const auto key = Borrow(host.pki.GetKey());
        auto* const server = UA_Server_new();
        if (UA_ServerConfig_addSecurityPolicyBasic256Sha256(
                UA_Server_getConfig(server), &certificate, &key) == UA_STATUSCODE_GOOD)
            std::ofstream(root / "made") << "a policy";
        UA_Server_delete(server);
        return ExitStatus::Stopped;
    };
    EXPECT_EXIT(RunAndExit(GetArguments({}), serve), StoppedUnlessTheSandboxIsRefused, "");
    if (!std::filesystem::exists(root / "made") && geteuid() != 0)
        GTEST_SKIP() << "NOT TESTED, this machine has no sandbox for those who are not root";
    EXPECT_EQ(ReadWhole(root / "made"), "a policy");
}

} // namespace
} // namespace Host
