#include "Host.h"
#include "Waiting.h"

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdlib>
#include <random>

namespace FileSystemTests {

namespace {

/// One entry of a listing as a client gets it.
struct Entry
{
    std::string path;
    Core::DateTime time;
    bool isDirectory = false;

    friend bool operator==(const Entry&, const Entry&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Entry& entry)
    {
        return out << '"' << entry.path << (entry.isDirectory ? "/\" " : "\" ")
                   << entry.time.ToISO8601String();
    }
};

using Entries = std::vector<Entry>;

/// The plain way to list: asks Boost each question about each entry by the entry's whole path.
void ListPlainly(const boost::filesystem::path& directory, const std::string& root, bool recursive,
                 Entries& entries)
{
    boost::system::error_code error;
    for (const auto& entry : boost::filesystem::directory_iterator(directory)) {
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

Entries ToEntries(const Core::Embedding::Event& event)
{
    Entries entries;
    for (const auto& item : OwnField(event, "Content").GetElements<Core::Struct>())
        entries.push_back({item.GetFields().at(0).Get<std::string>(),
                           item.GetFields().at(1).Get<Core::DateTime>(),
                           item.GetFields().at(2).Get<bool>()});
    return entries;
}

/// Names of all kinds, but so few that many folders have entries of the same name.
const std::vector<std::string> names{"a",        "b c",      "..d",  ".e",   "...", "\xc3\xa9",
                                     "\xff\xfe", "\xc0\xaf", "f\ng", "h\\i", "~",   "-n"};

/// A tree and, beside it, another one to which links lead. Links to folders lead to folders
/// made later, so that they make no circles.
class Trees
{
public:
    Trees(const std::string& folder, unsigned int seed)
        : root(folder + "/root")
        , random(seed)
    {
        AddFolder(root);
        AddFolder(folder + "/rootless"); // begins like the root's path, but is not below it
        for (int i = 0; i < 60; ++i)
            AddEntry();
        for (int i = 0; i < 8; ++i)
            AddLinkToLaterFolder();
    }

    [[nodiscard]] const std::string& GetRoot() const noexcept { return root; }

private:
    std::size_t Draw(std::size_t choices)
    {
        return std::uniform_int_distribution<std::size_t>(0, choices - 1)(random);
    }

    void AddFolder(const std::string& path)
    {
        std::filesystem::create_directories(path);
        folders.push_back(path);
    }

    void AddEntry()
    {
        const std::string folder = folders[Draw(folders.size())];
        const std::string path = folder + '/' + names[Draw(names.size())];
        if (std::filesystem::exists(std::filesystem::symlink_status(path)))
            return;
        switch (Draw(8)) {
        case 0:
        case 1:
            AddFolder(path);
            break;
        case 2:
            AddLink(path, files);
            break;
        case 3:
            std::filesystem::create_symlink("nowhere/at all", path);
            break;
        case 4:
            std::filesystem::create_symlink(std::filesystem::path(path).filename(), path);
            break;
        default:
            std::ofstream(path) << "content";
            files.push_back(path);
        }
    }

    void AddLink(const std::string& path, std::vector<std::string>& targets)
    {
        if (targets.empty())
            return;
        const std::string target = targets[Draw(targets.size())];
        if (Draw(2) == 0)
            std::filesystem::create_symlink(target, path);
        else
            std::filesystem::create_symlink(
                std::filesystem::path("..") / std::filesystem::path(path).parent_path().filename() /
                    std::filesystem::relative(target, std::filesystem::path(path).parent_path()),
                path);
        targets.push_back(path); // links to links
    }

    void AddLinkToLaterFolder()
    {
        const std::size_t from = Draw(folders.size());
        const std::size_t to = Draw(folders.size());
        if (from < to)
            std::filesystem::create_directory_symlink(folders[to], folders[from] + "/link" +
                                                                       std::to_string(count++));
    }

    const std::string root;
    std::mt19937 random;
    std::vector<std::string> folders;
    std::vector<std::string> files;
    int count = 0;
};

/// Puts the process into another folder.
class InFolder
{
public:
    explicit InFolder(const std::string& folder) { std::filesystem::current_path(folder); }
    InFolder(const InFolder&) = delete;
    InFolder& operator=(const InFolder&) = delete;
    ~InFolder()
    {
        std::error_code ignored;
        std::filesystem::current_path(before, ignored);
    }

private:
    std::filesystem::path before = std::filesystem::current_path();
};

} // namespace

class ListedPaths : public FileSystemTest
{
protected:
    Entries List(const std::string& path, bool recursive)
    {
        OnWorker(behaviour, [&] { behaviour.List(path, recursive); });
        const auto taken = events.TakeAll();
        EXPECT_EQ(taken.size(), 1U) << path;
        return taken.empty() ? Entries() : ToEntries(*taken.front());
    }

    /// Returns the entries that both ways list.
    Entries ExpectLikeThePlainWay(const std::string& path)
    {
        Entries listed;
        for (const bool recursive : {false, true}) {
            Entries expected;
            CompareUntilEqual([&] {
                expected.clear();
                ListPlainly(path, path, recursive, expected);
                listed = List(path, recursive);
                return listed == expected;
            });
            EXPECT_EQ(listed, expected) << path;
        }
        return listed;
    }

    const std::string root = folder / "root";
};

TEST_F(ListedPaths, AreThoseOfThePlainWayInManyTrees)
{
    std::size_t count = 0;
    for (unsigned int seed = 0; seed < 100; ++seed) {
        const TemporaryFolder place;
        const Trees trees(place.GetPath(), seed);
        count += ExpectLikeThePlainWay(trees.GetRoot()).size();
        if (HasFailure())
            FAIL() << "seed " << seed;
    }
    EXPECT_GT(count, 100U * 10U);
}

TEST_F(ListedPaths, AreThoseOfThePlainWayHoweverTheFolderIsNamed)
{
    for (unsigned int seed = 0; seed < 10; ++seed) {
        const TemporaryFolder place;
        const std::string path = Trees(place.GetPath(), seed).GetRoot();
        std::filesystem::create_directory(path + "/down");
        std::filesystem::create_directory_symlink("root", place / "link");
        std::filesystem::create_directory_symlink(place / "link", place / "link to link");
        for (const std::string& name :
             {path + "/", path + "//", path + "/.", path + "/./", path + "/down/..",
              path + "/down/../", place / "link", place / "link/", place / "link/down/..",
              place / "link to link", "/" + path, "//" + path})
            ExpectLikeThePlainWay(name);
    }
}

TEST_F(ListedPaths, AreThoseOfThePlainWayForRelativePaths)
{
    const TemporaryFolder place;
    const std::string path = Trees(place.GetPath(), 1).GetRoot();
    std::filesystem::create_directory(path + "/down");
    {
        const InFolder here(place.GetPath());
        for (const char* name : {"root", "./root", "root/", "root/down/..", ".", "./"})
            ExpectLikeThePlainWay(name);
    }
    const InFolder here(path + "/down");
    for (const char* name : {"..", "../", "../../root", "../.."})
        ExpectLikeThePlainWay(name);
}

TEST_F(ListedPaths, AreThoseOfThePlainWayBehindALinkUpwards)
{
    folder.MakeFile("x");
    std::filesystem::create_directories(root + "/a/root");
    folder.MakeFile("root/a/y");
    std::filesystem::create_directory_symlink("../..", root + "/a/up");
    EXPECT_GT(ExpectLikeThePlainWay(root).size(), 100U);
    EXPECT_GT(ExpectLikeThePlainWay(root + "/a").size(), 100U);
}

TEST_F(ListedPaths, AreThoseOfThePlainWayBehindALinkToTheListedFolder)
{
    std::filesystem::create_directories(root + "/a");
    folder.MakeFile("root/a/x");
    std::filesystem::create_directory_symlink(root, root + "/a/itself");
    EXPECT_GT(ExpectLikeThePlainWay(root).size(), 100U);
}

TEST_F(ListedPaths, AreThoseOfThePlainWayWhereTheRealPathIsTooLong)
{
    const std::string name(200, 'n');
    std::string deep = folder.GetPath();
    while (deep.size() + 250 < 4000)
        deep += '/' + name;
    deep += '/' + std::string(4000 - deep.size() - 1, 'd'); // 95 more characters are a path
    std::filesystem::create_directories(deep);
    std::filesystem::create_directory(root);
    std::filesystem::create_directory_symlink(deep, root + "/link");
    std::filesystem::create_directory(root + "/link/" + name);
    for (std::size_t size = 1; size < 200; ++size)
        folder.MakeFile("root/link/" + name.substr(0, size));
    errno = 0;
    ASSERT_EQ(::realpath((root + "/link/" + name.substr(0, 199)).c_str(), nullptr), nullptr);
    ASSERT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(ExpectLikeThePlainWay(root).size(), 201U);
    for (const auto& entry : std::filesystem::directory_iterator(root + "/link"))
        std::filesystem::remove_all(entry.path());
}

TEST_F(ListedPaths, AreThoseOfThePlainWayFromTheRootOfAllFolders)
{
    Entries expected;
    ListPlainly("/", "/", false, expected);
    EXPECT_EQ(List("/", false), expected);
}

} // namespace FileSystemTests
