#include "FileObjectsFixture.h"
#include "ProcessLimits.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <iostream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace FileObjectsTests;

class ABound : public AFileTree
{};

TEST_F(ABound, IsSetToTheOpenFilesOfASession)
{
    folder.MakeFile("file", "content");
    std::vector<unsigned int> handles;
    while (const auto handle = client.Open("f/files/file", 1))
        handles.push_back(handle);
    EXPECT_EQ(handles.size(), 100U);
    const unsigned char mode = 1;
    EXPECT_EQ(client.Call("f/files/file", "Open", {mode}), Code::Bad_ResourceUnavailable);
    EXPECT_EQ(client.Call("d/files", "CreateFile", {"new", true}), Code::Bad_ResourceUnavailable);
    EXPECT_FALSE(std::filesystem::exists(folder / "new"));
    EXPECT_EQ(client.Call("d/files", "CreateFile", {"new", false}), Code::Good);
    EXPECT_NE(other.Open("f/files/file", 1), 0U) << "other sessions have bounds of their own";
    client.Close("f/files/file", handles.back());
    EXPECT_NE(client.Open("f/files/file", 1), 0U);
}

TEST_F(ABound, IsSetToTheTemporaryFiles)
{
    std::size_t count = 0;
    while (client.Call("t", "GenerateFileForWrite", {"files/file"}) == Code::Good)
        ++count;
    EXPECT_EQ(count, 64U);
    EXPECT_EQ(other.Call("t", "GenerateFileForWrite", {"files/file"}),
              Code::Bad_ResourceUnavailable);
    EXPECT_EQ(List("d/files").size(), count);
    client.End();
    EXPECT_EQ(List("d/files").size(), 0U);
    EXPECT_EQ(other.Call("t", "GenerateFileForWrite", {"files/file"}), Code::Good);
}

