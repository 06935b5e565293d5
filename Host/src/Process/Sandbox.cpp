#include "Process/Sandbox.h"

#include "Core/Exception.h"
#include "Process/Landlock.h"
#include "Process/Process.h"
#include "Process/SystemCallFilter.h"
#include "Support/Descriptor.h"
#include "Support/SystemError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
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
            "cannot enter the sandbox: other threads are running, which would stay outside");
}

void WriteKernelFile(const char* file, const std::string& text)
{
    const Support::Descriptor descriptor(open(file, O_WRONLY | O_CLOEXEC));
    if (!descriptor.IsOpen() ||
        write(descriptor.Get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        Support::ThrowSystemError(std::string("cannot enter the sandbox: cannot write '") + text +
                                  "' to " + file);
}

/// Gives the process the same identifiers in the new user namespace as outside, and no others.
void KeepIdentity(uid_t user, gid_t group)
{
    WriteKernelFile("/proc/self/setgroups", "deny");
    WriteKernelFile("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
    WriteKernelFile("/proc/self/gid_map",
                    std::to_string(group) + " " + std::to_string(group) + " 1");
}

/// Returns true if it made a user namespace, which a process that is not root needs.
bool UnshareMounts()
{
    const auto user = geteuid();
    const auto group = getegid();
    if (unshare(CLONE_NEWNS) == 0)
        return false;
    if (errno != EPERM)
        Support::ThrowSystemError("cannot enter the sandbox: the kernel refuses a mount namespace");
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        Support::ThrowSystemError("cannot enter the sandbox: the kernel refuses a mount namespace "
                                  "to a process that is not "
                                  "root or must not mount");
    KeepIdentity(user, group);
    return true;
}

/// Makes the mounts private: changes on one side do not appear on the other one.
void DetachFromOtherNamespaces()
{
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        Support::ThrowSystemError("cannot enter the sandbox: cannot make the mounts private");
}

/// A copy of a root, with all mounts inside it, that is not mounted yet.
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
        Support::ThrowSystemError("cannot mount the root '" + root.real.string() +
                                  "' in the sandbox");
    mount_attr attributes = {};
    attributes.attr_set = harmless | (root.isReadOnly ? MOUNT_ATTR_RDONLY : 0);
    if (mount_setattr(detached.tree.Get(), "", AT_EMPTY_PATH | AT_RECURSIVE, &attributes,
                      sizeof(attributes)) != 0)
        Support::ThrowSystemError("cannot restrict the root '" + root.real.string() + "'" +
                                  (root.isReadOnly ? " to reading" : ""));
    return detached;
}

/// Orders roots so that outer ones come first and inner ones are mounted on top of them. Each
/// folder appears once.
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

/// Mounts an empty file system on `place`, which it hides.
Support::Descriptor MountEmptyFileSystem(const Path& place)
{
    const Support::Descriptor context(fsopen("tmpfs", FSOPEN_CLOEXEC));
    if (!context.IsOpen() || fsconfig(context.Get(), FSCONFIG_SET_STRING, "mode", "0755", 0) != 0 ||
        fsconfig(context.Get(), FSCONFIG_SET_STRING, "size", "1m", 0) != 0 ||
        fsconfig(context.Get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0)
        Support::ThrowSystemError("cannot make an empty file system for the sandbox");
    Support::Descriptor empty(fsmount(context.Get(), FSMOUNT_CLOEXEC, harmless));
    if (!empty.IsOpen() ||
        move_mount(empty.Get(), "", AT_FDCWD, place.c_str(), MOVE_MOUNT_F_EMPTY_PATH) != 0)
        Support::ThrowSystemError("cannot mount an empty file system for the sandbox");
    return empty;
}

/// Creates a folder, and those above it, below `top`. `path` is absolute.
void MakeFolders(const Support::Descriptor& top, const Path& path)
{
    Path made;
    for (const auto& name : path.relative_path()) {
        made /= name;
        if (mkdirat(top.Get(), made.c_str(), S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH) !=
                0 &&
            errno != EEXIST)
            Support::ThrowSystemError("cannot create the folder '" + path.string() +
                                      "' in the sandbox");
    }
}

void Attach(const DetachedRoot& root, const Support::Descriptor& top)
{
    const auto place = root.path.relative_path();
    if (faccessat(top.Get(), place.c_str(), F_OK, 0) != 0)
        MakeFolders(top, root.path);
    if (move_mount(root.tree.Get(), "", top.Get(), place.c_str(), MOVE_MOUNT_F_EMPTY_PATH) != 0)
        Support::ThrowSystemError("cannot mount the root '" + root.path.string() +
                                  "' in the sandbox");
}

/// Makes `top` the root of the file system and unmounts the old root with everything below it.
void PivotTo(const Support::Descriptor& top)
{
    if (fchdir(top.Get()) != 0 || syscall(SYS_pivot_root, ".", ".") != 0)
        Support::ThrowSystemError(
            "cannot enter the sandbox: cannot change the root of the file system");
    if (umount2(".", MNT_DETACH) != 0 || chdir("/") != 0)
        Support::ThrowSystemError("cannot enter the sandbox: cannot unmount the old root");
}

/// Creates a link from the name by which a root was given, unless that name exists.
void MakeLink(const Root& root, const Support::Descriptor& top)
{
    struct stat status = {};
    if (lstat(root.given.c_str(), &status) == 0)
        return;
    MakeFolders(top, root.given.parent_path());
    if (symlink(root.real.c_str(), root.given.c_str()) != 0)
        Support::ThrowSystemError("cannot create the link '" + root.given.string() +
                                  "' in the sandbox");
}

/// Creates outer names first: an inner one may exist through them.
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
        Support::ThrowSystemError("cannot make the sandbox's own file system read-only");
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
        throw Core::InvalidArgumentException("a sandbox needs at least one root");
    CheckTogether(roots);
    RequireOneThread();

    SandboxReport report;
    report.hasUserNamespace = UnshareMounts();
    DetachFromOtherNamespaces();
    // From here on, no other process can mount anything inside the roots.
    if (kernelFiles == KernelFiles::Refused)
        RefuseKernelFiles(roots);
    ChangeFileSystem(roots);
    report.hasMountNamespace = true;
    if (chdir(roots.front().real.c_str()) != 0)
        Support::ThrowSystemError("cannot enter the root '" + roots.front().real.string() + "'");
    DropCapabilities(report.hasUserNamespace ? KeptCapabilities::None
                                             : KeptCapabilities::OfFileServer);
    RefuseNewPrivileges();
    report.landlockVersion = RestrictWithLandlock(roots);
    report.hasSystemCallFilter = RefuseSystemCalls();
    return report;
}

} // namespace Host
