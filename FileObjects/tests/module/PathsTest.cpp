#include "FileObjectsFixture.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <openssl/sha.h>
#include <set>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace {

/// The system calls of the module that bring files to the disk, in place of those of the C library.
struct Syncs
{
    int ofFiles = 0;
    int ofDisks = 0;
    int error = 0; ///< each fails with it; 0: none
    std::filesystem::path target;
    bool sawTarget = false; ///< it was there before it was synced

    int Make(long number, int& count, int file)
    {
        ++count;
        sawTarget = sawTarget || std::filesystem::exists(target);
        if (error == 0)
            return static_cast<int>(syscall(number, file));
        errno = error;
        return -1;
    }
};

Syncs syncs;

/// The looks of the module at files, in place of those of the C library.
struct Looks
{
    int error = 0;              ///< of a look at an open file; 0: none
    int ofNames = 0;            ///< looks by name
    std::function<void()> then; ///< is done at the first of them

    int AtOpened(int file, struct stat* state) const
    {
        const bool isOpened = error != 0 && (fcntl(file, F_GETFL) & O_PATH) == 0;
        if (!isOpened)
            return static_cast<int>(syscall(SYS_fstat, file, state));
        errno = error;
        return -1;
    }

    int ByName(int directory, const char* name, struct stat* state, int flags)
    {
        ++ofNames;
        if (const auto work = std::exchange(then, nullptr))
            work();
        return static_cast<int>(syscall(SYS_newfstatat, directory, name, state, flags));
    }
};

Looks looks;

} // namespace

__attribute__((visibility("default"))) int fsync(int file)
{
    return syncs.Make(SYS_fsync, syncs.ofFiles, file);
}

__attribute__((visibility("default"))) int syncfs(int file) noexcept
{
    return syncs.Make(SYS_syncfs, syncs.ofDisks, file);
}

__attribute__((visibility("default"))) int fstat(int file, struct stat* state) noexcept
{
    return looks.AtOpened(file, state);
}

__attribute__((visibility("default"))) int fstatat(int directory, const char* name,
                                                   struct stat* state, int flags) noexcept
{
    return looks.ByName(directory, name, state, flags);
}

namespace {

using namespace FileObjectsTests;
using testing::ElementsAre;

using Texts = std::vector<std::string>;

/// The outputs of GetStates.
struct States
{
    Bytes kinds;
    std::vector<unsigned long> sizes;
    std::vector<Core::DateTime> times;
    std::vector<unsigned int> permissions;
    Bytes access;
    std::vector<unsigned int> statuses;
    Texts reasons;
};

/// The calls by path; the folder "files" is the first one.
class APath : public AFileTree
{
protected:
    APath()
    {
        folder.MakeFile("file", "content");
        fixed.MakeFile("file", "fixed");
        std::filesystem::create_directory(folder / "directory");
    }

    static Core::Value ToArray(const Texts& texts)
    {
        return Core::Value::MakeArray(texts, {static_cast<unsigned int>(texts.size())});
    }

    States GetStates(const Texts& paths)
    {
        EXPECT_EQ(client.Call("", "GetStates", {ToArray(paths)}), Code::Good)
            << client.GetMessage();
        const auto& outputs = client.GetOutputs();
        if (outputs.size() != 7)
            return {};
        return {outputs[0].Get<Bytes>(),
                outputs[1].Get<std::vector<unsigned long>>(),
                outputs[2].Get<std::vector<Core::DateTime>>(),
                outputs[3].Get<std::vector<unsigned int>>(),
                outputs[4].Get<Bytes>(),
                outputs[5].Get<std::vector<unsigned int>>(),
                outputs[6].Get<Texts>()};
    }

    /// Returns the status and the reason of a path.
    std::pair<std::uint32_t, std::string> Look(const std::string& path)
    {
        const auto states = GetStates({path});
        return {states.statuses.at(0), states.reasons.at(0)};
    }

