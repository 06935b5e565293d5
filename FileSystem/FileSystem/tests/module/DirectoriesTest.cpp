#include "ModuleTest.h"

#include "LogCapture.h"
#include "ManyFiles.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using namespace FileSystemTests;
namespace stdfs = std::filesystem;

class ADirectory : public AFileSystem
{
protected:
    [[nodiscard]] bool TakeExistence(const std::string& path)
    {
        client.Exists(path);
        const auto event = recorder.Take();
        EXPECT_NE(event, nullptr);
        return event != nullptr && OwnField(*event, "Exist").Get<bool>();
    }

    /// Returns the paths of a listing, sorted by name.
    std::vector<std::string> TakeSortedPaths(const std::string& path, bool recursive)
    {
        auto entries = TakeListing(path, recursive);
        std::sort(entries.begin(), entries.end());
        return ToPaths(entries);
    }
};

TEST_F(ADirectory, ExistsLikeAFileDoes)
{
    EXPECT_TRUE(TakeExistence(folder.GetPath()));
    EXPECT_TRUE(TakeExistence(folder.MakeFile("file")));
    EXPECT_TRUE(TakeExistence("/dev/null"));
    EXPECT_FALSE(TakeExistence(folder / "missing"));
    EXPECT_FALSE(TakeExistence(folder / "file/below"));
    EXPECT_FALSE(TakeExistence(""));
    stdfs::create_symlink(folder / "missing", folder / "link");
    EXPECT_FALSE(TakeExistence(folder / "link"));
    stdfs::create_symlink(folder / "circle", folder / "circle");
    EXPECT_FALSE(TakeExistence(folder / "circle"));
}

TEST_F(ADirectory, IsCreatedWithItsMissingParents)
{
    client.CreateDirectory(folder / "a/b/c");
    EXPECT_NE(TakeOnly(createDirectoryResultEvent), nullptr);
    EXPECT_TRUE(stdfs::is_directory(folder / "a/b/c"));
}

TEST_F(ADirectory, IsNotCreatedWhereThereIsSomethingAndIsAnsweredAllTheSame)
{
    const std::string file = folder.MakeFile("file", "content");
    for (const auto& path : {file, file + "/below", folder.GetPath().string(), std::string()}) {
        client.CreateDirectory(path);
        EXPECT_NE(TakeOnly(createDirectoryResultEvent), nullptr) << path;
    }
    EXPECT_EQ(ReadWholeFile(file), "content");
}

TEST_F(ADirectory, IsDeletedWithEverythingInIt)
{
    stdfs::create_directories(folder / "tree/deep/deeper");
    static_cast<void>(folder.MakeFile("tree/deep/deeper/file"));
    const std::string kept = folder.MakeFile("kept");
    stdfs::create_symlink(kept, folder / "tree/link");
    const std::string file = folder.MakeFile("file");
    client.Delete({folder / "missing", folder / "tree", file, ""});
    EXPECT_NE(TakeOnly(deleteResultEvent), nullptr);
    EXPECT_FALSE(stdfs::exists(folder / "tree"));
    EXPECT_FALSE(stdfs::exists(file));
    EXPECT_TRUE(stdfs::exists(kept));
}

TEST_F(ADirectory, MeetsWhatIsQueuedBeforeIt)
{
    client.CreateDirectory(folder / "new");
    client.UploadFile(folder / "new/file", ToBytes("content"));
    client.List(folder.GetPath(), true);
    const Events events = WaitForBarrier();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(ToPaths(ToEntries(*events.back())), std::vector<std::string>({"new", "new/file"}));
}

TEST_F(ADirectory, HasAnEmptyListingWhenItIsEmptyOrMissing)
{
    EXPECT_TRUE(TakeListing(folder.GetPath()).empty());
    EXPECT_TRUE(TakeListing(folder / "missing").empty());
    EXPECT_TRUE(TakeListing("").empty());
}

TEST_F(ADirectory, ListsItsOwnEntriesOnlyUnlessAskedForMore)
{
    stdfs::create_directories(folder / "sub/deep");
    static_cast<void>(folder.MakeFile("file"));
    static_cast<void>(folder.MakeFile("sub/below"));
    auto entries = TakeListing(folder.GetPath());
    std::sort(entries.begin(), entries.end());
    ASSERT_EQ(ToPaths(entries), std::vector<std::string>({"file", "sub"}));
    EXPECT_FALSE(entries[0].isDirectory);
    EXPECT_TRUE(entries[1].isDirectory);
    EXPECT_EQ(entries[0].time, client.GetDateTime(folder / "file"));
    EXPECT_EQ(entries[1].time, client.GetDateTime(folder / "sub"));
}

