#include "Process/Sandbox.h"

#include "Core/Exception.h"
#include "Process/Mounts.h"
#include "RunProgram.h"
#include "TemporaryFolder.h"
#include "ThreadSanitizer.h"

#include <algorithm>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <latch>
#include <map>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <thread>
#include <unistd.h>

namespace Host {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Lines = std::vector<std::string>;
using Path = std::filesystem::path;

constexpr uid_t nobody = 65534;

Lines SplitLines(const std::string& text)
{
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

Lines Select(const Lines& lines, const std::string& prefix)
{
    Lines selected;
    for (const auto& line : lines) {
        if (line.starts_with(prefix))
            selected.push_back(line.substr(prefix.size()));
    }
    return selected;
}

/// Everything about a tree that a client could change: modes, times, sizes, contents, targets.
std::map<std::string, std::string> Photograph(const Path& folder)
{
    std::map<std::string, std::string> picture;
    const auto add = [&picture](const Path& path) {
        struct stat status = {};
        lstat(path.c_str(), &status);
        std::ostringstream text;
        text << status.st_mode << " " << status.st_uid << " " << status.st_nlink << " "
             << status.st_size << " " << status.st_mtim.tv_sec << "." << status.st_mtim.tv_nsec
             << " " << status.st_ctim.tv_sec << "." << status.st_ctim.tv_nsec;
        if (S_ISREG(status.st_mode))
            text << " " << ReadWhole(path);
        picture[path.string()] = text.str();
    };
    add(folder);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        add(entry.path());
    return picture;
}

struct ProbeResult
{
    Lines done;
    Lines layers;
    Lines refused;
};

/// Three folders side by side: one outside, a writable root and a read-only one. The probe runs as
/// the user that the parameter names.
class ASandboxTest : public testing::TestWithParam<uid_t>
{
protected:
    void SetUp() override
    {
        SKIP_UNDER_THREAD_SANITIZER();
        if (GetParam() != geteuid() && geteuid() != 0)
            GTEST_SKIP() << "only root can run the probe as another user";
        Fill(outside);
        Fill(readOnly);
        folder.MakeFolder("writable/folder");
        folder.MakeFile("writable/inside", "inside");
        MakeLinks(outside);
        MakeLinks(readOnly);
        folder.MakeFile("writable/program", "#!/bin/sh\n");
        chmod((writable / "program").c_str(), S_IRWXU | S_IRWXG);
        if (geteuid() == 0)
            mknod((writable / "existing-device").c_str(), S_IFCHR | S_IRWXU | S_IRWXG | S_IRWXO,
                  makedev(1, 3));
        GiveToTheUser();
    }

    void Fill(const Path& place)
    {
        std::filesystem::create_directories(place / "folder" / "inner");
        std::filesystem::create_directory(place / "empty");
        std::ofstream(place / "secret") << "secret";
        std::filesystem::create_symlink("secret", place / "link");
    }

    void MakeLinks(const Path& place)
    {
        const auto name = place.filename();
        std::filesystem::create_symlink(place, writable / ("link-to-" + name.string()));
        std::filesystem::create_symlink(".." / name,
                                        writable / ("relative-link-to-" + name.string()));
    }

    void GiveToTheUser()
    {
        if (geteuid() != 0)
            return;
        const auto give = [](const Path& path) {
            ASSERT_EQ(lchown(path.c_str(), GetParam(), GetParam()), 0) << path;
        };
        give(folder.GetPath());
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.GetPath()))
            give(entry.path());
    }

    static ProbeResult Probe(const std::string& mode, const Lines& arguments)
    {
        Lines command = {TALVENSOR_SANDBOX_PROBE, mode};
        if (GetParam() != geteuid())
            command.insert(command.end(), {"--uid", std::to_string(GetParam())});
        command.insert(command.end(), arguments.begin(), arguments.end());
        const auto result = RunProgram(command);
        EXPECT_THAT(result.status, testing::AnyOf(0, 3)) << result.output;
        const auto lines = SplitLines(result.output);
        return {Select(lines, "DONE "), Select(lines, "LAYERS "), Select(lines, "REFUSED ")};
    }

    /// Of a probe that should be in the sandbox.
    static bool IsRefused(const ProbeResult& result)
    {
        if (GetParam() == 0) {
            EXPECT_THAT(result.refused, IsEmpty());
        }
        return !result.refused.empty();
    }

