// Trees that are sent to a host that is not root: it may not change everything.

#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

TEST(APutToAHostThatIsNotRoot, CanBeRepeatedForDirectoriesThatAreReadOnlyHere)
{
    const Desk desk{ClientTest::GetObjectArguments(), ClientTest::StartUnprivileged()};
    fs::create_directories(desk.GetLocal("tree/a/b"));
    WriteFile(desk.GetLocal("tree/a/b/file"), "f");
    constexpr auto readOnly = static_cast<fs::perms>(0500);
    for (const auto* const name : {"tree/a/b", "tree/a"})
        fs::permissions(desk.GetLocal(name), readOnly);
    for (const auto* const content : {"f", "changed"}) {
        WriteFile(desk.GetLocal("tree/a/b/file"), content);
        const auto result = desk.Run({"--security", "plain", "-q", "put", "-r", "tree", "."});
        EXPECT_EQ(result.error, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(ReadFile(desk.GetRemote("tree/a/b/file")), content);
    }
    for (const auto* const name : {"tree/a", "tree/a/b"}) {
        EXPECT_EQ(fs::status(desk.GetRemote(name)).permissions(), fs::perms::owner_all) << name;
        fs::permissions(desk.GetLocal(name), fs::perms::owner_all);
    }
}

TEST(ASyncToAHostThatIsNotRoot, DeletesInADirectoryThatBecomesReadOnly)
{
    const Desk desk{ClientTest::GetObjectArguments(), ClientTest::StartUnprivileged()};
    const auto sync = [&desk] {
        return desk.Run({"--security", "plain", "sync", "--delete", "src", "remote:dst"});
    };
    const auto directory = desk.GetLocal("src/a");
    fs::create_directories(directory);
    EXPECT_EQ(sync().status, 0);
    WriteFile(desk.GetRemote("dst/a/old"), "");
    constexpr auto readOnly = static_cast<fs::perms>(0555);
    fs::permissions(directory, readOnly);
    const auto result = sync();
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_FALSE(fs::exists(desk.GetRemote("dst/a/old")));
    EXPECT_EQ(fs::status(desk.GetRemote("dst/a")).permissions(), readOnly);
    fs::permissions(directory, fs::perms::owner_all);
    fs::permissions(desk.GetRemote("dst/a"), fs::perms::owner_all);
}

TEST(ASyncToAHostThatIsNotRoot, KeepsWhatItCannotListBelowTheTarget)
{
    const Desk desk{{}, ClientTest::StartUnprivileged()};
    fs::create_directories(desk.GetLocal("src"));
    for (const auto& target :
         {std::string("dst"), std::string("dst//"), desk.GetRemote("dst").string()}) {
        const auto closed = desk.GetRemote("dst/old/closed");
        fs::create_directories(closed);
        WriteFile(closed / "x", "");
        WriteFile(desk.GetRemote("dst/old/y"), "");
        fs::permissions(desk.GetRemote("dst"), fs::perms::all);
        fs::permissions(desk.GetRemote("dst/old"), fs::perms::all);
        fs::permissions(closed, fs::perms::none);
        const auto result =
            desk.Run({"--security", "plain", "sync", "-n", "--delete", "src", "remote:" + target});
        EXPECT_EQ(result.status, 1) << target;
        EXPECT_THAT(result.error, HasSubstr("/old/closed (remote): cannot list")) << target;
        EXPECT_EQ(result.output, "delete  old/y\n") << target;
        fs::permissions(closed, fs::perms::owner_all);
    }
}

TEST(ASyncToAHostThatIsNotRoot, KeepsWhatIsInADirectoryThatItCannotClose)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "NOT TESTED, only root can give the host a directory of somebody else's";
    const Desk desk{ClientTest::GetObjectArguments(), ClientTest::StartUnprivileged()};
    fs::create_directories(desk.GetLocal("src/a"));
    fs::permissions(desk.GetLocal("src/a"), fs::perms::owner_all);
    WriteFile(desk.GetLocal("src/a/file"), "new");
    fs::create_directories(desk.GetRemote("dst/a/file"));
    WriteFile(desk.GetRemote("dst/a/file/kept"), "k");
    for (const auto* const name : {"dst", "dst/a", "dst/a/file"})
        fs::permissions(desk.GetRemote(name), fs::perms::all);
    const auto result = desk.Run({"--security", "plain", "sync", "--delete", "src", "remote:dst"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("dst/a (remote): cannot set"));
    EXPECT_EQ(ReadFile(desk.GetRemote("dst/a/file/kept")), "k");
}

} // namespace
} // namespace CliTest