TEST_F(ADirectory, ListsEachDirectoryBeforeItsContents)
{
    std::string path;
    std::vector<std::string> expected;
    for (int depth = 0; depth < 40; ++depth) {
        path += (depth == 0 ? "" : "/") + ("level" + std::to_string(depth));
        expected.push_back(path);
        expected.push_back(path + "/file");
    }
    stdfs::create_directories(folder / path);
    for (std::size_t i = 1; i < expected.size(); i += 2)
        static_cast<void>(folder.MakeFile(expected[i]));

    const auto entries = TakeListing(folder.GetPath(), true);
    const auto paths = ToPaths(entries);
    for (const auto& each : entries) {
        const auto parent = stdfs::path(each.path).parent_path().string();
        if (parent.empty())
            continue;
        const auto self = std::find(paths.begin(), paths.end(), each.path);
        EXPECT_NE(std::find(paths.begin(), self, parent), self) << each.path;
        EXPECT_EQ(each.isDirectory, !each.path.ends_with("/file"));
    }
    auto sorted = paths;
    std::sort(sorted.begin(), sorted.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(sorted, expected);
}

TEST_F(ADirectory, ListsPathsRelativeToItHoweverItIsNamed)
{
    stdfs::create_directory(folder / "root");
    static_cast<void>(folder.MakeFile("root/file"));
    stdfs::create_symlink("root", folder / "link");
    for (const std::string& root : {folder / "root", folder / "root/", folder / "./root/../root",
                                    folder / "link", folder / "link/"})
        EXPECT_EQ(ToPaths(TakeListing(root)), std::vector<std::string>{"file"}) << root;
}

TEST_F(ADirectory, ListsLinksAsWhatTheyLeadToUnderItsPath)
{
    stdfs::create_directories(folder / "root/sub");
    stdfs::create_directory(folder / "outside");
    static_cast<void>(folder.MakeFile("outside/far", "content"));
    static_cast<void>(folder.MakeFile("root/near", "content"));
    stdfs::create_symlink("near", folder / "root/toNear");
    stdfs::create_symlink("../outside/far", folder / "root/toFar");
    stdfs::create_symlink("../outside", folder / "root/toOutside");
    EXPECT_EQ(TakeSortedPaths(folder / "root", true),
              std::vector<std::string>(
                  {"../outside", "../outside/far", "../outside/far", "near", "near", "sub"}));
}

TEST_F(ADirectory, PassesOverWhatIsNeitherFileNorDirectory)
{
    stdfs::create_symlink(folder / "missing", folder / "toNowhere");
    stdfs::create_symlink(folder / "circle", folder / "circle");
    const NamedPipe pipe(folder / "pipe");
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(socket, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (folder / "socket").copy(&address.sun_path[0], sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ::close(socket);
    static_cast<void>(folder.MakeFile("file"));
    EXPECT_EQ(TakeSortedPaths(folder.GetPath(), true), std::vector<std::string>{"file"});
}

TEST_F(ADirectory, AnswersARecursiveListingOfACircleOfLinksWithAsManyRoundsAsTheSystemFollows)
{
    stdfs::create_directory(folder / "sub");
    stdfs::create_symlink("..", folder / "sub/up");
    // Once in a while the system refuses a link near its limit that it followed a moment ago.
    Events events;
    for (int attempt = 0; attempt < 10 && events.empty(); ++attempt) {
        client.List(folder.GetPath(), true);
        events = WaitForBarrier();
    }
    ASSERT_EQ(events.size(), 1U);
    ASSERT_EQ(TypeNumber(*events.front()), listResultEvent);
    const auto paths = ToPaths(ToEntries(*events.front()));
    EXPECT_GT(paths.size(), 4U);
    for (std::size_t i = 0; i < paths.size(); ++i)
        EXPECT_EQ(paths[i], i % 2 == 0 ? "sub" : ".") << i;
}

TEST_F(ADirectory, ThatIsAFileHasNoListingAndALogEntry)
{
    const LogCapture log;
    client.List(folder.MakeFile("file"));
    ExpectSilence();
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries().front().level, Core::LogLevel::Error);
    EXPECT_THAT(log.GetEntries().front().message,
                testing::AllOf(testing::StartsWith("Exception caught: "),
                               testing::HasSubstr(folder / "file")));
}

TEST_F(ADirectory, ListsAsMuchAsAnEventCarriesAndSaysWhenThereIsMore)
{
    constexpr unsigned int limit = 61440;
    const std::string root = folder / "many";
    stdfs::create_directory(root);
    MakeManyFiles(root, limit);
    const auto expectListing = [&](bool limitExceeded) {
        client.List(root);
        const auto event = TakeOnly(listResultEvent);
        ASSERT_NE(event, nullptr);
        EXPECT_EQ(OwnField(*event, "LimitExceeded").Get<bool>(), limitExceeded);
        auto paths = ToPaths(ToEntries(*event));
        EXPECT_EQ(paths.size(), limit);
        std::sort(paths.begin(), paths.end());
        EXPECT_EQ(std::unique(paths.begin(), paths.end()), paths.end());
    };
    expectListing(false);
    stdfs::create_directory(root + "/oneMore");
    expectListing(true);
}

} // namespace