    [[nodiscard]] Lines AllAttempts() const
    {
        return {"--root",          writable.string(), "--read-only",
                readOnly.string(), "--outside",       outside.string()};
    }

    TemporaryFolder folder;
    Path outside = folder.MakeFolder("outside");
    Path writable = folder.MakeFolder("writable");
    Path readOnly = folder.MakeFolder("read-only");
};

#define SKIP_IF_REFUSED(result)                                                                    \
    if (IsRefused(result))                                                                         \
    GTEST_SKIP() << "NOT TESTED, this machine has no sandbox for those who are not root: "         \
                 << (result).refused.front()

std::string NameUser(const testing::TestParamInfo<uid_t>& parameter)
{
    return parameter.param == 0 ? "ForRoot" : "ForAnOrdinaryUser";
}

std::vector<uid_t> GetUsers()
{
    if (geteuid() == 0)
        return {0, nobody};
    return {geteuid()};
}

class ASandbox : public ASandboxTest
{};
INSTANTIATE_TEST_SUITE_P(Entered, ASandbox, testing::ValuesIn(GetUsers()), NameUser);

/// Shows that the probe's attempts can succeed: what it cannot do inside, it can do outside.
class WithoutASandbox : public ASandboxTest
{};
INSTANTIATE_TEST_SUITE_P(Entered, WithoutASandbox, testing::ValuesIn(GetUsers()), NameUser);

TEST_P(WithoutASandbox, EveryAttemptSucceedsByEveryName)
{
    const auto done = Probe("free", AllAttempts()).done;
    constexpr std::size_t looks = 13;
    constexpr std::size_t changes = 22;
    constexpr std::size_t moves = 6;
    constexpr std::size_t names = 12;
    EXPECT_THAT(done, SizeIs(names * (looks + changes + moves + changes)));
}

TEST_P(ASandbox, LetsNothingOutAndChangesNothingThatIsReadOnly)
{
    const auto before = Photograph(outside);
    const auto readOnlyBefore = Photograph(readOnly);
    const auto result = Probe("sandbox", AllAttempts());
    SKIP_IF_REFUSED(result);
    EXPECT_THAT(result.done, IsEmpty());
    EXPECT_EQ(Photograph(outside), before);
    EXPECT_EQ(Photograph(readOnly), readOnlyBefore);
}

TEST_P(ASandbox, NamesItsLayers)
{
    const auto result = Probe("sandbox", {"--root", writable.string()});
    SKIP_IF_REFUSED(result);
    ASSERT_THAT(result.layers, SizeIs(1));
    EXPECT_THAT(result.layers.front(), StartsWith("mount namespace"));
    EXPECT_EQ(result.layers.front().find("user namespace") != std::string::npos, GetParam() != 0);
    if (result.layers.front().find("no Landlock") != std::string::npos)
        GTEST_SKIP() << "NOT TESTED, this kernel has no Landlock";
    EXPECT_THAT(result.layers.front(), HasSubstr("Landlock "));
}

TEST_P(ASandbox, HoldsItsRootsAtTheirOwnPaths)
{
    const auto result =
        Probe("sandbox", {"--root", writable.string(), "--read-only", readOnly.string(), "--create",
                          writable / "made", "--read", readOnly / "secret", "--list", readOnly});
    SKIP_IF_REFUSED(result);
    EXPECT_THAT(result.done,
                ElementsAre("create " + (writable / "made").string(),
                            "read " + (readOnly / "secret").string(), "list " + readOnly.string()));
    EXPECT_TRUE(std::filesystem::exists(writable / "made"));
}

TEST_P(ASandbox, ResolvesRelativePathsInItsFirstRoot)
{
    const auto result =
        Probe("sandbox", {"--root", writable.string(), "--read-only", readOnly.string(), "--create",
                          "made", "--read", "inside", "--read", "secret"});
    SKIP_IF_REFUSED(result);
    EXPECT_THAT(result.done, ElementsAre("create made", "read inside"));
    EXPECT_TRUE(std::filesystem::exists(writable / "made"));
}

TEST_P(ASandbox, KeepsAReadOnlyRootInsideAWritableOneReadOnly)
{
    const auto inner = writable / "folder";
    const auto result =
        Probe("sandbox", {"--read-only", inner.string(), "--root", writable.string(), "--create",
                          inner / "made", "--create", writable / "made", "--list", inner});
    SKIP_IF_REFUSED(result);
    EXPECT_THAT(result.done,
                ElementsAre("create " + (writable / "made").string(), "list " + inner.string()));
}