    std::vector<unsigned int> Move(const Texts& sources, const Texts& targets,
                                   bool replaces = false)
    {
        EXPECT_EQ(client.Call("", "MovePaths", {ToArray(sources), ToArray(targets), replaces}),
                  Code::Good)
            << client.GetMessage();
        reasons = client.GetOutputs().at(1).Get<Texts>();
        return client.GetOutputs().at(0).Get<std::vector<unsigned int>>();
    }

    std::uint32_t Copy(const std::string& source, const std::string& target, bool replaces = false)
    {
        return client.Call("", "CopyPath", {source, target, replaces});
    }

    std::uint32_t Chmod(const std::string& path, unsigned int permissions)
    {
        EXPECT_EQ(client.Call("", "SetPathPermissions",
                              {ToArray({path}), Core::Value::MakeArray(
                                                    std::vector<unsigned int>{permissions}, {1})}),
                  Code::Good);
        reasons = client.GetOutputs().at(1).Get<Texts>();
        return client.GetOutputs().at(0).Get<std::vector<unsigned int>>().at(0);
    }

    std::uint32_t StatusOf(const std::string& method, const Values& inputs)
    {
        return client.Call("", method, inputs);
    }

    [[nodiscard]] std::string ReadBack(const std::string& name) const
    {
        return ReadWholeFile(folder / name);
    }

    Texts reasons;
};

TEST_F(APath, TellsKindSizePermissionsAndAccess)
{
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0666), 0);
    ASSERT_EQ(chmod((folder / "file").c_str(), 0640), 0);
    std::filesystem::create_symlink("file", folder / "link");
    const auto states = GetStates(
        {folder / "file", "directory", "link", "pipe", "none", fixed / "file", "file/below"});
    EXPECT_EQ(states.kinds, Bytes({1, 2, 1, 3, 0, 1, 0}));
    EXPECT_THAT(states.sizes, ElementsAre(7, 0, 7, 0, 0, 5, 0));
    EXPECT_EQ(states.permissions.at(0), 0640U);
    EXPECT_EQ(states.permissions.at(2), 0640U);
    EXPECT_EQ(states.access, Bytes({3, 3, 3, 3, 0, 5, 0}));
    EXPECT_THAT(states.statuses,
                ElementsAre(0, 0, 0, 0, Code::Bad_NotFound, 0, Code::Bad_NotFound));
    EXPECT_THAT(states.reasons,
                ElementsAre("", "", "", "", "No such file or directory", "", "Not a directory"));
    for (std::size_t i = 0; i < states.times.size(); ++i)
        EXPECT_EQ(states.times.at(i).IsEmpty(), states.kinds.at(i) == 0) << i;
}

TEST_F(APath, IsAbsoluteOrInTheFirstFolder)
{
    const std::string absolute = folder.GetPath().string();
    for (const std::string& path :
         {std::string("file"), std::string("./file"), std::string(".//file"), absolute + "/file",
          absolute + "//./file", "/." + absolute + "/file"})
        EXPECT_EQ(Look(path).first, Code::Good) << path;
    for (const std::string& path : {std::string("."), absolute, absolute + "/", std::string("./")})
        EXPECT_EQ(GetStates({path}).kinds, Bytes({2})) << path;
}

TEST_F(APath, OutsideOfTheFoldersLeadsToNothing)
{
    outside.MakeFile("secret", "secret");
    std::filesystem::create_symlink(outside / "secret", folder / "out");
    std::filesystem::create_symlink("../" + outside.GetPath().filename().string() + "/secret",
                                    folder / "relative");
    const std::string absolute = folder.GetPath().string();
    for (const std::string& path :
         {std::string("/"), std::string(), std::string("/etc/passwd"), absolute + "x/file",
          folder.GetPath().parent_path().string(), outside / "secret", outside / "missing",
          std::string("out"), std::string("relative")})
        EXPECT_EQ(Look(path).first, Code::Bad_NotFound) << path;
    EXPECT_EQ(Look("out").second, "a link leads out of the folder");
    for (const std::string path : {"..", "../file", "directory/../file"})
        EXPECT_EQ(Look(path).first, Code::Bad_InvalidArgument) << path;
    EXPECT_EQ(Look(absolute + "/../" + folder.GetPath().filename().string()).first,
              Code::Bad_InvalidArgument);
    EXPECT_THAT(Move({"out", "file"}, {"moved", outside / "stolen"}),
                ElementsAre(Code::Bad_NotFound, Code::Bad_NotFound));
    EXPECT_EQ(Copy("out", "copy"), Code::Bad_NotFound);
    EXPECT_EQ(Copy("file", "relative/below"), Code::Bad_NotFound);
    EXPECT_EQ(Chmod(outside / "secret", 0777), Code::Bad_NotFound);
    EXPECT_EQ(StatusOf("GetPathChecksum", {"out", 0UL, 0UL}), Code::Bad_NotFound);
    EXPECT_EQ(StatusOf("GetPathSpace", {"/"}), Code::Bad_NotFound);
}

