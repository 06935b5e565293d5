// The host's files by path.

#include "Fixture.h"
#include "Relay.h"

#include "Client/FileObjects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace Client;
using namespace ClientTest;

namespace fs = std::filesystem;

namespace {

class FilesByPath : public WithObjects
{
protected:
    std::string Name(const std::string& leaf) const { return (root.GetPath() / leaf).string(); }

    Connection connection{MakeOptions(host)};
    FileObjects objects{connection};
};

TEST_F(FilesByPath, HaveStates)
{
    MakeFile(root.GetPath() / "file", 1234);
    fs::permissions(root.GetPath() / "file", fs::perms(0640));
    fs::create_directory(root.GetPath() / "directory");
    const auto states = objects.GetStates({Name("file"), "directory", "missing"});
    ASSERT_EQ(states.size(), 3U);
    EXPECT_EQ(states[0].kind, Kind::File);
    EXPECT_EQ(states[0].size, 1234U);
    EXPECT_EQ(states[0].permissions, 0640U);
    EXPECT_EQ(states[0].time, FileTime(std::chrono::seconds(oldTime)));
    EXPECT_TRUE(states[0].isReadable && states[0].isWritable);
    EXPECT_EQ(states[1].kind, Kind::Directory);
    EXPECT_EQ(states[2].kind, Kind::Missing);
    EXPECT_EQ(states[2].reason, "No such file or directory");
}

TEST_F(FilesByPath, HaveStatesInAnyNumber)
{
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < 25'000; ++i)
        paths.push_back(Name(std::string(i % 200, 'x') + std::to_string(i)));
    MakeFile(paths[24'999], 7);
    const auto states = objects.GetStates(paths);
    ASSERT_EQ(states.size(), paths.size());
    EXPECT_EQ(states[24'999].size, 7U);
    EXPECT_EQ(std::count_if(states.begin(), states.end(),
                            [](const auto& state) { return state.kind == Kind::Missing; }),
              24'999);
}

TEST_F(FilesByPath, AreListedInManyDirectoriesAtOnce)
{
    std::vector<std::string> directories;
    for (std::size_t i = 0; i < 100; ++i) {
        directories.push_back(Name("d" + std::to_string(i)));
        for (std::size_t j = 0; j < i; ++j)
            MakeFile(fs::path(directories.back()) / ("f" + std::to_string(j)), j);
    }
    fs::create_directory(directories[0]);
    directories.push_back(Name("missing"));
    const auto listings = objects.ListAll(directories);
    ASSERT_EQ(listings.size(), 101U);
    for (std::size_t i = 0; i < 100; ++i) {
        EXPECT_TRUE(listings[i].result.IsGood());
        EXPECT_EQ(listings[i].entries.size(), i);
    }
    EXPECT_EQ(listings[100].result.reason, "No such file or directory");
}

TEST_F(FilesByPath, AreListedWithLinksAndAllThatIsNoFile)
{
    MakeFile(root.GetPath() / "file", 5);
    fs::create_directory(root.GetPath() / "directory");
    ASSERT_EQ(mkfifo(Name("pipe").c_str(), 0600), 0);
    fs::create_symlink("file", root.GetPath() / "to file");
    fs::create_symlink("directory", root.GetPath() / "to directory");
    fs::create_symlink("nothing", root.GetPath() / "to nothing");
    std::vector<std::string> entries;
    for (const auto& entry : objects.List(root.GetPath().string()))
        entries.push_back(entry.name + (entry.isDirectory ? " directory" : "") +
                          (entry.isOther ? " other" : "") + (entry.isLink ? " link" : "") + " " +
                          std::to_string(entry.size));
    EXPECT_THAT(entries, testing::UnorderedElementsAre(
                             "file 5", "directory directory 0", "pipe other 0", "to file link 5",
                             "to directory directory link 0", "to nothing other link 0"));
}

TEST_F(FilesByPath, HaveNamesOfAnyBytes)
{
    const std::string name = "a\xFF\xC3";
    MakeFile(root.GetPath() / name, 1);
    const auto entries = objects.List(root.GetPath().string());
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name, name);
    EXPECT_EQ(objects.GetStates({name})[0].size, 1U);
}

TEST_F(FilesByPath, AreRenamedWithAResultForEach)
{
    MakeFile(root.GetPath() / "one", 1);
    MakeFile(root.GetPath() / "two", 2);
    const auto results = objects.Move({{"one", "two"}, {"missing", "there"}}, true);
    ASSERT_EQ(results.size(), 2U);
    EXPECT_TRUE(results[0].IsGood());
    EXPECT_EQ(results[1].reason, "No such file or directory");
    EXPECT_EQ(fs::file_size(root.GetPath() / "two"), 1U);
    MakeFile(root.GetPath() / "three", 3);
    EXPECT_FALSE(objects.Move({{"three", "two"}}, false)[0].IsGood());
}

TEST_F(FilesByPath, AreCopiedAndCompared)
{
    MakeFile(root.GetPath() / "tree/file", 100'000);
    objects.Copy("tree", "copy", false);
    ExpectSameTrees(root.GetPath() / "tree", root.GetPath() / "copy");
    EXPECT_EQ(objects.GetChecksum("tree/file", 0, 0), objects.GetChecksum("copy/file", 0, 0));
    EXPECT_NE(objects.GetChecksum("tree/file", 0, 0), objects.GetChecksum("copy/file", 1, 0));
    EXPECT_GT(objects.GetSpace("copy").total, objects.GetSpace("copy").free);
}

TEST_F(FilesByPath, FailWithTheServersReason)
{
    const auto reason = [&](const auto& operation) -> std::string {
        try {
            operation();
        } catch (const OperationFailedException& failed) {
            return failed.what();
        }
        return "did not fail";
    };
    EXPECT_EQ(reason([&] { objects.Copy("missing", "copy", false); }),
              "missing (remote): cannot copy to copy: No such file or directory");
    EXPECT_EQ(reason([&] { (void)objects.List("missing"); }),
              "missing (remote): cannot list: No such file or directory");
}

TEST_F(FilesByPath, GetTheirPermissions)
{
    MakeFile(root.GetPath() / "file", 1);
    const auto results = objects.SetPermissions({"file", "missing"}, {0400, 0400});
    EXPECT_TRUE(results[0].IsGood());
    EXPECT_FALSE(results[1].IsGood());
    EXPECT_EQ(fs::status(root.GetPath() / "file").permissions(), fs::perms(0400));
}

TEST_F(FilesByPath, AreAskedForAgainAfterALostConnection)
{
    Relay relay(host.GetPort());
    auto options = MakeOptions(host);
    options.url = relay.GetUrl();
    Connection cut(options);
    FileObjects again(cut);
    MakeFile(root.GetPath() / "file", 5);
    const std::string call("\x01\x00\xC8\x02", 4); // how a request to call a method begins
    relay.CutBefore(call, 1);
    EXPECT_EQ(again.GetStates({"file"})[0].size, 5U);
    EXPECT_TRUE(relay.HasCut());
    relay.CutBefore(call, 1);
    EXPECT_THROW((void)again.Move({{"file", "other"}}, true), ConnectionLostException);
}

TEST_F(FilesByPath, AreLeftWhenTheOperationIsCancelled)
{
    const Cancellation* const none = nullptr;
    Cancellation cancellation;
    cancellation.Cancel();
    EXPECT_THROW((void)objects.GetStates({"file"}, &cancellation), CancelledException);
    EXPECT_EQ(objects.GetStates({"file"}, none).size(), 1U);
}

using AServerWithoutFileObjects = WithHost;

TEST_F(AServerWithoutFileObjects, IsRecognised)
{
    Connection connection(MakeOptions(host));
    FileObjects objects(connection);
    EXPECT_FALSE(objects.AreOffered());
    EXPECT_THROW((void)objects.GetStates({"file"}), CallRefusedException);
}

} // namespace
