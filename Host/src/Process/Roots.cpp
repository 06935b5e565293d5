#include "Process/Roots.h"

#include "Core/Exception.h"
#include "Process/Mounts.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Host {

namespace {

std::filesystem::path Normalize(const std::filesystem::path& path)
{
    const auto normal = std::filesystem::absolute(path).lexically_normal();
    return normal.has_filename() ? normal : normal.parent_path();
}

/// Recognises most file systems of the kernel without the list of mounts, which lacks some mounts
/// in a changed root directory.
bool LooksLikeKernelFiles(const std::filesystem::path& folder)
{
    constexpr std::array<std::uint32_t, 16> types = {
        PROC_SUPER_MAGIC, SYSFS_MAGIC,    CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC,
        DEBUGFS_MAGIC,    TRACEFS_MAGIC,  SECURITYFS_MAGIC,   DEVPTS_SUPER_MAGIC,
        BPF_FS_MAGIC,     EFIVARFS_MAGIC, PSTOREFS_MAGIC,     SELINUX_MAGIC,
        SMACK_MAGIC,      NSFS_MAGIC,     BINFMTFS_MAGIC,     BINDERFS_SUPER_MAGIC};
    struct statfs status = {};
    return statfs(folder.c_str(), &status) == 0 &&
           std::find(types.begin(), types.end(), static_cast<std::uint32_t>(status.f_type)) !=
               types.end();
}

void RefuseKernelFiles(const Root& root, const std::vector<Mount>& mounts)
{
    const auto refuse = [&root](const std::string& reason) {
        throw Core::InvalidArgumentException(
            "'" + root.real.string() + "' cannot be a root: " + reason +
            "; with --allow-kernel-files, clients could control the machine there");
    };
    const auto* const around = FindMount(root.real, mounts);
    if (root.real == "/dev" || LooksLikeKernelFiles(root.real) ||
        (around != nullptr && IsKernelFileSystem(around->type)))
        refuse("it is a kernel file system");
    for (const auto& mount : mounts) {
        if (IsBelow(mount.place, root.real) && IsKernelFileSystem(mount.type))
            refuse("a kernel file system (" + mount.type + ") is mounted inside it at '" +
                   mount.place.string() + "'");
    }
}

} // namespace

Root MakeRoot(const std::filesystem::path& path, bool isReadOnly)
{
    const auto refuse = [&path](const std::string& reason) {
        throw Core::InvalidArgumentException("'" + path.string() + "' cannot be a root: " + reason);
    };
    std::error_code error;
    const auto real = std::filesystem::canonical(path, error);
    if (error)
        refuse(error.message());
    if (!std::filesystem::is_directory(real))
        refuse("it is not a folder");
    if (real == real.root_path())
        refuse("it is the whole file system, with the host's keys and files");
    return {.given = Normalize(path), .real = real, .isReadOnly = isReadOnly};
}

std::vector<Core::Folder> NameRoots(const std::vector<Root>& roots)
{
    std::vector<Core::Folder> folders;
    const auto isTaken = [&folders](const std::string& name) {
        return std::any_of(folders.begin(), folders.end(),
                           [&name](const auto& folder) { return folder.name == name; });
    };
    for (const auto& root : roots) {
        const std::string path = root.real.string();
        if (std::any_of(folders.begin(), folders.end(),
                        [&path](const auto& folder) { return folder.path == path; }))
            continue;
        const std::string last = root.given.filename().string();
        std::string name = last;
        for (int number = 2; isTaken(name); ++number)
            name = last + '-' + std::to_string(number);
        folders.push_back({std::move(name), path, root.isReadOnly});
    }
    return folders;
}

void CheckTogether(const std::vector<Root>& roots)
{
    for (const auto& root : roots) {
        const auto contradicts = [&root](const Root& other) {
            return other.real == root.real && other.isReadOnly != root.isReadOnly;
        };
        if (std::any_of(roots.begin(), roots.end(), contradicts))
            throw Core::InvalidArgumentException("the root '" + root.real.string() +
                                                 "' is given both as read-only and as writable");
    }
}

void RequireWritable(const Root& root)
{
    if (root.isReadOnly || faccessat(AT_FDCWD, root.real.c_str(), W_OK | X_OK, AT_EACCESS) == 0)
        return;
    const bool isMountedReadOnly = errno == EROFS;
    throw Core::InvalidArgumentException(
        "the host cannot write to '" + root.real.string() +
        "': " + std::generic_category().message(errno) +
        (isMountedReadOnly
             ? "; for a service of systemd, name it with ReadWritePaths= in the unit; "
             : "; give the host's user access to it; ") +
        "or use --read-only");
}

void RefuseKernelFiles(const std::vector<Root>& roots)
{
    const auto mounts = ReadMounts();
    for (const auto& root : roots)
        RefuseKernelFiles(root, mounts);
}

} // namespace Host