TEST_F(APath, AboveTheFoldersListsThemByTheirPaths)
{
    for (const std::string path : {"/", "//."}) {
        ASSERT_EQ(StatusOf("ListPath", {path, 0UL, 0U}), Code::Good) << client.GetMessage();
        EXPECT_THAT(client.GetOutputs().at(0).Get<Texts>(),
                    testing::IsSupersetOf({folder.GetPath().string(), fixed.GetPath().string()}));
    }
}

TEST_F(APath, ListsADirectoryWithPermissions)
{
    folder.MakeFile("directory/a", "a");
    folder.MakeFile("directory/b", "bb");
    ASSERT_EQ(chmod((folder / "directory/a").c_str(), 0600), 0);
    ASSERT_EQ(chmod((folder / "directory/b").c_str(), 0444), 0);
    ASSERT_EQ(StatusOf("ListPath", {"directory", 0UL, 0U}), Code::Good) << client.GetMessage();
    const auto& outputs = client.GetOutputs();
    ASSERT_EQ(outputs.size(), 6U);
    const auto names = outputs[0].Get<Texts>();
    std::set<std::tuple<std::string, unsigned long, unsigned int>> entries;
    for (std::size_t i = 0; i < names.size(); ++i)
        entries.insert({names[i], outputs[2].Get<std::vector<unsigned long>>().at(i),
                        outputs[4].Get<std::vector<unsigned int>>().at(i)});
    EXPECT_EQ(entries, (std::set<std::tuple<std::string, unsigned long, unsigned int>>{
                           {"a", 1, 0600}, {"b", 2, 0444}}));
    EXPECT_EQ(outputs[5].Get<unsigned long>(), 0U);
    EXPECT_EQ(StatusOf("ListPath", {folder.GetPath().string(), 0UL, 1U}), Code::Good);
    EXPECT_NE(client.GetOutputs().at(5).Get<unsigned long>(), 0U);
    EXPECT_EQ(StatusOf("ListPath", {"file", 0UL, 0U}), Code::Bad_NotFound);
    EXPECT_EQ(client.GetMessage(), "Not a directory");
}

TEST_F(APath, ListsAllThatIsThere)
{
    folder.MakeFile("directory/file", "content");
    std::filesystem::create_directory(folder / "directory/below");
    ASSERT_EQ(mkfifo((folder / "directory/pipe").c_str(), 0666), 0);
    for (const auto& [link, target] :
         std::map<std::string, std::string>{{"to file", "file"},
                                            {"to directory", "below"},
                                            {"to pipe", "pipe"},
                                            {"lost", "none"},
                                            {"circle", "circle"},
                                            {"out", outside.GetPath().string()}})
        std::filesystem::create_symlink(target, folder / ("directory/" + link));
    ASSERT_EQ(StatusOf("ListPath", {"directory", 0UL, 0U}), Code::Good) << client.GetMessage();
    const auto& outputs = client.GetOutputs();
    const auto names = outputs[0].Get<Texts>();
    std::map<std::string, std::pair<int, unsigned long>> entries;
    for (std::size_t i = 0; i < names.size(); ++i)
        entries[names[i]] = {outputs[1].Get<Bytes>().at(i),
                             outputs[2].Get<std::vector<unsigned long>>().at(i)};
    EXPECT_EQ(entries,
              (std::map<std::string, std::pair<int, unsigned long>>{{"file", {1, 7}},
                                                                    {"below", {2, 0}},
                                                                    {"pipe", {3, 0}},
                                                                    {"to file", {17, 7}},
                                                                    {"to directory", {18, 0}},
                                                                    {"to pipe", {19, 0}},
                                                                    {"lost", {19, 0}},
                                                                    {"circle", {19, 0}},
                                                                    {"out", {19, 0}}}));
    ASSERT_EQ(client.Call("d/files/directory", "List", {0UL, 0U}), Code::Good);
    EXPECT_THAT(client.GetOutputs().at(0).Get<Texts>(),
                testing::UnorderedElementsAre("file", "below", "to file", "to directory"));
    for (const auto kind : client.GetOutputs().at(1).Get<Bytes>())
        EXPECT_LE(kind, 2);
}

