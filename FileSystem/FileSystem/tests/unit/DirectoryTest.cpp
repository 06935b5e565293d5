#include "Host.h"
#include "LogCapture.h"
#include "ManyFiles.h"
#include "ProcessLimits.h"
#include "Waiting.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <random>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace FileSystemTests {

using FileSystem::FileSystemBehaviour;
using ListItem = FileSystemBehaviour::ListItem;

namespace {

constexpr unsigned int listLimit = FileSystemBehaviour::maximumBlock;

/// One entry of a listing as a client gets it.
struct Entry
{
    std::string path;
    Core::DateTime dateTime;
    bool isDirectory = false;

    friend bool operator==(const Entry&, const Entry&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Entry& entry)
    {
        return out << entry.path << (entry.isDirectory ? "/ " : " ")
                   << entry.dateTime.ToISO8601String();
    }
};

/// The plain way to list: takes the results of the standard's and Boost's operations for each
/// entry.
void ListPlainly(const boost::filesystem::path& directory, const std::string& root, bool recursive,
                 std::vector<Entry>& entries)
{
    for (const auto& entry : boost::filesystem::directory_iterator(directory)) {
        boost::system::error_code error;
        const auto type = boost::filesystem::status(entry.path(), error).type();
        const bool isDirectory = type == boost::filesystem::directory_file;
        if (!isDirectory && type != boost::filesystem::regular_file)
            continue;
        const auto time = boost::filesystem::last_write_time(entry.path());
        entries.push_back({boost::filesystem::relative(entry.path(), root, error).string(),
                           Core::DateTime::FromUnixEpochTime(time), isDirectory});
        if (recursive && isDirectory)
            ListPlainly(entry.path(), root, recursive, entries);
    }
}

std::vector<Entry> GetContent(const Core::Embedding::Event& event)
{
    std::vector<Entry> entries;
    for (const auto& item : OwnField(event, "Content").GetElements<Core::Struct>()) {
        EXPECT_EQ(item.GetDataTypeId(), FileSystem::DataTypes::ListItem());
        EXPECT_EQ(item.GetFields().size(), 3U);
        entries.push_back({item.GetFields().at(0).Get<std::string>(),
                           item.GetFields().at(1).Get<Core::DateTime>(),
                           item.GetFields().at(2).Get<bool>()});
    }
    return entries;
}

/// A tree of folders and files with links to files, to folders made later (so that they make no
/// circles), to nowhere, and to themselves.
class RandomTree
{
public:
    RandomTree(const std::string& root, unsigned int seed)
        : random(seed)
    {
        folders.push_back(root);
        for (int i = 0; i < 40; ++i)
            AddSomething();
        for (int i = 0; i < 4; ++i)
            AddLinkToLaterFolder();
    }

private:
    unsigned int Draw(std::size_t choices)
    {
        const auto last = static_cast<unsigned int>(choices) - 1;
        return std::uniform_int_distribution<unsigned int>(0, last)(random);
    }

    std::string MakePath()
    {
        static const std::vector<std::string> names{"a", "b c", "..d", "\xc3\xa9", "e\nf", ".g"};
        return folders[Draw(folders.size())] + "/" + names[Draw(names.size())] +
               std::to_string(count++);
    }

    void AddSomething()
    {
        const std::string path = MakePath();
        switch (Draw(6)) {
        case 0:
        case 1:
            std::filesystem::create_directory(path);
            folders.push_back(path);
            break;
        case 2:
            if (!files.empty()) {
                std::filesystem::create_symlink(files[Draw(files.size())], path);
                break;
            }
            [[fallthrough]];
        case 3:
            std::ofstream(path) << "content";
            files.push_back(path);
            break;
        case 4:
            std::filesystem::create_symlink("nowhere", path);
            break;
        default:
            std::filesystem::create_symlink(std::filesystem::path(path).filename(), path);
        }
    }

    void AddLinkToLaterFolder()
    {
        const unsigned int from = Draw(folders.size());
        const unsigned int to = Draw(folders.size());
        // A folder made later is never above one made earlier.
        if (from < to)
            std::filesystem::create_directory_symlink(folders[to], folders[from] + "/link" +
                                                                       std::to_string(count++));
    }

