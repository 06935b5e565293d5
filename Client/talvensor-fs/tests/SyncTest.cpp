// Trees that are made alike, in both directions, with a real host.

#include "SmallDisk.h"
#include "Tool.h"

#include "Client/Transfer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <sstream>
#include <thread>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

/// The parameter: if the host has file objects.
class ASync : public testing::TestWithParam<bool>
{
protected:
    ASync()
    {
        Write("src/top", "top");
        Write("src/a/one", "1");
        Write("src/a/b/two", "22");
        fs::create_directories(desk.GetLocal("src/empty"));
    }

    void Write(const std::string& local, const std::string& content) const
    {
        fs::create_directories(desk.GetLocal(local).parent_path());
        WriteFile(desk.GetLocal(local), content);
    }

    [[nodiscard]] Result Sync(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--security", "plain", "--json", "sync"});
        return desk.Run(arguments);
    }

    /// Returns the last object, the summary.
    [[nodiscard]] json SyncWell(const std::vector<std::string>& arguments) const
    {
        const auto result = Sync(arguments);
        EXPECT_EQ(result.status, 0) << result.error;
        std::istringstream lines(result.output);
        json last;
        for (std::string line; std::getline(lines, line);)
            last = json::parse(line);
        return last;
    }

    static std::vector<std::string> GetNames(const fs::path& directory)
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory))
            names.push_back(entry.path().filename().string());
        return names;
    }

    void ExpectSame(const fs::path& left, const fs::path& right) const
    {
        const auto result = desk.RunOther("/usr/bin/diff", {"-r", left.string(), right.string()});
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.status, 0);
    }

    Desk desk{GetParam() ? ClientTest::GetObjectArguments() : std::vector<std::string>{}};
};

TEST_P(ASync, SendsATreeOnce)
{
    const auto first = SyncWell({"src", "remote:dst"});
    EXPECT_EQ(first["sent"], 3);
    EXPECT_EQ(first["bytes"], 6);
    EXPECT_EQ(first["directories"], 3);
    ExpectSame(desk.GetLocal("src"), desk.GetRemote("dst"));
    const auto second = SyncWell({"src/", "remote:dst/"});
    EXPECT_EQ(second["sent"], 0);
    EXPECT_EQ(second["same"], 3);
    EXPECT_EQ(second["directories"], 0);
}

TEST_P(ASync, FetchesATreeOnce)
{
    fs::copy(desk.GetLocal("src"), desk.GetRemote("data"), fs::copy_options::recursive);
    EXPECT_EQ(SyncWell({"remote:data", "dst"})["sent"], 3);
    ExpectSame(desk.GetRemote("data"), desk.GetLocal("dst"));
    EXPECT_EQ(SyncWell({"remote:data", "dst"})["sent"], 0);
    WriteFile(desk.GetRemote("data/a/one"), "longer");
    WriteFile(desk.GetLocal("dst/old"), "");
    const auto changed = SyncWell({"--delete", "remote:data", "dst"});
    EXPECT_EQ(changed["sent"], 1);
    EXPECT_EQ(changed["deleted"], 1);
    ExpectSame(desk.GetRemote("data"), desk.GetLocal("dst"));
}

TEST_P(ASync, SendsOnlyWhatChanged)
{
    (void)SyncWell({"src", "remote:dst"});
    Write("src/a/one", "other");
    fs::last_write_time(desk.GetLocal("src/top"),
                        fs::file_time_type::clock::now() - std::chrono::hours(1));
    const auto again = SyncWell({"src", "remote:dst"});
    EXPECT_EQ(again["sent"], 2);
    EXPECT_EQ(again["same"], 1);
    ExpectSame(desk.GetLocal("src"), desk.GetRemote("dst"));
    EXPECT_EQ(SyncWell({"src", "remote:dst"})["sent"], 0);
}

TEST_P(ASync, OnlySaysWhatItWouldDo)
{
    const auto result = desk.Run({"--security", "plain", "sync", "-n", "src", "remote:dst"});
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output, HasSubstr("send  a/b/two\n"));
    EXPECT_THAT(result.error, HasSubstr("would send 3 files (6 B)"));
    EXPECT_FALSE(fs::exists(desk.GetRemote("dst")));
}