TEST_P(ASandbox, KeepsAWritableRootInsideAReadOnlyOneWritable)
{
    const auto inner = readOnly / "folder";
    const auto result = Probe("sandbox", {"--read-only", readOnly.string(), "--root",
                                          inner.string(), "--create", inner / "made", "--create",
                                          readOnly / "made", "--read", readOnly / "secret"});
    SKIP_IF_REFUSED(result);
    EXPECT_THAT(result.done, ElementsAre("create " + (inner / "made").string(),
                                         "read " + (readOnly / "secret").string()));
}

TEST_P(ASandbox, TakesARootTwice)
{
    const auto result = Probe("sandbox", {"--root", writable.string(), "--root", writable.string(),
                                          "--create", writable / "made"});
    SKIP_IF_REFUSED(result);
    EXPECT_THAT(result.done, SizeIs(1));
}

TEST_P(ASandbox, HoldsARootThatIsALinkByBothItsNames)
{
    const auto link = folder.GetPath() / "link-to-root";
    std::filesystem::create_symlink(writable, link);
    const auto result = Probe("sandbox", {"--root", link.string(), "--create", link / "one",
                                          "--create", writable / "two", "--create", "three"});
    SKIP_IF_REFUSED(result);
    EXPECT_THAT(result.done, SizeIs(3));
    for (const auto* const name : {"one", "two", "three"})
        EXPECT_TRUE(std::filesystem::exists(writable / name)) << name;
}

TEST_P(ASandbox, HoldsARootBelowALinkByBothItsNames)
{
    const auto link = folder.GetPath() / "link-above-root";
    std::filesystem::create_symlink(writable, link);
    const auto result = Probe("sandbox", {"--root", (link / "folder").string(), "--create",
                                          link / "folder" / "one", "--exists", link / "inside"});
    SKIP_IF_REFUSED(result);
    EXPECT_THAT(result.done, ElementsAre("create " + (link / "folder" / "one").string()));
    EXPECT_TRUE(std::filesystem::exists(writable / "folder" / "one"));
}

TEST_P(ASandbox, HoldsRootsWithOddNames)
{
    const auto odd = folder.MakeFolder("odd \\ \xFF\n name");
    GiveToTheUser();
    const auto result = Probe("sandbox", {"--root", odd.string(), "--create", "made"});
    SKIP_IF_REFUSED(result);
    EXPECT_TRUE(std::filesystem::exists(odd / "made"));
}

TEST_P(ASandbox, ConfinesWhatIsMountedInsideARootToo)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can mount";
    const auto inner = readOnly / "folder";
    ASSERT_EQ(mount("none", inner.c_str(), "tmpfs", 0, "mode=0777"), 0);
    const auto result =
        Probe("sandbox", {"--root", writable.string(), "--read-only", readOnly.string(), "--create",
                          inner / "made", "--touch", inner.string(), "--list", inner.string()});
    umount2(inner.c_str(), MNT_DETACH);
    SKIP_IF_REFUSED(result);
    EXPECT_THAT(result.done, ElementsAre("list " + inner.string()));
}

TEST_P(ASandbox, RefusesARootThatHoldsAViewOfTheKernel)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can mount";
    const auto inner = writable / "folder";
    for (const auto* const type : {"proc", "sysfs", "devpts", "mqueue"}) {
        ASSERT_EQ(mount(type, inner.c_str(), type, 0, nullptr), 0) << type;
        const auto result = Probe("sandbox", {"--root", writable.string()});
        umount2(inner.c_str(), MNT_DETACH);
        ASSERT_THAT(result.refused, SizeIs(1));
        EXPECT_THAT(result.refused.front(), HasSubstr(inner.string()));
    }
}

TEST_P(ASandbox, HoldsAViewOfTheKernelIfThatIsAllowed)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can mount";
    const auto inner = writable / "folder";
    ASSERT_EQ(mount("devpts", inner.c_str(), "devpts", 0, nullptr), 0);
    const auto result = Probe("sandbox", {"--kernel-files", "allowed", "--root", writable.string(),
                                          "--exists", inner / "ptmx"});
    umount2(inner.c_str(), MNT_DETACH);
    SKIP_IF_REFUSED(result);
    EXPECT_THAT(result.done, SizeIs(1));
}