    std::mt19937 random;
    std::vector<std::string> folders;
    std::vector<std::string> files;
    int count = 0;
};

} // namespace

class Directory : public FileSystemTest
{
protected:
    Core::Embedding::Event Run(const std::function<void()>& work)
    {
        OnWorker(behaviour, work);
        const auto taken = events.TakeAll();
        EXPECT_EQ(taken.size(), 1U);
        return taken.empty() ? Core::Embedding::Event() : *taken[0];
    }

    bool Exists(const std::string& path)
    {
        const auto event = Run([&] { behaviour.Exists(path); });
        EXPECT_EQ(TypeNumber(event), existsResultEvent);
        return OwnField(event, "Exist").Get<bool>();
    }

    void CreateDirectory(const std::string& path)
    {
        const auto event = Run([&] { behaviour.CreateDirectory(path); });
        EXPECT_EQ(TypeNumber(event), createDirectoryResultEvent);
    }

    void Delete(const std::vector<std::string>& paths)
    {
        const auto event = Run([&] { behaviour.Delete(paths); });
        EXPECT_EQ(TypeNumber(event), deleteResultEvent);
    }

    std::vector<Entry> List(const std::string& path, bool recursive)
    {
        const auto event = Run([&] { behaviour.List(path, recursive); });
        EXPECT_EQ(TypeNumber(event), listResultEvent);
        EXPECT_EQ(OwnField(event, "LimitExceeded"), Core::Value(false));
        return GetContent(event);
    }

    std::set<std::string> ListPaths(const std::string& path, bool recursive)
    {
        std::set<std::string> paths;
        for (const auto& entry : List(path, recursive))
            EXPECT_TRUE(paths.insert(entry.path).second) << entry.path;
        return paths;
    }

    void ExpectListedLikeThePlainWay(const std::string& path)
    {
        for (const bool recursive : {false, true}) {
            std::vector<Entry> expected;
            std::vector<Entry> listed;
            CompareUntilEqual([&] {
                expected.clear();
                ListPlainly(path, path, recursive, expected);
                listed = List(path, recursive);
                return listed == expected;
            });
            EXPECT_EQ(listed, expected);
        }
    }

    /// Returns the text that a listing throws on the worker thread, without an event; empty if
    /// none.
    std::string GetListError(const std::string& path, bool recursive)
    {
        EXPECT_EQ(::chmod(root.c_str(), 0755), 0);
        auto error = OnWorker(behaviour, [&]() -> std::string {
            const WithoutRights ordinary;
            try {
                behaviour.List(path, recursive);
                return "";
            } catch (const boost::filesystem::filesystem_error& exception) {
                return exception.what();
            }
        });
        EXPECT_EQ(events.TakeAll().size(), error.empty() ? 1U : 0U);
        return error;
    }

    const std::string root = folder.GetPath();
};

// Existence

TEST_F(Directory, AFileAndAFolderExist)
{
    EXPECT_TRUE(Exists(folder.MakeFile("x")));
    EXPECT_TRUE(Exists(root));
}

TEST_F(Directory, AMissingPathDoesNotExist)
{
    EXPECT_FALSE(Exists(folder / "missing"));
    EXPECT_FALSE(Exists(folder / "missing/deeper"));
    EXPECT_FALSE(Exists(""));
}

TEST_F(Directory, APathThroughAFileDoesNotExist)
{
    EXPECT_FALSE(Exists(folder.MakeFile("x") + "/y"));
}

TEST_F(Directory, SomethingThatIsNeitherFileNorFolderExists)
{
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_TRUE(Exists(folder / "pipe"));
    EXPECT_TRUE(Exists("/dev/null"));
}

TEST_F(Directory, ALinkExistsIfItsTargetDoes)
{
    std::filesystem::create_symlink(folder.MakeFile("x"), folder / "good");
    std::filesystem::create_symlink("nowhere", folder / "dangling");
    std::filesystem::create_symlink("circle", folder / "circle");
    EXPECT_TRUE(Exists(folder / "good"));
    EXPECT_FALSE(Exists(folder / "dangling"));
    EXPECT_FALSE(Exists(folder / "circle"));
}