TEST_F(APath, IsRenamed)
{
    folder.MakeFile("directory/a", "a");
    EXPECT_THAT(Move({"file", folder / "directory", "none"}, {"directory/file", "renamed", "some"}),
                ElementsAre(Code::Good, Code::Good, Code::Bad_NotFound));
    EXPECT_THAT(reasons, ElementsAre("", "", "No such file or directory"));
    EXPECT_EQ(ReadBack("renamed/file"), "content");
    EXPECT_EQ(ReadBack("renamed/a"), "a");
    EXPECT_FALSE(std::filesystem::exists(folder / "file"));
}

TEST_F(APath, ReplacesAFileOnlyWhenToldTo)
{
    folder.MakeFile("old", "old");
    ASSERT_EQ(chmod((folder / "old").c_str(), 0444), 0);
    EXPECT_THAT(Move({"file"}, {"old"}), ElementsAre(Code::Bad_BrowseNameDuplicated));
    EXPECT_THAT(reasons, ElementsAre("old: File exists"));
    EXPECT_EQ(Copy("file", "old"), Code::Bad_BrowseNameDuplicated);
    EXPECT_EQ(client.GetMessage(), "old: File exists");
    EXPECT_EQ(ReadBack("old"), "old");
    EXPECT_EQ(Copy("file", "old", true), Code::Good) << client.GetMessage();
    EXPECT_EQ(ReadBack("old"), "content");
    EXPECT_THAT(Move({"old"}, {"file"}, true), ElementsAre(Code::Good));
    EXPECT_FALSE(std::filesystem::exists(folder / "old"));
}

TEST_F(APath, IsNeverReplacedIfItIsADirectoryOrTheFileItself)
{
    folder.MakeFile("target");
    std::filesystem::create_directory(folder / "empty");
    std::filesystem::create_hard_link(folder / "file", folder / "same");
    EXPECT_THAT(Move({"file", "directory", "directory", "file", "file"},
                     {"empty", "empty", "target", "file", "same"}, true),
                ElementsAre(Code::Bad_BrowseNameDuplicated, Code::Bad_BrowseNameDuplicated,
                            Code::Bad_BrowseNameDuplicated, Code::Bad_InvalidArgument,
                            Code::Bad_InvalidArgument));
    EXPECT_THAT(Move({"directory"}, {"directory/below"}), ElementsAre(Code::Bad_InvalidArgument));
    EXPECT_EQ(Copy("directory", "directory/below"), Code::Bad_InvalidArgument);
    EXPECT_EQ(Copy("file", "empty", true), Code::Bad_BrowseNameDuplicated);
    EXPECT_EQ(Copy("file", "same", true), Code::Bad_InvalidArgument);
    EXPECT_EQ(ReadBack("file"), "content");
    EXPECT_EQ(ReadBack("same"), "content");
}