TEST_P(ASync, DeletesOnlyWhenAskedAndNotWhatIsLeftOut)
{
    (void)SyncWell({"src", "remote:dst"});
    fs::create_directories(desk.GetRemote("dst/old/cache"));
    WriteFile(desk.GetRemote("dst/old/cache/x"), "");
    WriteFile(desk.GetRemote("dst/old/y"), "");
    WriteFile(desk.GetRemote("dst/.z.talvensor-part"), "a part");
    EXPECT_EQ(SyncWell({"src", "remote:dst"})["deleted"], 0);
    EXPECT_EQ(SyncWell({"--delete", "--exclude", "cache", "src", "remote:dst"})["deleted"], 1);
    EXPECT_TRUE(fs::exists(desk.GetRemote("dst/old/cache/x")));
    EXPECT_FALSE(fs::exists(desk.GetRemote("dst/old/y")));
    EXPECT_EQ(SyncWell({"--delete", "src", "remote:dst"})["deleted"], 1);
    EXPECT_FALSE(fs::exists(desk.GetRemote("dst/old")));
    EXPECT_TRUE(fs::exists(desk.GetRemote("dst/.z.talvensor-part"))) << "others carry it on";
    EXPECT_EQ(SyncWell({"--delete", "src", "remote:dst"})["deleted"], 0);
}

TEST_P(ASync, LeavesOutWhatItIsTold)
{
    Write("src/a/x.o", "");
    Write("src/build/y", "");
    const auto sent = SyncWell({"--exclude", "*.o", "--exclude", "/build", "src", "remote:dst"});
    EXPECT_EQ(sent["sent"], 3);
    EXPECT_FALSE(fs::exists(desk.GetRemote("dst/a/x.o")));
    EXPECT_FALSE(fs::exists(desk.GetRemote("dst/build")));
}