TEST_F(Directory, WhatCannotBeAskedForDoesNotExist)
{
    const std::string path = folder.MakeFile("x");
    ASSERT_EQ(::chmod(root.c_str(), 0), 0);
    const auto event = Run([&] {
        const WithoutRights ordinary;
        behaviour.Exists(path);
    });
    ASSERT_EQ(::chmod(root.c_str(), 0700), 0);
    EXPECT_EQ(OwnField(event, "Exist"), Core::Value(false));
}

// Creation

TEST_F(Directory, ADirectoryIsCreatedWithItsMissingParents)
{
    CreateDirectory(folder / "a/b/c");
    EXPECT_TRUE(std::filesystem::is_directory(folder / "a/b/c"));
}

TEST_F(Directory, CreatingWhatExistsChangesNothing)
{
    const std::string file = folder.MakeFile("x", "content");
    CreateDirectory(file);
    EXPECT_EQ(ReadWholeFile(file), "content");
    folder.MakeFile("y");
    CreateDirectory(root);
    EXPECT_TRUE(std::filesystem::exists(folder / "y"));
}

TEST_F(Directory, CreatingWhatCannotBeCreatedIsAnsweredAllTheSame)
{
    CreateDirectory(folder.MakeFile("x") + "/y");
    CreateDirectory("");
    EXPECT_EQ(ListPaths(root, true), std::set<std::string>{"x"});
}

TEST_F(Directory, CreatingInAReadOnlyFolderIsAnsweredAllTheSame)
{
    ASSERT_EQ(::chmod(root.c_str(), 0555), 0);
    const auto event = Run([&] {
        const WithoutRights ordinary;
        behaviour.CreateDirectory(folder / "a");
    });
    ASSERT_EQ(::chmod(root.c_str(), 0700), 0);
    EXPECT_EQ(TypeNumber(event), createDirectoryResultEvent);
    EXPECT_FALSE(std::filesystem::exists(folder / "a"));
}

// Deletion

TEST_F(Directory, AFolderIsDeletedWithAllThatIsBelowIt)
{
    std::filesystem::create_directories(folder / "a/b/c");
    folder.MakeFile("a/b/x");
    Delete({folder / "a"});
    EXPECT_FALSE(std::filesystem::exists(folder / "a"));
}

TEST_F(Directory, AFolderThatIsDeeperThanAPathCanBeLongIsDeletedWithFewDescriptors)
{
    const auto deep = folder.MakeDeepFolder("deep");
    {
        const ProcessLimit fewDescriptors(RLIMIT_NOFILE, 500);
        Delete({deep});
    }
    EXPECT_FALSE(std::filesystem::exists(deep));
}

TEST_F(Directory, DeletingAFolderFollowsNoLinkInIt)
{
    folder.MakeFile("kept");
    std::filesystem::create_directories(folder / "kept-folder/below");
    std::filesystem::create_directories(folder / "a/b");
    std::filesystem::create_directory_symlink("../../kept-folder", folder / "a/b/link");
    std::filesystem::create_symlink("../kept", folder / "a/link");
    Delete({folder / "a"});
    EXPECT_EQ(ListPaths(root, true),
              (std::set<std::string>{"kept", "kept-folder", "kept-folder/below"}));
}

TEST_F(Directory, AFileIsDeleted)
{
    Delete({folder.MakeFile("x")});
    EXPECT_FALSE(std::filesystem::exists(folder / "x"));
}

TEST_F(Directory, DeletingNothingIsAnswered)
{
    Delete({});
    Delete({folder / "missing"});
    Delete({""});
    EXPECT_TRUE(std::filesystem::exists(root));
}

TEST_F(Directory, OneFailureDoesNotEndTheDeletion)
{
    const std::string file = folder.MakeFile("x");
    Delete({folder / "missing", file + "/below", "/proc/self/comm", file, folder.MakeFile("y")});
    EXPECT_TRUE(std::filesystem::is_empty(root));
}