TEST_F(APath, IsCopiedWithAllBelowIt)
{
    folder.MakeFile("directory/a", "a");
    ASSERT_EQ(chmod((folder / "directory/a").c_str(), 0640), 0);
    EXPECT_EQ(Copy("directory", "copy"), Code::Good) << client.GetMessage();
    EXPECT_EQ(ReadBack("copy/a"), "a");
    EXPECT_EQ(std::filesystem::status(folder / "copy/a").permissions(),
              std::filesystem::perms(0640));
    EXPECT_EQ(Copy(fixed / "file", "from fixed"), Code::Good);
    EXPECT_EQ(ReadBack("from fixed"), "fixed");
    EXPECT_EQ(Copy("file", "no/such/place"), Code::Bad_NotFound);
    EXPECT_EQ(List("d/files").size(), 4U) << "and nothing unfinished";
}

TEST_F(APath, IsCopiedWithItsHoles)
{
    constexpr off_t size = 1L << 30;
    folder.MakeFile("sparse", "begin");
    const int sparse = open((folder / "sparse").c_str(), O_WRONLY);
    EXPECT_EQ(pwrite(sparse, "middle", 6, size / 2), 6);
    EXPECT_EQ(ftruncate(sparse, size), 0);
    close(sparse);
    EXPECT_EQ(Copy("sparse", "copy"), Code::Good);
    struct stat copy
    {};
    EXPECT_EQ(stat((folder / "copy").c_str(), &copy), 0);
    EXPECT_EQ(copy.st_size, size);
    EXPECT_LT(copy.st_blocks * 512L, size / 100);
    std::ifstream content(folder / "copy", std::ios::binary);
    std::string begin(6, ' ');
    content.read(begin.data(), 6);
    EXPECT_EQ(begin, std::string("begin\0", 6));
    std::string middle(8, ' ');
    content.seekg(size / 2 - 1).read(middle.data(), 8);
    EXPECT_EQ(middle, std::string("\0middle\0", 8));
}

TEST_F(APath, IsCopiedWithTheSpecialBitsThatAreSafe)
{
    const auto make = [this](const std::string& name, mode_t mode) {
        const std::string path = folder / ("directory/" + name);
        std::filesystem::create_directory(path);
        folder.MakeFile("directory/" + name + "/file", "content");
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        ASSERT_EQ(chmod((path + "/file").c_str(), 06755), 0);
    };
    const auto getMode = [this](const std::string& path) {
        struct stat state
        {};
        EXPECT_EQ(stat((folder / path).c_str(), &state), 0) << path;
        return state.st_mode & 07777U;
    };
    make("own", 03775);
    make("of another", 03775);
    const bool isRoot = geteuid() == 0;
    if (isRoot)
        for (const auto* const name : {"directory/of another", "directory/of another/file"}) {
            const auto mode = getMode(name);
            ASSERT_EQ(chown((folder / name).c_str(), 65534, 65534), 0);
            ASSERT_EQ(chmod((folder / name).c_str(), mode), 0);
        }
    EXPECT_EQ(Copy("directory", "copy"), Code::Good) << client.GetMessage();
    EXPECT_EQ(getMode("copy/own"), 03775U);
    EXPECT_EQ(getMode("copy/own/file"), 06755U);
    if (isRoot) {
        EXPECT_EQ(getMode("copy/of another"), 01775U);
        EXPECT_EQ(getMode("copy/of another/file"), 0755U);
    }
}

TEST_F(APath, IsNotMovedOrReplacedWhileItIsOpen)
{
    folder.MakeFile("other", "other");
    folder.MakeFile("directory/open", "open");
    const auto written = other.Open("f/files/file", 2);
    ASSERT_NE(written, 0U);
    const auto below = other.Open("f/files/directory/open", 1);
    ASSERT_NE(below, 0U);
    EXPECT_THAT(
        Move({"file", "other", "directory"}, {"moved", "file", "gone"}, true),
        ElementsAre(Code::Bad_InvalidState, Code::Bad_InvalidState, Code::Bad_InvalidState));
    EXPECT_THAT(reasons, ElementsAre("the file is open", "file: the file is open",
                                     "files/directory/open is open"));
    EXPECT_EQ(Copy("other", "file", true), Code::Bad_InvalidState);
    EXPECT_EQ(Copy("file", "copy"), Code::Bad_InvalidState);
    EXPECT_EQ(StatusOf("GetPathChecksum", {"file", 0UL, 0UL}), Code::Bad_NotReadable);
    other.Close("f/files/file", written);
    other.Close("f/files/directory/open", below);
    EXPECT_THAT(Move({"other", "directory"}, {"file", "gone"}, true),
                ElementsAre(Code::Good, Code::Good));
}