/// Of the process itself, not of its files.
const Lines waysOut = {
    "run a program",          "make a process",       "trace a process",
    "read another's memory",  "make a namespace",     "make a namespace by clone",
    "open a mount",           "open without a path",  "load a program into the kernel",
    "count what others do",   "watch its own faults", "use a ring of requests",
    "use the kernel's keys",  "connect by TCP",       "connect to an abstract socket",
    "signal another process", "raise privileges"};

TEST_P(WithoutASandbox, EveryWayOutIsOpen)
{
    const auto done = Probe("free", {"--root", writable.string(), "--ways-out", "all"}).done;
    // The kernel can be set up to refuse some of them to everybody, and all of these to others.
    for (const auto& way :
         {"run a program", "make a process", "connect by TCP", "connect to an abstract socket"})
        EXPECT_THAT(done, Contains(way));
    if (GetParam() == 0) {
        EXPECT_THAT(done, testing::IsSupersetOf(
                              {"trace a process", "make a namespace", "make a namespace by clone",
                               "open a mount", "use the kernel's keys", "signal another process"}));
    }
    EXPECT_THAT(done, testing::IsSubsetOf(waysOut));
}

TEST_P(ASandbox, HasNoWayOut)
{
    const auto result = Probe("sandbox", {"--root", writable.string(), "--ways-out", "all"});
    SKIP_IF_REFUSED(result);
    if (result.layers.front().find("no system call filter") != std::string::npos)
        GTEST_SKIP() << "NOT TESTED, this kernel has no system call filter";
    EXPECT_THAT(result.done, IsEmpty());
}

TEST_P(ASandbox, CanStartThreadsAndListenUntilThatIsRefusedToo)
{
    const auto result =
        Probe("sandbox", {"--root", writable.string(), "--threads", "1", "--listen", "1",
                          "--refuse-sockets", "1", "--listen", "2", "--threads", "2"});
    SKIP_IF_REFUSED(result);
    if (result.layers.front().find("no system call filter") != std::string::npos)
        GTEST_SKIP() << "NOT TESTED, this kernel has no system call filter";
    EXPECT_THAT(result.done, ElementsAre("threads 1", "listen 1", "refuse-sockets 1", "threads 2"));
}

TEST_P(ASandbox, HasLandlockThatWithholdsTheSame)
{
    const auto before = Photograph(outside);
    const auto result =
        Probe("landlock", {"--root", writable.string(), "--read-only", readOnly.string(), "--read",
                           outside / "secret", "--create", outside / "new", "--list", outside,
                           "--create", readOnly / "new", "--read", readOnly / "secret", "--create",
                           writable / "new", "--read", "/etc/passwd"});
    ASSERT_THAT(result.layers, SizeIs(1));
    if (result.layers.front() == "Landlock 0")
        GTEST_SKIP() << "NOT TESTED, this kernel has no Landlock";
    EXPECT_THAT(result.done, ElementsAre("read " + (readOnly / "secret").string(),
                                         "create " + (writable / "new").string()));
    EXPECT_EQ(Photograph(outside), before);
}

TEST_P(ASandbox, HasLandlockThatKeepsTheProcessToItself)
{
    const auto result = Probe("landlock", {"--root", writable.string(), "--ways-out", "all"});
    ASSERT_THAT(result.layers, SizeIs(1));
    int version = 0;
    std::sscanf(result.layers.front().c_str(), "Landlock %d", &version);
    if (version < 6)
        GTEST_SKIP() << "NOT TESTED, this kernel's Landlock is older";
    for (const auto& way : {"connect by TCP", "connect to an abstract socket",
                            "signal another process", "trace a process"})
        EXPECT_THAT(result.done, Not(Contains(way)));
    EXPECT_THAT(result.done, Contains("make a process")); // which only the filter refuses
}

TEST(EnteringASandbox, IsRefusedToAProcessWithSeveralThreads)
{
    const TemporaryFolder folder;
    std::latch isOver(1);
    const std::jthread other([&isOver] { isOver.wait(); });
    EXPECT_THROW(EnterSandbox({MakeRoot(folder.GetPath(), false)}), Core::InvalidStateException);
    isOver.count_down();
}

TEST(EnteringASandbox, IsRefusedWithoutRoots)
{
    EXPECT_THROW(EnterSandbox({}), Core::InvalidArgumentException);
}