TEST_F(Directory, PathsAreDeletedInTheirOrder)
{
    std::filesystem::create_directory(folder / "target");
    std::filesystem::create_directory_symlink("target", folder / "link");
    folder.MakeFile("target/before");
    folder.MakeFile("target/after");
    Delete({folder / "link/before", folder / "link", folder / "link/after"});
    EXPECT_EQ(ListPaths(root, true), (std::set<std::string>{"target", "target/after"}));
}

TEST_F(Directory, DeletingALinkToAFolderKeepsTheFolder)
{
    std::filesystem::create_directory(folder / "target");
    folder.MakeFile("target/x");
    std::filesystem::create_directory_symlink("target", folder / "link");
    Delete({folder / "link"});
    EXPECT_FALSE(std::filesystem::is_symlink(folder / "link"));
    EXPECT_TRUE(std::filesystem::exists(folder / "target/x"));
}

TEST_F(Directory, LinksToNowhereAndInCirclesAreDeleted)
{
    std::filesystem::create_symlink("nowhere", folder / "dangling");
    std::filesystem::create_symlink("circle", folder / "circle");
    Delete({folder / "dangling", folder / "circle"});
    EXPECT_FALSE(std::filesystem::is_symlink(folder / "dangling"));
    EXPECT_FALSE(std::filesystem::is_symlink(folder / "circle"));
}

TEST_F(Directory, WhatCannotBeDeletedIsAnsweredAllTheSame)
{
    const std::string path = folder.MakeFile("x");
    ASSERT_EQ(::chmod(root.c_str(), 0555), 0);
    const auto event = Run([&] {
        const WithoutRights ordinary;
        behaviour.Delete(std::vector{path});
    });
    ASSERT_EQ(::chmod(root.c_str(), 0700), 0);
    EXPECT_EQ(TypeNumber(event), deleteResultEvent);
    EXPECT_TRUE(std::filesystem::exists(path));
}

// Listing

TEST_F(Directory, AnEmptyFolderHasAnEmptyListing)
{
    EXPECT_TRUE(List(root, false).empty());
    EXPECT_TRUE(List(root, true).empty());
}

TEST_F(Directory, AMissingFolderHasAnEmptyListing)
{
    EXPECT_TRUE(List(folder / "missing", false).empty());
    EXPECT_TRUE(List(folder / "missing", true).empty());
    EXPECT_TRUE(List("", true).empty());
}

TEST_F(Directory, AnEmptyListingIsAnArrayOfStructuresWithoutElements)
{
    const auto event = Run([&] { behaviour.List(root, true); });
    EXPECT_EQ(OwnField(event, "Content"), Core::Value(std::vector<Core::Struct>()));
}

TEST_F(Directory, AListingTellsPathTimeAndKind)
{
    std::filesystem::create_directory(folder / "sub");
    FileSystemBehaviour::SetDateTime(folder.MakeFile("x"), 1000);
    FileSystemBehaviour::SetDateTime(folder / "sub", 2000);
    auto entries = List(root, false);
    std::sort(entries.begin(), entries.end(),
              [](const auto& left, const auto& right) { return left.path < right.path; });
    EXPECT_EQ(entries, (std::vector<Entry>{{"sub", Core::DateTime::FromUnixEpochTime(2000), true},
                                           {"x", Core::DateTime::FromUnixEpochTime(1000), false}}));
}

TEST_F(Directory, AnEntryWithoutATimeHasAnEmptyOne)
{
    FileSystemBehaviour::SetDateTime(folder.MakeFile("x"), -1);
    const auto entries = List(root, false);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_TRUE(entries[0].dateTime.IsEmpty());
}

TEST_F(Directory, OnlyARecursiveListingDescends)
{
    std::filesystem::create_directories(folder / "sub/deep");
    folder.MakeFile("sub/file");
    EXPECT_EQ(ListPaths(root, false), std::set<std::string>{"sub"});
    EXPECT_EQ(ListPaths(root, true), (std::set<std::string>{"sub", "sub/deep", "sub/file"}));
}