TEST_F(ABound, LeavesNothingOpen)
{
    folder.MakeFile("file", "content");
    const auto countDescriptors = [] {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    const auto before = countDescriptors();
    for (int i = 0; i < 10; ++i) {
        client.Open("f/files/file", 1);
        client.Call("t", "GenerateFileForWrite", {"files/new"});
        client.Call("t", "GenerateFileForRead", {"files/file"});
        client.Call("d/files", "GetSpace");
        client.Call("d/files", "List", {0UL, 0U});
        client.Call("d/files", "GetChecksum");
        client.Call("d/files", "MoveOrCopy",
                    {ToNode("f/files/file"), ToNode("d/files"), true, "c"});
    }
    EXPECT_GT(countDescriptors(), before);
    client.End();
    EXPECT_EQ(countDescriptors(), before);
}

/// Ends the process of a test: 0 if all expectations hold.
[[noreturn]] void EndProcess()
{
    const bool hasFailed = testing::Test::HasFailure();
    std::cerr << (hasFailed ? "failed" : "passed") << std::endl;
    std::_Exit(hasFailed ? 1 : 0); // without the sanitizers' checks of what is still there
}

void WriteText(const char* path, const std::string& text)
{
    const int file = ::open(path, O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(::write(file, text.data(), text.size()), static_cast<ssize_t>(text.size())) << path;
    ::close(file);
}

/// Gives the process a temporary folder of its own on a small disk; false where that is not
/// allowed. REQUIRES: the process has one thread.
bool MountSmallDisk()
{
    const auto user = std::to_string(getuid());
    const auto group = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return false;
    WriteText("/proc/self/setgroups", "deny");
    WriteText("/proc/self/uid_map", "0 " + user + " 1");
    WriteText("/proc/self/gid_map", "0 " + group + " 1");
    return mount("tmpfs", "/tmp", "tmpfs", 0, "size=1m,nr_inodes=100") == 0 &&
           setenv("TMPDIR", "/tmp", 1) == 0;
}

class AFailure : public testing::Test
{
protected:
    AFailure() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

void FillDisk()
{
    if (!MountSmallDisk())
        EndProcess();
    FileTree tree;
    auto& client = tree.client;
    EXPECT_EQ(client.Call("d/files", "CreateFile", {"file", true}), Code::Good);
    const auto handle = client.GetOutputs().at(1).Get<unsigned int>();
    const std::string block(300'000, 'x');
    std::uint32_t status = Code::Good;
    for (int i = 0; i < 10 && status == Code::Good; ++i)
        status = client.Write("f/files/file", handle, block);
    EXPECT_EQ(status, Code::Bad_ResourceUnavailable);
    EXPECT_EQ(client.GetMessage(), "files/file: No space left on device");
    EXPECT_EQ(client.GetPosition("f/files/file", handle),
              std::filesystem::file_size(tree.folder / "file"));
    EXPECT_EQ(client.Close("f/files/file", handle), Code::Good);
    // A copy that does not fit leaves nothing behind.
    EXPECT_EQ(client.Call("d/files", "MoveOrCopy",
                          {ToNode("f/files/file"), ToNode("d/files"), true, "copy"}),
              Code::Bad_ResourceUnavailable);
    EXPECT_EQ(tree.List("d/files").size(), 1U);
    EXPECT_EQ(client.Call("t", "GenerateFileForRead", {"files/file"}),
              Code::Bad_ResourceUnavailable);
    EXPECT_EQ(client.Call("d/files", "Delete", {ToNode("f/files/file")}), Code::Good);
    EXPECT_EQ(client.Call("d/files", "CreateFile", {"again", false}), Code::Good);
    // Files end before bytes do.
    status = Code::Good;
    for (int i = 0; i < 200 && status == Code::Good; ++i)
        status = client.Call("d/files", "CreateDirectory", {std::to_string(i)});
    EXPECT_EQ(status, Code::Bad_ResourceUnavailable);
    EndProcess();
}

TEST_F(AFailure, OfAFullDiskIsBad_ResourceUnavailable)
{
    EXPECT_EXIT(FillDisk(), testing::ExitedWithCode(0), "passed");
}

void MoveBetweenDisks()
{
    if (!MountSmallDisk())
        EndProcess();
    FileTree tree;
    auto& client = tree.client;
    std::filesystem::create_directories(tree.folder / "disk");
    EXPECT_EQ(mount("tmpfs", (tree.folder / "disk").c_str(), "tmpfs", 0, "size=1m"), 0);
    std::filesystem::create_directories(tree.folder / "a/b");
    tree.folder.MakeFile("a/b/file", "content");
    std::filesystem::create_symlink("b/file", tree.folder / "a/link");
    EXPECT_EQ(client.Call("d/files", "MoveOrCopy",
                          {ToNode("d/files/a"), ToNode("d/files/disk"), false, "moved"}),
              Code::Good);
    EXPECT_EQ(ReadWholeFile(tree.folder / "disk/moved/link"), "content");
    EXPECT_FALSE(std::filesystem::exists(tree.folder / "a"));
    std::filesystem::create_directories(tree.folder / "c/d");
    tree.folder.MakeFile("c/file", "content");
    EXPECT_EQ(mkfifo((tree.folder / "c/d/pipe").c_str(), 0600), 0);
    EXPECT_EQ(client.Call("d/files", "MoveOrCopy",
                          {ToNode("d/files/c"), ToNode("d/files/disk"), false, "lossy"}),
              Code::Bad_NotSupported);
    EXPECT_EQ(client.GetMessage(), "files/c/d/pipe: a pipe, socket or device cannot be moved to "
                                   "another file system");
    EXPECT_EQ(ReadWholeFile(tree.folder / "c/file"), "content");
    EXPECT_TRUE(std::filesystem::is_fifo(tree.folder / "c/d/pipe"));
    EXPECT_EQ(tree.List("d/files/disk").size(), 1U) << "no copy stays";
    EXPECT_EQ(client.Call("d/files", "MoveOrCopy",
                          {ToNode("d/files/c"), ToNode("d/files/disk"), true, "copy"}),
              Code::Good);
    EXPECT_EQ(mount("", (tree.folder / "disk").c_str(), "", MS_REMOUNT | MS_RDONLY, ""), 0);
    EXPECT_EQ(client.Call("d/files/disk", "CreateFile", {"new", true}), Code::Bad_NotWritable);
    EXPECT_FALSE(tree.ReadProperty<bool>("f.Writable/files/disk/moved/b/file"));
    EndProcess();
}

TEST_F(AFailure, IsNoneWhenSomethingIsMovedToAnotherDisk)
{
    EXPECT_EXIT(MoveBetweenDisks(), testing::ExitedWithCode(0), "passed");
}

void LackPermissions()
{
    constexpr uid_t nobody = 65534;
    FileTree tree;
    auto& client = tree.client;
    tree.folder.MakeFile("secret", "content");
    tree.folder.MakeFile("readable", "content");
    std::filesystem::create_directory(tree.folder / "closed");
    tree.folder.MakeFile("closed/file", "content");
    std::filesystem::create_directory(tree.folder / "names");
    tree.folder.MakeFile("names/file", "content");
    chmod((tree.folder / "names").c_str(), 0444);
    chmod((tree.folder / "secret").c_str(), 0);
    chmod((tree.folder / "readable").c_str(), 0444);
    chmod((tree.folder / "closed").c_str(), 0);
    chmod(tree.folder.GetPath().c_str(), 0555);
    if (getuid() == 0 && seteuid(nobody) != 0)
        EndProcess();
    const unsigned char read = 1;
    const unsigned char write = 2;
    EXPECT_EQ(client.Call("f/files/secret", "Open", {read}), Code::Bad_UserAccessDenied);
    EXPECT_EQ(client.GetMessage(), "files/secret: Permission denied");
    EXPECT_EQ(client.Call("f/files/readable", "Open", {write}), Code::Bad_UserAccessDenied);
    EXPECT_NE(client.Open("f/files/readable", 1), 0U);
    EXPECT_FALSE(tree.ReadProperty<bool>("f.Writable/files/readable"));
    EXPECT_EQ(client.Call("f/files/closed/file", "Open", {read}), Code::Bad_UserAccessDenied);
    EXPECT_EQ(client.Call("d/files/closed", "List", {0UL, 0U}), Code::Bad_UserAccessDenied);
    EXPECT_EQ(client.Call("", "ListPath", {"names", 0UL, 0U}), Code::Good);
    EXPECT_EQ(client.GetOutputs().at(1).Get<Bytes>(), Bytes{3}) << "it is there, if nothing more";
    EXPECT_EQ(client.Call("d/files", "CreateDirectory", {"new"}), Code::Bad_UserAccessDenied);
    EXPECT_EQ(client.Call("d/files", "CreateFile", {"new", true}), Code::Bad_UserAccessDenied);
    EXPECT_EQ(client.Call("d/files", "Delete", {ToNode("f/files/secret")}),
              Code::Bad_UserAccessDenied);
    EXPECT_EQ(client.Call("d/files", "MoveOrCopy",
                          {ToNode("f/files/secret"), ToNode("d/files"), false, "new"}),
              Code::Bad_UserAccessDenied);
    EXPECT_EQ(client.Call("t", "GenerateFileForWrite", {"files/readable"}),
              Code::Bad_UserAccessDenied);
    static_cast<void>(seteuid(0));
    EndProcess();
}

TEST_F(AFailure, ForLackOfPermissionIsBad_UserAccessDenied)
{
    EXPECT_EXIT(LackPermissions(), testing::ExitedWithCode(0), "passed");
}

void LackDescriptors()
{
    FileTree tree;
    auto& client = tree.client;
    tree.folder.MakeFile("file", "content");
    const rlimit few{3, 3};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    const unsigned char read = 1;
    EXPECT_EQ(client.Call("f/files/file", "Open", {read}), Code::Bad_ResourceUnavailable);
    EXPECT_EQ(client.GetMessage(), "files/file: Too many open files");
    EXPECT_EQ(client.Call("d/files", "List", {0UL, 0U}), Code::Bad_ResourceUnavailable);
    EndProcess();
}

TEST_F(AFailure, ForLackOfDescriptorsIsBad_ResourceUnavailable)
{
    EXPECT_EXIT(LackDescriptors(), testing::ExitedWithCode(0), "passed");
}

/// Lets the process have fewer descriptors than the tree has levels.
class ADeepTree : public AFileTree
{
private:
    const std::string deep = folder.MakeDeepFolder("deep"); // before the limit
    const FileSystemTests::ProcessLimit fewDescriptors{RLIMIT_NOFILE, 500};
};

TEST_F(ADeepTree, IsDeletedWithFewerDescriptorsThanLevels)
{
    EXPECT_EQ(client.Call("d/files", "Delete", {ToNode("d/files/deep")}), Code::Good)
        << client.GetMessage();
    EXPECT_FALSE(std::filesystem::exists(folder / "deep"));
}

TEST_F(ADeepTree, HasNoChecksum)
{
    EXPECT_EQ(client.Call("d/files/deep", "GetChecksum"), Code::Bad_NotSupported);
    EXPECT_THAT(client.GetMessage(),
                testing::EndsWith("directories are nested more than 128 deep"));
}

TEST_F(ADeepTree, IsNotCopied)
{
    EXPECT_EQ(client.Call("d/files", "MoveOrCopy",
                          {ToNode("d/files/deep"), ToNode("d/files"), true, "copy"}),
              Code::Bad_NotSupported);
    EXPECT_THAT(client.GetMessage(),
                testing::EndsWith("directories are nested more than 128 deep"));
    EXPECT_EQ(client.Call("d/files", "Delete", {ToNode("d/files/deep")}), Code::Good)
        << client.GetMessage();
    EXPECT_TRUE(std::filesystem::is_empty(folder.GetPath()));
}

} // namespace