TEST_P(ASync, NamesAFileInThePlaceOfADirectory)
{
    fs::create_directories(desk.GetRemote("dst/top"));
    WriteFile(desk.GetRemote("dst/a"), "a file");
    const auto result = Sync({"src", "remote:dst"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("top: is a directory at the target and a file"));
    EXPECT_THAT(result.error, HasSubstr("a: is a directory at the source and none"));
    EXPECT_EQ(SyncWell({"--delete", "src", "remote:dst"})["sent"], 3);
    ExpectSame(desk.GetLocal("src"), desk.GetRemote("dst"));
}

TEST_P(ASync, KeepsWhatIsOfAnotherTypeWhenTheOtherCannotBeSent)
{
    const auto unreadable = [this](const std::string& local) {
        fs::remove(desk.GetLocal(local));
        fs::create_symlink("/proc/self/mem", desk.GetLocal(local)); // not even by root
    };
    unreadable("src/top");
    unreadable("src/a/one");
    fs::create_directories(desk.GetRemote("dst/top"));
    WriteFile(desk.GetRemote("dst/top/kept"), "k");
    WriteFile(desk.GetRemote("dst/a"), "a file");
    const auto result = Sync({"-L", "--delete", "src", "remote:dst"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("src/top"));
    EXPECT_THAT(result.error, HasSubstr("src/a/one"));
    EXPECT_EQ(ReadFile(desk.GetRemote("dst/top/kept")), "k");
    EXPECT_EQ(ReadFile(desk.GetRemote("dst/a")), "a file");
    EXPECT_THAT(GetNames(desk.GetRemote("dst")),
                testing::UnorderedElementsAre("top", "a", "empty"));
}

TEST_P(ASync, KeepsALocalDirectoryWhenTheFileCannotBeFetched)
{
    fs::copy(desk.GetLocal("src"), desk.GetRemote("data"), fs::copy_options::recursive);
    Write("dst/top/kept", "k");
    Write("dst/a", "a file");
    fs::create_directories(desk.GetLocal("dst/.top.talvensor-part")); // in the way
    const auto result = Sync({"--delete", "remote:data", "dst"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(ReadFile(desk.GetLocal("dst/top/kept")), "k");
    EXPECT_EQ(ReadFile(desk.GetLocal("dst/a/one")), "1");
    EXPECT_THAT(GetNames(desk.GetLocal("dst")),
                testing::UnorderedElementsAre("top", "a", "empty", ".top.talvensor-part"));
    fs::remove(desk.GetLocal("dst/.top.talvensor-part"));
    EXPECT_EQ(SyncWell({"--delete", "remote:data", "dst"})["deleted"], 1);
    ExpectSame(desk.GetRemote("data"), desk.GetLocal("dst"));
}

TEST_P(ASync, SkipsLinksOrFollowsThem)
{
    fs::create_symlink("top", desk.GetLocal("src/link"));
    fs::create_directory_symlink("..", desk.GetLocal("src/a/loop"));
    ASSERT_EQ(mkfifo(desk.GetLocal("src/pipe").c_str(), 0600), 0);
    const auto skipping = Sync({"src", "remote:dst"});
    EXPECT_EQ(skipping.status, 0);
    EXPECT_THAT(skipping.error, HasSubstr("src/link: skipped: it is a link"));
    EXPECT_THAT(skipping.error, HasSubstr("src/pipe: skipped: it is neither"));
    EXPECT_FALSE(fs::exists(desk.GetRemote("dst/link")));
    const auto following = Sync({"-L", "src", "remote:dst"});
    EXPECT_EQ(following.status, 0);
    EXPECT_THAT(following.error, HasSubstr("src/a/loop: skipped: the link leads to a directory "
                                           "above it"));
    EXPECT_EQ(ReadFile(desk.GetRemote("dst/link")), "top");
}

TEST_P(ASync, DeletesNothingThatTheSourceOnlySkips)
{
    fs::create_symlink("/nonexistent/disk", desk.GetLocal("src/data"));
    fs::create_symlink("top", desk.GetLocal("src/a/link"));
    ASSERT_EQ(mkfifo(desk.GetLocal("src/pipe").c_str(), 0600), 0);
    fs::create_directories(desk.GetRemote("dst/data/below"));
    fs::create_directories(desk.GetRemote("dst/a/link"));
    WriteFile(desk.GetRemote("dst/data/below/x"), "x");
    WriteFile(desk.GetRemote("dst/pipe"), "a file");
    WriteFile(desk.GetRemote("dst/old"), "");
    EXPECT_EQ(SyncWell({"--delete", "src", "remote:dst"})["deleted"], 1);
    EXPECT_TRUE(fs::exists(desk.GetRemote("dst/a/link")));
    fs::remove(desk.GetLocal("src/a/link"));
    EXPECT_EQ(SyncWell({"-L", "--delete", "src", "remote:dst"})["deleted"], 1);
    EXPECT_FALSE(fs::exists(desk.GetRemote("dst/a/link")));
    EXPECT_EQ(ReadFile(desk.GetRemote("dst/data/below/x")), "x");
    EXPECT_EQ(ReadFile(desk.GetRemote("dst/pipe")), "a file");
}

TEST_P(ASync, WarnsBeforeItDeletesWhereLinksMayLead)
{
    (void)SyncWell({"src", "remote:dst"});
    WriteFile(desk.GetRemote("dst/old"), "");
    const auto warning = HasSubstr("cannot tell links from directories");
    EXPECT_THAT(Sync({"-n", "--delete", "src", "remote:dst"}).error, Not(warning));
    WriteFile(desk.GetRemote("dst/a/old"), "");
    EXPECT_THAT(Sync({"-n", "src", "remote:dst"}).error, Not(warning));
    const auto trial = Sync({"-n", "--delete", "src", "remote:dst"});
    EXPECT_EQ(trial.error.find("cannot tell links") == std::string::npos, GetParam());
}

TEST_P(ASync, LeavesOutALocalLinkToADirectoryThatItIsToldToLeaveOut)
{
    Write("cache/x", "x");
    fs::create_directory_symlink("../cache", desk.GetLocal("src/cache"));
    const auto result = Sync({"-L", "--delete", "--exclude", "cache/", "src", "remote:dst"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.error, "");
    EXPECT_FALSE(fs::exists(desk.GetRemote("dst/cache")));
}

TEST_P(ASync, KeepsNewerFilesWhenAsked)
{
    (void)SyncWell({"src", "remote:dst"});
    WriteFile(desk.GetRemote("dst/top"), "newer");
    fs::last_write_time(desk.GetRemote("dst/top"),
                        fs::file_time_type::clock::now() + std::chrono::hours(1));
    const auto kept = SyncWell({"--update", "src", "remote:dst"});
    EXPECT_EQ(kept["newer"], 1);
    EXPECT_EQ(kept["sent"], 0);
    EXPECT_EQ(SyncWell({"src", "remote:dst"})["sent"], 1);
}

TEST_P(ASync, DeletesNothingWhenTheSourceCannotBeListedWhole)
{
    fs::create_directories(desk.GetRemote("dst/old"));
    // A path that is too long to be opened, although its parts are not.
    const std::string longName(200, 'n');
    auto deep = desk.GetLocal("src");
    ASSERT_EQ(chdir(deep.c_str()), 0);
    for (int level = 0; level < 25; ++level) {
        ASSERT_EQ(mkdir(longName.c_str(), 0700), 0);
        ASSERT_EQ(chdir(longName.c_str()), 0);
    }
    ASSERT_EQ(chdir("/"), 0);
    const auto result = Sync({"--delete", "src", "remote:dst"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("nothing is deleted"));
    EXPECT_TRUE(fs::exists(desk.GetRemote("dst/old")));
}

TEST_P(ASync, NeedsOneRemoteSide)
{
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"src", "dst"}, std::vector<std::string>{"remote:a", "remote:b"},
          std::vector<std::string>{"src"}})
        EXPECT_EQ(Sync(arguments).status, 2);
    EXPECT_EQ(Sync({"nothing", "remote:dst"}).status, 1);
    EXPECT_EQ(Sync({"remote:nothing", "dst"}).status, 1);
    EXPECT_THAT(Sync({"src/top", "remote:dst"}).error,
                HasSubstr("src/top (local): cannot list: Not a directory"));
}

TEST_P(ASync, ReportsWhatAnInterruptedOneSetAsideAndKeepsIt)
{
    const std::vector<std::string> names{".top.talvensor-part-0-0123456789abcdef",
                                         "a/.one.talvensor-part-0-fedcba9876543210"};
    const std::string directory = "a/.b.talvensor-part-0-0000000000000000";
    const std::string part = ".top.talvensor-part-0123456789abcdef";
    const auto make = [&](const fs::path& top) {
        fs::create_directories(top / directory);
        WriteFile(top / directory / "below", "b");
        for (const auto& name : names)
            WriteFile(top / name, "n");
        WriteFile(top / part, "p");
    };
    make(desk.GetRemote("dst"));
    make(desk.GetLocal("back"));
    WriteFile(desk.GetLocal("src/.top.talvensor-part-0-1111111111111111"), "not at the target");
    const auto count = [](const std::string& text, const std::string& wanted) {
        std::size_t found = 0;
        for (auto at = text.find(wanted); at != std::string::npos; at = text.find(wanted, at + 1))
            ++found;
        return found;
    };
    const auto expectReport = [&](const Result& result, const std::string& top,
                                  const std::string& side) {
        EXPECT_EQ(result.status, 0) << result.error;
        for (const auto& name : {names[0], names[1], directory})
            EXPECT_THAT(result.error, HasSubstr(top + "/" + name + " (" + side +
                                                "): holds what an interrupted sync set aside"));
        EXPECT_EQ(count(result.error, "set aside"), 3U) << result.error;
    };
    expectReport(Sync({"-n", "--delete", "src", "remote:dst"}), "dst", "remote");
    expectReport(Sync({"--delete", "src", "remote:dst"}), "dst", "remote");
    expectReport(Sync({"--delete", "remote:dst", "back"}), "back", "local");
    for (const auto& top : {desk.GetRemote("dst"), desk.GetLocal("back")}) {
        EXPECT_EQ(ReadFile(top / names[1]), "n");
        EXPECT_EQ(ReadFile(top / directory / "below"), "b");
    }
}

TEST_P(ASync, SendsAFileOfTheLastSecondBefore1970Once)
{
    const std::array<timespec, 2> times{timespec{-1, 0}, timespec{-1, 0}};
    for (const auto* const name : {"src/a/one", "src/empty"})
        ASSERT_EQ(utimensat(AT_FDCWD, desk.GetLocal(name).c_str(), times.data(), 0), 0);
    EXPECT_EQ(SyncWell({"src", "remote:dst"})["sent"], 3);
    const auto again = SyncWell({"src", "remote:dst"});
    EXPECT_EQ(again["sent"], 0);
    EXPECT_EQ(again["same"], 3);
    EXPECT_EQ(SyncWell({"remote:dst", "back"})["sent"], 3);
    EXPECT_EQ(SyncWell({"remote:dst", "back"})["sent"], 0);
    Write("src/a/one", "longer");
    ASSERT_EQ(utimensat(AT_FDCWD, desk.GetLocal("src/a/one").c_str(), times.data(), 0), 0);
    EXPECT_EQ(SyncWell({"src", "remote:dst"})["sent"], 1);
}

INSTANTIATE_TEST_SUITE_P(FileObjects, ASync, testing::Bool(),
                         [](const auto& tested) { return tested.param ? "With" : "Without"; });

class ASyncWithFileObjects : public ASync
{
protected:
    /// Returns how many entries are left under the names of parts, unless the terminal named them.
    [[nodiscard]] std::ptrdiff_t CountUntold(const std::string& directory,
                                             const Terminal& terminal) const
    {
        const auto names = GetNames(desk.GetRemote(directory));
        return std::count_if(names.begin(), names.end(), [&](const auto& name) {
            return Client::IsPartName(name) && terminal.GetSeen().find(name) == std::string::npos;
        });
    }
};

TEST_P(ASyncWithFileObjects, ComparesContents)
{
    (void)SyncWell({"src", "remote:dst"});
    WriteFile(desk.GetRemote("dst/a/b/two"), "xx");
    fs::last_write_time(desk.GetRemote("dst/a/b/two"),
                        fs::last_write_time(desk.GetLocal("src/a/b/two")));
    fs::last_write_time(desk.GetRemote("dst/top"),
                        fs::file_time_type::clock::now() - std::chrono::hours(1));
    EXPECT_EQ(SyncWell({"src", "remote:dst", "-n"})["sent"], 1) << "by the time";
    const auto compared = SyncWell({"--checksum", "src", "remote:dst"});
    EXPECT_EQ(compared["sent"], 1);
    EXPECT_EQ(compared["same"], 2);
    EXPECT_EQ(ReadFile(desk.GetRemote("dst/a/b/two")), "22");
}

TEST_P(ASyncWithFileObjects, KeepsPermissions)
{
    constexpr auto mode = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
    fs::permissions(desk.GetLocal("src/a/one"), mode);
    EXPECT_EQ(SyncWell({"src", "remote:dst"})["sent"], 3);
    EXPECT_EQ(fs::status(desk.GetRemote("dst/a/one")).permissions(), mode);
    fs::permissions(desk.GetLocal("src/top"), mode);
    EXPECT_EQ(SyncWell({"src", "remote:dst"})["sent"], 0);
    EXPECT_EQ(fs::status(desk.GetRemote("dst/top")).permissions(), mode);
    EXPECT_EQ(SyncWell({"remote:dst", "back"})["sent"], 3);
    EXPECT_EQ(fs::status(desk.GetLocal("back/top")).permissions(), mode);
}

TEST_P(ASyncWithFileObjects, ClosesTheTargetsThatItMakes)
{
    constexpr auto closed = static_cast<fs::perms>(0700);
    fs::permissions(desk.GetLocal("src"), closed);
    (void)SyncWell({"src", "remote:dst"});
    EXPECT_EQ(fs::status(desk.GetRemote("dst")).permissions(), closed);
    (void)SyncWell({"remote:dst", "back"});
    EXPECT_EQ(fs::status(desk.GetLocal("back")).permissions(), closed);
}

TEST_P(ASyncWithFileObjects, ClosesADirectoryBeforeItFillsIt)
{
    constexpr auto closed = static_cast<fs::perms>(0500);
    (void)SyncWell({"src", "remote:dst"});
    MakeMarkedFile(desk.GetLocal("src/a/large"), 16U << 20U);
    fs::permissions(desk.GetLocal("src/a"), closed);
    Terminal terminal(desk,
                      {"--security", "plain", "sync", "--bwlimit", "100", "src", "remote:dst"});
    ASSERT_TRUE(terminal.WaitFor("dst/a/large  ")) << terminal.GetSeen();
    EXPECT_EQ(fs::status(desk.GetRemote("dst/a")).permissions(), fs::perms::owner_all);
    terminal.Type(controlC);
    EXPECT_EQ(terminal.WaitForEnd(), 130);
    fs::permissions(desk.GetLocal("src/a"), fs::perms::owner_all);
}

TEST_P(ASyncWithFileObjects, SetsThePermissionsOfAllThatWasSentThoughSomethingFailed)
{
    (void)SyncWell({"src", "remote:dst"});
    constexpr auto fileMode = static_cast<fs::perms>(0640);
    constexpr auto directoryMode = static_cast<fs::perms>(0750);
    Write("src/a/one", "other");
    fs::permissions(desk.GetLocal("src/a/one"), fileMode);
    fs::permissions(desk.GetLocal("src/a"), directoryMode);
    fs::remove(desk.GetLocal("src/top"));
    fs::create_symlink("/proc/self/mem", desk.GetLocal("src/top")); // not even root can read it
    fs::permissions(desk.GetRemote("dst/top"), fileMode);
    EXPECT_EQ(Sync({"-L", "src", "remote:dst"}).status, 1);
    EXPECT_EQ(fs::status(desk.GetRemote("dst/a/one")).permissions(), fileMode);
    EXPECT_EQ(fs::status(desk.GetRemote("dst/a")).permissions(), directoryMode);
    EXPECT_EQ(fs::status(desk.GetRemote("dst/top")).permissions(), fileMode) << "not sent";
}

TEST_P(ASyncWithFileObjects, GivesBackADirectoryWhenItIsInterrupted)
{
    constexpr std::size_t size = 16U << 20U;
    fs::remove(desk.GetLocal("src/top"));
    MakeMarkedFile(desk.GetLocal("src/top"), size);
    fs::create_directories(desk.GetRemote("dst/top"));
    WriteFile(desk.GetRemote("dst/top/kept"), "k");
    Terminal terminal(
        desk, {"--security", "plain", "sync", "--delete", "--bwlimit", "100", "src", "remote:dst"});
    ASSERT_TRUE(terminal.WaitFor("dst/top  ")) << terminal.GetSeen();
    EXPECT_FALSE(fs::exists(desk.GetRemote("dst/top")));
    terminal.Type(controlC);
    EXPECT_EQ(terminal.WaitForEnd(), 130);
    EXPECT_EQ(ReadFile(desk.GetRemote("dst/top/kept")), "k");
    EXPECT_THAT(terminal.GetSeen(), HasSubstr("sync carries on"));
    const auto again = SyncWell({"--delete", "src", "remote:dst"});
    EXPECT_EQ(again["sent"], 1);
    EXPECT_LT(again["bytes"], size) << "it was carried on";
    EXPECT_TRUE(AreSame(desk.GetLocal("src/top"), desk.GetRemote("dst/top")));
    EXPECT_THAT(GetNames(desk.GetRemote("dst")),
                testing::UnorderedElementsAre("top", "a", "empty"));
}

TEST_P(ASyncWithFileObjects, IsToldOfByTheNextOneWhenASecondInterruptionEndsIt)
{
    constexpr std::size_t size = 16U << 20U;
    const auto findAside = [](const fs::path& directory) {
        const auto names = GetNames(directory);
        const auto found = std::find_if(names.begin(), names.end(), Client::IsAsideName);
        return found == names.end() ? std::string() : *found;
    };
    const auto breakOff = [&](const std::string& from, const std::string& to) {
        Terminal terminal(
            desk, {"--security", "plain", "sync", "--delete", "--bwlimit", "100", from, to});
        EXPECT_TRUE(terminal.WaitFor("/top  ")) << terminal.GetSeen();
        kill(desk.host.GetProcess(), SIGSTOP); // so that nothing can be put back in order
        EXPECT_EQ(terminal.TypeUntilEnd(controlC), 130);
        kill(desk.host.GetProcess(), SIGCONT);
    };
    fs::remove(desk.GetLocal("src/top"));
    MakeMarkedFile(desk.GetLocal("src/top"), size);
    for (const auto& top : {desk.GetRemote("dst"), desk.GetLocal("back")}) {
        fs::create_directories(top / "top");
        WriteFile(top / "top/kept", "k");
    }

    breakOff("src", "remote:dst");
    const auto remote = findAside(desk.GetRemote("dst"));
    ASSERT_NE(remote, "");
    const auto up = Sync({"--delete", "src", "remote:dst"});
    EXPECT_THAT(up.error, HasSubstr("dst/" + remote + " (remote): holds what an interrupted"));
    EXPECT_EQ(ReadFile(desk.GetRemote("dst") / remote / "kept"), "k");

    breakOff("remote:dst", "back");
    const auto local = findAside(desk.GetLocal("back"));
    ASSERT_NE(local, "");
    const auto down = Sync({"--delete", "remote:dst", "back"});
    EXPECT_THAT(down.error, HasSubstr("back/" + local + " (local): holds what an interrupted"));
    EXPECT_EQ(ReadFile(desk.GetLocal("back") / local / "kept"), "k");
}

TEST_P(ASyncWithFileObjects, ForgetsNothingThatGaveWayWhenItIsInterruptedMeanwhile)
{
    constexpr int count = 2'000; // so that it takes a while to rename them
    for (int i = 0; i < count; ++i) {
        WriteFile(desk.GetLocal("src/a/" + std::to_string(i)), "");
        fs::create_directories(desk.GetRemote("dst/a/" + std::to_string(i)));
    }
    Terminal terminal(desk, {"--security", "plain", "sync", "--delete", "src", "remote:dst"});
    const auto countAside = [this] {
        const auto names = GetNames(desk.GetRemote("dst/a"));
        return std::count_if(names.begin(), names.end(), Client::IsPartName);
    };
    while (countAside() == 0) {
    }
    kill(desk.host.GetProcess(), SIGSTOP);
    terminal.Type(controlC);
    EXPECT_TRUE(terminal.WaitFor("interrupted: ")) << terminal.GetSeen();
    kill(desk.host.GetProcess(), SIGCONT);
    EXPECT_EQ(terminal.WaitForEnd(), 130);
    EXPECT_EQ(CountUntold("dst/a", terminal), 0);
}

TEST_P(ASyncWithFileObjects, SendsContentsThatDifferThoughTheTimesAreTheSame)
{
    for (const std::size_t size : {std::size_t{2}, std::size_t{1} << 20U}) {
        Write("src/top", std::string(size, 'a'));
        (void)SyncWell({"src", "remote:dst"});
        WriteFile(desk.GetRemote("dst/top"), std::string(size, 'b'));
        fs::last_write_time(desk.GetRemote("dst/top"),
                            fs::last_write_time(desk.GetLocal("src/top")));
        EXPECT_EQ(SyncWell({"--checksum", "src", "remote:dst"})["sent"], 1);
        EXPECT_TRUE(AreSame(desk.GetLocal("src/top"), desk.GetRemote("dst/top")));
        (void)SyncWell({"src", "remote:dst"});
        (void)SyncWell({"remote:dst", "back"});
        WriteFile(desk.GetLocal("back/top"), std::string(size, 'b'));
        fs::last_write_time(desk.GetLocal("back/top"),
                            fs::last_write_time(desk.GetRemote("dst/top")));
        EXPECT_EQ(SyncWell({"--checksum", "remote:dst", "back"})["sent"], 1);
        EXPECT_TRUE(AreSame(desk.GetLocal("src/top"), desk.GetLocal("back/top")));
    }
}

TEST_P(ASyncWithFileObjects, LeavesRemoteLinksToDirectoriesAlone)
{
    (void)SyncWell({"src", "remote:dst"});
    fs::create_directories(desk.GetRemote("other"));
    WriteFile(desk.GetRemote("other/precious"), "p");
    fs::create_directory_symlink("../other", desk.GetRemote("dst/lnk"));
    fs::create_directories(desk.GetRemote("dst/old"));
    fs::create_directory_symlink(".", desk.GetRemote("dst/old/one"));
    fs::create_directory_symlink(".", desk.GetRemote("dst/old/two"));
    ASSERT_EQ(mkfifo(desk.GetRemote("dst/pipe").c_str(), 0600), 0);
    WriteFile(desk.GetRemote("dst/old/z"), "");
    const auto up = Sync({"--delete", "src", "remote:dst"});
    EXPECT_EQ(up.status, 0);
    EXPECT_THAT(up.error, HasSubstr("dst/lnk: skipped: it is a link to a directory"));
    EXPECT_THAT(up.error, HasSubstr("dst/pipe: skipped: it is neither a file nor a directory"));
    EXPECT_EQ(ReadFile(desk.GetRemote("other/precious")), "p");
    EXPECT_TRUE(fs::is_symlink(desk.GetRemote("dst/lnk")));
    EXPECT_TRUE(fs::is_symlink(desk.GetRemote("dst/old/one")));
    EXPECT_TRUE(fs::is_fifo(desk.GetRemote("dst/pipe")));
    EXPECT_FALSE(fs::exists(desk.GetRemote("dst/old/z")));

    Write("back/lnk/kept", "k");
    Write("back/pipe", "k");
    EXPECT_EQ(SyncWell({"--delete", "remote:dst", "back"})["sent"], 3);
    EXPECT_EQ(ReadFile(desk.GetLocal("back/lnk/kept")), "k");
    EXPECT_EQ(ReadFile(desk.GetLocal("back/pipe")), "k");
    EXPECT_FALSE(fs::exists(desk.GetLocal("back/old/one")));

    Write("src/lnk/new", "n");
    const auto blocked = Sync({"--delete", "src", "remote:dst"});
    EXPECT_EQ(blocked.status, 1);
    EXPECT_THAT(blocked.error, HasSubstr("lnk: is a link or a special file at the target"));
    EXPECT_FALSE(fs::exists(desk.GetRemote("other/new")));
}

INSTANTIATE_TEST_SUITE_P(FileObjects, ASyncWithFileObjects, testing::Values(true));

/// A disk of 1 MiB.
void SyncOntoAFullDisk()
{
    const SmallDisk disk;
    auto arguments = ClientTest::GetObjectArguments();
    arguments.insert(arguments.end(), {"--root", disk.GetPath().string()});
    const Desk desk(arguments);
    disk.Limit(desk.host.GetProcess());
    fs::create_directories(desk.GetLocal("src"));
    MakeMarkedFile(desk.GetLocal("src/large"), 2 * SmallDisk::size);
    const auto target = disk.GetPath() / "dst";
    const auto result =
        desk.Run({"--security", "plain", "sync", "src", "remote:" + target.string()});
    EXPECT_EQ(result.status, 1);
    std::size_t parts = 0;
    for (const auto& entry : fs::directory_iterator(target)) {
        ++parts;
        EXPECT_THAT(result.error, HasSubstr(entry.path().string() + " (remote): unfinished"));
    }
    EXPECT_EQ(parts, 1U);
}

TEST(ASyncToAFullDisk, NamesWhatItLeavesUnfinished)
{
    std::thread(&SyncOntoAFullDisk).join(); // what is unshared goes with the thread
}

} // namespace
} // namespace CliTest
