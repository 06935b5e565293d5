#include "Process/Sandbox.h"

#include "Core/Exception.h"
#include "Process/Landlock.h"
#include "Process/SystemCallFilter.h"
#include "Support/Descriptor.h"
#include "Support/SystemError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Host {

namespace {

using Path = std::filesystem::path;

constexpr std::uint64_t harmless = MOUNT_ATTR_NODEV | MOUNT_ATTR_NOSUID | MOUNT_ATTR_NOEXEC;

void RequireOneThread()
{
    const std::filesystem::directory_iterator threads("/proc/self/task");
    if (std::distance(begin(threads), end(threads)) != 1)
        throw Core::InvalidStateException(
            "the sandbox cannot be entered: other threads, which would stay outside, are running");
}

void WriteKernelFile(const char* file, const std::string& text)
{
    const Support::Descriptor descriptor(open(file, O_WRONLY | O_CLOEXEC));
    if (!descriptor.IsOpen() ||
        write(descriptor.Get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        Support::ThrowSystemError(
            std::string("the sandbox cannot be entered: the kernel does not take '") + text +
            "' in " + file);
}

/// In the new user namespace the process has the identifiers that it has outside, and no others.
void KeepIdentity(uid_t user, gid_t group)
{
    WriteKernelFile("/proc/self/setgroups", "deny");
    WriteKernelFile("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
    WriteKernelFile("/proc/self/gid_map",
                    std::to_string(group) + " " + std::to_string(group) + " 1");
}

/// Returns true when it took a user namespace, which is how one who is not root can have it.
bool UnshareMounts()
{
    const auto user = geteuid();
    const auto group = getegid();
    if (unshare(CLONE_NEWNS) == 0)
        return false;
    if (errno != EPERM)
        Support::ThrowSystemError(
            "the sandbox cannot be entered: the kernel refuses a mount namespace");
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        Support::ThrowSystemError(
            "the sandbox cannot be entered: the kernel refuses a mount namespace to a "
            "process that is not root, or not allowed to mount");
    KeepIdentity(user, group);
    return true;
}

/// Mounts and unmounts on either side are no longer seen on the other one.
void DetachFromOtherNamespaces()
{
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        Support::ThrowSystemError(
            "the sandbox cannot be entered: the mounts cannot be made private");
}

/// A copy of a root with all that is mounted inside it, which is not anywhere yet.
struct DetachedRoot
{
    Path path;
    Support::Descriptor tree;
};

DetachedRoot CloneRoot(const Root& root)
{
    DetachedRoot detached{
        .path = root.real,
        .tree = Support::Descriptor(
            open_tree(AT_FDCWD, root.real.c_str(),
                      OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE | AT_SYMLINK_NOFOLLOW))};
    if (!detached.tree.IsOpen())
        Support::ThrowSystemError("the root '" + root.real.string() +
                                  "' cannot be mounted in the sandbox");
    mount_attr attributes = {};
    attributes.attr_set = harmless | (root.isReadOnly ? MOUNT_ATTR_RDONLY : 0);
    if (mount_setattr(detached.tree.Get(), "", AT_EMPTY_PATH | AT_RECURSIVE, &attributes,
                      sizeof(attributes)) != 0)
        Support::ThrowSystemError("the root '" + root.real.string() + "' cannot be restricted" +
                                  (root.isReadOnly ? " to reading" : ""));
    return detached;
}

/// Outer ones first, so that those inside them are mounted on top; each folder once.
std::vector<Root> OrderForMounting(std::vector<Root> roots)
{
    std::sort(roots.begin(), roots.end(),
              [](const Root& left, const Root& right) { return left.real < right.real; });
    const auto isSame = [](const Root& left, const Root& right) {
        return left.real == right.real;
    };
    roots.erase(std::unique(roots.begin(), roots.end(), isSame), roots.end());
    return roots;
}

std::vector<DetachedRoot> CloneRoots(const std::vector<Root>& roots)
{
    std::vector<DetachedRoot> detached;
    std::transform(roots.begin(), roots.end(), std::back_inserter(detached), CloneRoot);
    return detached;
}

/// An empty file system, which hides `place` from now on.
Support::Descriptor MountEmptyFileSystem(const Path& place)
{
    const Support::Descriptor context(fsopen("tmpfs", FSOPEN_CLOEXEC));
    if (!context.IsOpen() || fsconfig(context.Get(), FSCONFIG_SET_STRING, "mode", "0755", 0) != 0 ||
        fsconfig(context.Get(), FSCONFIG_SET_STRING, "size", "1m", 0) != 0 ||
        fsconfig(context.Get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0)
        Support::ThrowSystemError("the kernel refuses the sandbox an empty file system");
    Support::Descriptor empty(fsmount(context.Get(), FSMOUNT_CLOEXEC, harmless));
    if (!empty.IsOpen() ||
        move_mount(empty.Get(), "", AT_FDCWD, place.c_str(), MOVE_MOUNT_F_EMPTY_PATH) != 0)
        Support::ThrowSystemError("the kernel does not mount an empty file system for the sandbox");
    return empty;
}

/// `path` is absolute; it is made below `top`, with the folders above it.
void MakeFolders(const Support::Descriptor& top, const Path& path)
{
    Path made;
    for (const auto& name : path.relative_path()) {
        made /= name;
        if (mkdirat(top.Get(), made.c_str(), S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH) !=
                0 &&
            errno != EEXIST)
            Support::ThrowSystemError("the folder '" + path.string() +
                                      "' cannot be made in the sandbox");
    }
}

void Attach(const DetachedRoot& root, const Support::Descriptor& top)
{
    const auto place = root.path.relative_path();
    if (faccessat(top.Get(), place.c_str(), F_OK, 0) != 0)
        MakeFolders(top, root.path);
    if (move_mount(root.tree.Get(), "", top.Get(), place.c_str(), MOVE_MOUNT_F_EMPTY_PATH) != 0)
        Support::ThrowSystemError("the root '" + root.path.string() +
                                  "' cannot be mounted in the sandbox");
}

/// The old root is mounted on top of the new one for a moment, and goes with all below it.
void PivotTo(const Support::Descriptor& top)
{
    if (fchdir(top.Get()) != 0 || syscall(SYS_pivot_root, ".", ".") != 0)
        Support::ThrowSystemError(
            "the sandbox cannot be entered: the kernel does not change the root of "
            "the file system");
    if (umount2(".", MNT_DETACH) != 0 || chdir("/") != 0)
        Support::ThrowSystemError(
            "the sandbox cannot be entered: what is outside cannot be unmounted");
}

/// The name by which a root was given, where it is not there anyway.
void MakeLink(const Root& root, const Support::Descriptor& top)
{
    struct stat status = {};
    if (lstat(root.given.c_str(), &status) == 0)
        return;
    MakeFolders(top, root.given.parent_path());
    if (symlink(root.real.c_str(), root.given.c_str()) != 0)
        Support::ThrowSystemError("the link '" + root.given.string() +
                                  "' cannot be made in the sandbox");
}

/// Outer names first, since an inner one may be there by way of them.
void MakeLinks(std::vector<Root> roots, const Support::Descriptor& top)
{
    std::sort(roots.begin(), roots.end(),
              [](const Root& left, const Root& right) { return left.given < right.given; });
    for (const auto& root : roots)
        MakeLink(root, top);
}

void MakeReadOnly(const Support::Descriptor& mountOfIt)
{
    mount_attr attributes = {};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    if (mount_setattr(mountOfIt.Get(), "", AT_EMPTY_PATH, &attributes, sizeof(attributes)) != 0)
        Support::ThrowSystemError("the sandbox's own file system cannot be made read-only");
}

void ChangeFileSystem(const std::vector<Root>& roots)
{
    auto detached = CloneRoots(OrderForMounting(roots));
    const auto top = MountEmptyFileSystem(roots.front().real);
    for (const auto& root : detached)
        Attach(root, top);
    PivotTo(top);
    MakeLinks(roots, top);
    MakeReadOnly(top);
}

/// What a file server that runs as root needs to deal with files as root does. Not among them is
/// what opens files without a path (CAP_DAC_READ_SEARCH), and what could undo the sandbox.
constexpr std::array keptByRoot = {CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_FOWNER, CAP_FSETID,
                                   CAP_NET_BIND_SERVICE};

void DropCapabilities(bool all)
{
    __user_cap_header_struct header = {};
    header.version = _LINUX_CAPABILITY_VERSION_3;
    std::array<__user_cap_data_struct, 2> held{};
    if (syscall(SYS_capget, &header, held.data()) != 0)
        Support::ThrowSystemError("the process's capabilities cannot be read");
    unsigned int kept = 0;
    if (!all) {
        for (const auto capability : keptByRoot)
            kept |= 1U << static_cast<unsigned int>(capability); // all of them below 32
    }
    held[0].permitted &= kept;
    held[0].effective &= kept;
    held[0].inheritable = 0;
    held[1] = {};
    if (syscall(SYS_capset, &header, held.data()) != 0)
        Support::ThrowSystemError("the process cannot give up its capabilities");
}

void RefuseNewPrivileges()
{
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        Support::ThrowSystemError("the process cannot give up gaining privileges");
}

} // namespace

std::string SandboxReport::ToString() const
{
    if (!hasMountNamespace)
        return "none";
    std::string text = "mount namespace";
    if (hasUserNamespace)
        text += " in a user namespace";
    if (landlockVersion > 0)
        text += ", Landlock " + std::to_string(landlockVersion) + " (" +
                DescribeLandlock(landlockVersion) + ")";
    if (hasSystemCallFilter)
        text += ", system call filter";
    if (landlockVersion == 0)
        text += "; the kernel has no Landlock";
    if (!hasSystemCallFilter)
        text += "; the kernel has no system call filter";
    return text;
}

SandboxReport EnterSandbox(const std::vector<Root>& roots, KernelFiles kernelFiles)
{
    if (roots.empty())
        throw Core::InvalidArgumentException("a sandbox without roots would hold nothing");
    CheckTogether(roots);
    RequireOneThread();

    SandboxReport report;
    report.hasUserNamespace = UnshareMounts();
    DetachFromOtherNamespaces();
    // From here on nobody mounts anything more inside the roots.
    if (kernelFiles == KernelFiles::Refused)
        RefuseKernelFiles(roots);
    ChangeFileSystem(roots);
    report.hasMountNamespace = true;
    if (chdir(roots.front().real.c_str()) != 0)
        Support::ThrowSystemError("the root '" + roots.front().real.string() +
                                  "' cannot be entered");
    DropCapabilities(report.hasUserNamespace);
    RefuseNewPrivileges();
    report.landlockVersion = RestrictWithLandlock(roots);
    report.hasSystemCallFilter = RefuseSystemCalls();
    return report;
}

} // namespace Host