TEST_F(Directory, EachFolderComesBeforeItsContents)
{
    std::filesystem::create_directories(folder / "a/b/c");
    for (const char* name : {"x", "a/x", "a/b/x", "a/b/c/x"})
        folder.MakeFile(name);
    std::set<std::string> seen;
    for (const auto& entry : List(root, true)) {
        const std::string parent = std::filesystem::path(entry.path).parent_path();
        EXPECT_TRUE(parent.empty() || seen.contains(parent)) << entry.path;
        seen.insert(entry.path);
    }
    EXPECT_EQ(seen.size(), 7U);
}

TEST_F(Directory, WhatIsNeitherFileNorFolderIsPassedOver)
{
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("/dev/null", folder / "device");
    std::filesystem::create_symlink("nowhere", folder / "dangling");
    std::filesystem::create_symlink("circle", folder / "circle");
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (folder / "socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(descriptor);
    folder.MakeFile("x");
    EXPECT_EQ(ListPaths(root, true), std::set<std::string>{"x"});
}

TEST_F(Directory, ALinkInCirclesBelowIsPassedOverAndTheListingGoesOn)
{
    std::filesystem::create_directory(folder / "sub");
    std::filesystem::create_symlink("two", folder / "sub/one");
    std::filesystem::create_symlink("one", folder / "sub/two");
    folder.MakeFile("sub/x");
    EXPECT_EQ(ListPaths(root, true), (std::set<std::string>{"sub", "sub/x"}));
}

TEST_F(Directory, RandomTreesAreListedLikeThePlainWay)
{
    for (unsigned int seed = 1; seed <= 25; ++seed) {
        SCOPED_TRACE(seed);
        const TemporaryFolder tree;
        const RandomTree content(tree.GetPath(), seed);
        ExpectListedLikeThePlainWay(tree.GetPath());
    }
}

TEST_F(Directory, ATreeWithALinkUpwardsIsListedLikeThePlainWay)
{
    std::filesystem::create_directories(folder / "a/b");
    folder.MakeFile("a/x");
    folder.MakeFile("a/b/y");
    std::filesystem::create_directory_symlink("../..", folder / "a/b/up");
    ExpectListedLikeThePlainWay(root);
}

TEST_F(Directory, ATreeThatIsItselfBehindALinkIsListedLikeThePlainWay)
{
    std::filesystem::create_directories(folder / "a/b");
    folder.MakeFile("a/b/y");
    std::filesystem::create_directory_symlink("a", folder / "link");
    ExpectListedLikeThePlainWay(folder / "link");
    ExpectListedLikeThePlainWay(root + "//a/../a/");
}

TEST_F(Directory, ATreeWithALinkOutOfItIsListedLikeThePlainWay)
{
    const TemporaryFolder outside;
    outside.MakeFile("x");
    std::filesystem::create_directory_symlink(outside.GetPath(), folder / "out");
    std::filesystem::create_symlink(outside / "x", folder / "file");
    ExpectListedLikeThePlainWay(root);
}

TEST_F(Directory, ListingAFileThrowsAndRaisesNoEvent)
{
    EXPECT_NE(GetListError(folder.MakeFile("x"), false), "");
}

TEST_F(Directory, AFolderBelowThatCannotBeReadEndsARecursiveListingWithoutAnEvent)
{
    std::filesystem::create_directory(folder / "closed");
    ASSERT_EQ(::chmod((folder / "closed").c_str(), 0), 0);
    EXPECT_NE(GetListError(root, true).find("Permission denied"), std::string::npos);
    EXPECT_EQ(GetListError(root, false), "");
    ASSERT_EQ(::chmod((folder / "closed").c_str(), 0700), 0);
}

TEST_F(Directory, AListingWithoutDescriptorsThrowsAndRaisesNoEvent)
{
    EXPECT_EQ(GetListError(root, false), "");
    const NoMoreDescriptors limit;
    EXPECT_NE(GetListError(root, false).find("Too many open files"), std::string::npos);
}

// The listing that keeps full paths

TEST_F(Directory, AWalkAppendsFullPathsAndSaysThatTheFolderExists)
{
    std::filesystem::create_directory(folder / "sub");
    folder.MakeFile("sub/x");
    std::vector<ListItem> items{{"already there", {}, false}};
    EXPECT_TRUE(FileSystemBehaviour::List(root, items, true));
    ASSERT_EQ(items.size(), 3U);
    EXPECT_EQ(items[0].path, "already there");
    EXPECT_EQ(items[1].path, folder / "sub");
    EXPECT_TRUE(items[1].isDirectory);
    EXPECT_EQ(items[2].path, folder / "sub/x");
    EXPECT_FALSE(items[2].isDirectory);
    ExpectNoEvent();
}

TEST_F(Directory, AWalkOfAMissingFolderSaysSo)
{
    std::vector<ListItem> items;
    EXPECT_FALSE(FileSystemBehaviour::List(folder / "missing", items, true));
    EXPECT_TRUE(items.empty());
}

TEST_F(Directory, AWalkThrowsLikeAListing)
{
    std::vector<ListItem> items;
    EXPECT_THROW(FileSystemBehaviour::List(folder.MakeFile("x"), items, true),
                 boost::filesystem::filesystem_error);
}

// The limit. These tests share one folder, since making it takes most of the time.

class DirectoryLimit : public Directory
{
protected:
    static void SetUpTestSuite()
    {
        many = std::make_unique<TemporaryFolder>();
        ASSERT_EQ(::chmod(many->GetPath().c_str(), 0755), 0);
        MakeManyFiles(many->GetPath(), listLimit);
    }
    static void TearDownTestSuite() { many.reset(); }

    void TearDown() override { std::filesystem::remove(GetOneMore()); }

    static std::string GetOneMore() { return *many / "one more"; }

    /// Returns the first entries in the system's order, as many as the limit.
    static std::vector<std::string> ReadFirstNames()
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(many->GetPath()))
            if (names.size() < listLimit)
                names.push_back(entry.path().filename().string());
        return names;
    }

    void ExpectFullListing(bool limitExceeded)
    {
        const auto event = Run([this] { behaviour.List(many->GetPath(), true); });
        EXPECT_EQ(OwnField(event, "Content").GetArrayDimensions(),
                  std::vector<unsigned int>{listLimit});
        std::vector<std::string> listed;
        for (const auto& item : OwnField(event, "Content").GetElements<Core::Struct>())
            listed.push_back(item.GetFields().at(0).Get<std::string>());
        EXPECT_TRUE(listed == ReadFirstNames()); // too many to print
        EXPECT_EQ(OwnField(event, "LimitExceeded"), Core::Value(limitExceeded));
    }

    /// Moves the folder below another one, under a name with which the system lists it before an
    /// existing entry. Returns an empty name when no name does.
    static std::string MoveManyBefore(const std::string& parent)
    {
        std::string from = many->GetPath();
        for (int i = 0; i < 100; ++i) {
            const std::string to = parent + "/many" + std::to_string(i);
            std::filesystem::rename(from, to);
            if (std::filesystem::directory_iterator(parent)->path() == to)
                return to;
            from = to;
        }
        std::filesystem::rename(from, many->GetPath());
        return {};
    }

    static std::unique_ptr<TemporaryFolder> many;
};

std::unique_ptr<TemporaryFolder> DirectoryLimit::many;

TEST_F(DirectoryLimit, AsManyEntriesAsTheLimitAreAFullListingThatDoesNotExceedIt)
{
    ExpectFullListing(false);
}

TEST_F(DirectoryLimit, OneMoreEntryGivesAsManyAsTheLimitInTheirOrderAndExceedsIt)
{
    std::ofstream(GetOneMore()).close();
    ExpectFullListing(true);
    std::vector<ListItem> items;
    EXPECT_TRUE(FileSystemBehaviour::List(many->GetPath(), items, true));
    EXPECT_EQ(items.size(), listLimit + 1);
}

TEST_F(DirectoryLimit, AnErrorBehindTheLimitStillEndsTheListingWithoutAnEvent)
{
    std::filesystem::create_directory(folder / "closed");
    ASSERT_EQ(::chmod((folder / "closed").c_str(), 0), 0);
    const std::string moved = MoveManyBefore(root);
    ASSERT_NE(moved, "");
    EXPECT_NE(GetListError(root, true).find("Permission denied"), std::string::npos);
    std::filesystem::rename(moved, many->GetPath());
}

} // namespace FileSystemTests