TEST_F(APath, InAReadOnlyFolderIsNotChanged)
{
    EXPECT_THAT(Move({fixed / "file", "file"}, {"moved", fixed / "moved"}),
                ElementsAre(Code::Bad_NotWritable, Code::Bad_NotWritable));
    EXPECT_EQ(reasons.at(0), "Read-only file system");
    EXPECT_EQ(reasons.at(1), fixed / "moved" + ": Read-only file system");
    EXPECT_EQ(Copy("file", fixed / "copy"), Code::Bad_NotWritable);
    EXPECT_EQ(Chmod(fixed / "file", 0600), Code::Bad_NotWritable);
    EXPECT_EQ(ReadWholeFile(fixed / "file"), "fixed");
}

TEST_F(APath, OfAFolderIsNotMoved)
{
    EXPECT_THAT(Move({".", "file"}, {"directory/folder", folder.GetPath()}, true),
                ElementsAre(Code::Bad_UserAccessDenied, Code::Bad_UserAccessDenied));
    EXPECT_EQ(Copy("file", ".", true), Code::Bad_UserAccessDenied);
    EXPECT_TRUE(std::filesystem::exists(folder / "file"));
}

TEST_F(APath, TellsSpaceAndChecksums)
{
    EXPECT_EQ(StatusOf("GetPathSpace", {"file"}), Code::Good);
    const auto space = std::filesystem::space(folder.GetPath());
    EXPECT_EQ(client.GetOutputs().at(0).Get<unsigned long>(), space.capacity);
    EXPECT_GT(client.GetOutputs().at(1).Get<unsigned long>(), 0U);
    EXPECT_EQ(StatusOf("GetPathSpace", {"none"}), Code::Bad_NotFound);

    Bytes expected(SHA256_DIGEST_LENGTH);
    SHA256(reinterpret_cast<const unsigned char*>("onte"), 4, expected.data());
    EXPECT_EQ(StatusOf("GetPathChecksum", {"file", 1UL, 4UL}), Code::Good);
    EXPECT_EQ(client.GetOutputs().at(0).Get<Bytes>(), expected);
    EXPECT_EQ(client.GetOutputs().at(1).Get<unsigned long>(), 4U);
    EXPECT_EQ(StatusOf("GetPathChecksum", {"directory", 0UL, 0UL}), Code::Good);
    const auto ofDirectory = client.GetOutputs().at(0).Get<Bytes>();
    EXPECT_EQ(client.Call("d/files/directory", "GetChecksum"), Code::Good);
    EXPECT_EQ(client.GetOutputs().at(0).Get<Bytes>(), ofDirectory);
}

TEST_F(APath, GetsPermissions)
{
    EXPECT_EQ(Chmod("file", 0604), Code::Good);
    EXPECT_EQ(ReadProperty<unsigned int>("f.Permissions/files/file"), 0604U);
    EXPECT_EQ(Chmod(folder / "directory", 0711), Code::Good);
    EXPECT_EQ(ReadProperty<unsigned int>("d.Permissions/files/directory"), 0711U);
    EXPECT_EQ(Chmod("file", 04755), Code::Bad_InvalidArgument);
    EXPECT_EQ(Chmod("none", 0600), Code::Bad_NotFound);
    EXPECT_EQ(reasons.at(0), "No such file or directory");
}