TEST(ARoot, CannotBeAFolderThatIsNotThere)
{
    try {
        std::ignore = MakeRoot("/nowhere/at-all", false);
        FAIL() << "it was taken";
    } catch (const Core::InvalidArgumentException& error) {
        EXPECT_THAT(error.GetMessage(), HasSubstr("'/nowhere/at-all' cannot be a root: No such"));
    }
}

TEST(ARoot, CannotBeAFileOrTheWholeFileSystem)
{
    const TemporaryFolder folder;
    const auto file = folder.MakeFile("file");
    EXPECT_THROW(std::ignore = MakeRoot(file, false), Core::InvalidArgumentException);
    EXPECT_THROW(std::ignore = MakeRoot("/", true), Core::InvalidArgumentException);
    EXPECT_THROW(std::ignore = MakeRoot("/proc/self/root", true), Core::InvalidArgumentException);
}

TEST(ARoot, MustBeWritableUnlessItIsReadOnly)
{
    const TemporaryFolder folder;
    const auto& path = folder.GetPath();
    RequireWritable(MakeRoot(path, false));
    // Root can write everywhere, except where everything is read-only.
    const bool isRoot = geteuid() == 0;
    if (isRoot)
        ASSERT_EQ(mount("none", path.c_str(), "tmpfs", MS_RDONLY, nullptr), 0);
    else
        chmod(path.c_str(), 0555);
    RequireWritable(MakeRoot(path, true));
    std::string complaint;
    try {
        RequireWritable(MakeRoot(path, false));
    } catch (const Core::InvalidArgumentException& error) {
        complaint = error.GetMessage();
    }
    EXPECT_THAT(complaint, HasSubstr("cannot write to '" + path.string() + "': " +
                                     (isRoot ? "Read-only file system" : "Permission denied")));
    umount2(path.c_str(), MNT_DETACH);
    chmod(path.c_str(), 0755);
}

TEST(ARoot, IsRefusedWhereItIsAViewOfTheKernel)
{
    for (const auto* const folder : {"/proc", "/proc/self", "/sys", "/dev", "/dev/pts"}) {
        if (std::filesystem::is_directory(folder)) {
            const std::vector roots = {MakeRoot(folder, true)};
            EXPECT_THROW(RefuseKernelFiles(roots), Core::InvalidArgumentException) << folder;
        }
    }
    const TemporaryFolder folder;
    EXPECT_NO_THROW(RefuseKernelFiles({MakeRoot(folder.GetPath(), false)}));
}

TEST(ViewsOfTheKernel, AreKnownByTheirTypes)
{
    for (const auto* const type :
         {"proc", "sysfs", "cgroup", "cgroup2", "devtmpfs", "devpts", "debugfs", "tracefs",
          "securityfs", "bpf", "configfs", "mqueue", "efivarfs"})
        EXPECT_TRUE(IsKernelFileSystem(type)) << type;
    for (const auto* const type :
         {"ext4", "xfs", "btrfs", "tmpfs", "overlay", "nfs4", "fuse.sshfs"})
        EXPECT_FALSE(IsKernelFileSystem(type)) << type;
}

TEST(ARoot, KeepsTheNameByWhichItWasGiven)
{
    const TemporaryFolder folder;
    const auto real = folder.MakeFolder("real");
    folder.MakeFolder("real/sub");
    std::filesystem::create_symlink(real, folder.GetPath() / "link");
    const auto root = MakeRoot(folder.GetPath() / "link/./sub/..", true);
    EXPECT_EQ(root.given, folder.GetPath() / "link");
    EXPECT_EQ(root.real, std::filesystem::canonical(real));
    EXPECT_TRUE(root.isReadOnly);
}

TEST(Roots, CannotMakeOneFolderBothReadOnlyAndWritable)
{
    const TemporaryFolder folder;
    const auto real = folder.MakeFolder("real");
    std::filesystem::create_symlink(real, folder.GetPath() / "link");
    const std::vector<Root> roots = {MakeRoot(real, false),
                                     MakeRoot(folder.GetPath() / "link", true)};
    EXPECT_THROW(CheckTogether(roots), Core::InvalidArgumentException);
}

TEST(APath, IsBelowAFolderGoingByNames)
{
    EXPECT_TRUE(IsBelow("/a/b", "/a/b"));
    EXPECT_TRUE(IsBelow("/a/b/c", "/a/b"));
    EXPECT_FALSE(IsBelow("/a/b-c", "/a/b"));
    EXPECT_FALSE(IsBelow("/a", "/a/b"));
}

} // namespace
} // namespace Host