TEST_F(APath, KeepsItsOtherBitsWhenItGetsPermissions)
{
    const auto getMode = [this] {
        struct stat state
        {};
        EXPECT_EQ(stat((folder / "directory").c_str(), &state), 0);
        return state.st_mode & 07777U;
    };
    ASSERT_EQ(chmod((folder / "directory").c_str(), 03777), 0);
    EXPECT_EQ(Chmod("directory", 0750), Code::Good);
    EXPECT_EQ(getMode(), 03750U);
    EXPECT_EQ(client.Call("d/files/directory", "SetPermissions", {0705U}), Code::Good);
    EXPECT_EQ(getMode(), 03705U);
}

TEST_F(APath, IsOneOfAtMostAThousand)
{
    EXPECT_EQ(GetStates(Texts(1000, "file")).kinds, Bytes(1000, 1));
    EXPECT_EQ(StatusOf("GetStates", {ToArray(Texts(1001, "file"))}), Code::Bad_InvalidArgument);
    EXPECT_EQ(GetStates({}).kinds, Bytes());
    EXPECT_EQ(StatusOf("GetStates", {Core::Value()}), Code::Good) << "a null array";
    EXPECT_EQ(StatusOf("MovePaths", {ToArray({"file"}), ToArray({}), false}),
              Code::Bad_InvalidArgument);
    EXPECT_EQ(StatusOf("SetPathPermissions",
                       {ToArray({}), Core::Value::MakeArray(std::vector<unsigned int>{1}, {1})}),
              Code::Bad_InvalidArgument);
    EXPECT_EQ(StatusOf("MovePaths", {ToArray(Texts(1001, "a")), ToArray(Texts(1001, "b")), false}),
              Code::Bad_InvalidArgument);
    EXPECT_EQ(client.Call("d/files", "GetStates", {ToArray({"file"})}), Code::Refused)
        << "only the root has these methods";
}

/// Takes the rights of root from the process, where it has them, and gives a folder to the user
/// that it runs as then.
class WithoutRights
{
public:
    explicit WithoutRights(const std::filesystem::path& folder)
    {
        if (geteuid() != 0)
            return;
        EXPECT_EQ(chown(folder.c_str(), nobody, nobody), 0);
        EXPECT_EQ(seteuid(nobody), 0);
    }
    WithoutRights(const WithoutRights&) = delete;
    WithoutRights& operator=(const WithoutRights&) = delete;
    ~WithoutRights() { static_cast<void>(seteuid(getuid())); }

private:
    static constexpr uid_t nobody = 65534;
};

class AMovedPath : public APath
{
protected:
    AMovedPath() { syncs = {.target = folder / "to0"}; }
    ~AMovedPath() override
    {
        syncs = {};
        looks = {};
    }

    /// Makes so many files to be moved.
    void MakeFiles(int count)
    {
        sources.clear();
        targets.clear();
        for (int i = 0; i < count; ++i) {
            sources.push_back("from" + std::to_string(i));
            targets.push_back("to" + std::to_string(i));
            folder.MakeFile(sources.back(), "content");
        }
    }

    /// Moves so many files.
    std::vector<unsigned int> MoveFiles(int count, bool replaces)
    {
        MakeFiles(count);
        return Move(sources, targets, replaces);
    }

    Texts sources;
    Texts targets;
};

TEST_F(AMovedPath, IsOnTheDiskBeforeItTakesThePlaceOfAnother)
{
    EXPECT_THAT(MoveFiles(1, true), ElementsAre(Code::Good));
    EXPECT_EQ(syncs.ofFiles, 1);
    EXPECT_EQ(syncs.ofDisks, 0);
    EXPECT_FALSE(syncs.sawTarget);
}

TEST_F(AMovedPath, IsOnTheDiskWithAllOthersOfACall)
{
    EXPECT_THAT(MoveFiles(200, true), testing::Each(Code::Good));
    EXPECT_EQ(syncs.ofFiles, 0);
    EXPECT_EQ(syncs.ofDisks, 1);
    EXPECT_FALSE(syncs.sawTarget);
}

TEST_F(AMovedPath, StaysWhenItDoesNotReachTheDisk)
{
    syncs.error = EIO;
    for (const int count : {1, 200}) {
        EXPECT_THAT(MoveFiles(count, true), testing::Each(Code::Bad_DeviceFailure));
        EXPECT_THAT(reasons, testing::Each("Input/output error"));
        EXPECT_FALSE(std::filesystem::exists(folder / "to0"));
        EXPECT_TRUE(std::filesystem::exists(folder / "from0"));
    }
}

TEST_F(AMovedPath, StaysWhenItCannotBeOpenedForTheSync)
{
    for (const int error : {EMFILE, ENFILE, ENOMEM, EIO})
        for (const int count : {1, 20}) {
            MakeFiles(count);
            looks.error = error;
            EXPECT_THAT(Move(sources, targets, true), testing::Each(testing::Ne(Code::Good)));
            looks.error = 0;
            EXPECT_THAT(reasons, testing::Each(std::generic_category().message(error)));
            EXPECT_FALSE(std::filesystem::exists(folder / "to0"));
            EXPECT_TRUE(std::filesystem::exists(folder / "from0"));
        }
}

TEST_F(AMovedPath, IsSyncedWithItsDiskWhereNobodyMayOpenIt)
{
    for (const int count : {1, 20}) {
        MakeFiles(count);
        for (const auto& source : sources)
            ASSERT_EQ(chmod((folder / source).c_str(), 0), 0);
        syncs = {.target = folder / "to0"};
        const WithoutRights without(folder.GetPath());
        EXPECT_THAT(Move(sources, targets, true), testing::Each(Code::Good));
        EXPECT_EQ(syncs.ofFiles, 0);
        EXPECT_EQ(syncs.ofDisks, 1);
        EXPECT_FALSE(syncs.sawTarget);
        ASSERT_EQ(unlink((folder / "to0").c_str()), 0);
    }
}

TEST_F(AMovedPath, IsNotSyncedWhereItStays)
{
    MakeFiles(20);
    for (auto& target : targets)
        target = fixed / target;
    for (const std::size_t count : {20U, 1U}) {
        sources.resize(count);
        targets.resize(count);
        EXPECT_THAT(Move(sources, targets, true), testing::Each(Code::Bad_NotWritable));
        EXPECT_EQ(syncs.ofFiles + syncs.ofDisks, 0) << count;
    }
}

TEST_F(AMovedPath, IsSyncedThoughOthersOfTheCallStay)
{
    MakeFiles(20);
    targets.front() = fixed / "to0";
    sources.back() = "to1"; // is there only when the call has moved it there
    const auto statuses = Move(sources, targets, true);
    EXPECT_EQ(statuses.front(), Code::Bad_NotWritable);
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), Code::Good), 19);
    EXPECT_EQ(syncs.ofDisks, 1);
    EXPECT_EQ(syncs.ofFiles, 1) << "the last one, by itself";
}

TEST_F(AMovedPath, IsNotSyncedForAClientThatHasGone)
{
    MakeFiles(20);
    looks.then = [this] {
        client.End();
    };
    looks.ofNames = 0;
    EXPECT_EQ(client.Call("", "MovePaths", {ToArray(sources), ToArray(targets), true}),
              Code::Bad_SessionClosed);
    EXPECT_EQ(looks.ofNames, 1) << "nor is the next file looked at";
    EXPECT_EQ(syncs.ofFiles + syncs.ofDisks, 0);
    EXPECT_TRUE(std::filesystem::exists(folder / "from0"));
}

TEST_F(AMovedPath, IsNotSyncedWhereItReplacesNothing)
{
    EXPECT_THAT(MoveFiles(200, false), testing::Each(Code::Good));
    EXPECT_EQ(syncs.ofFiles + syncs.ofDisks, 0);
}

TEST_F(AMovedPath, IsSyncedThoughNobodyMayReadIt)
{
    folder.MakeFile("from", "content");
    std::filesystem::permissions(folder / "from", std::filesystem::perms::owner_write);
    EXPECT_THAT(Move({"from", "directory"}, {"to0", "there"}, true),
                ElementsAre(Code::Good, Code::Good));
    EXPECT_EQ(syncs.ofFiles, 1) << "of directories none";
}

} // namespace
