#include "Attributes.h"

#include "Statuses.h"
#include "Times.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace FileObjects {

namespace {

#ifndef SYS_fchmodat2
constexpr long SYS_fchmodat2 = 452; // NOLINT(readability-identifier-naming): as the system's others
#endif

constexpr mode_t otherBits = S_ISUID | S_ISGID | S_ISVTX;

/// Changes a file that need not be readable. Kernels before 6.6 cannot do that by themselves.
bool ChangeUnopened(const Descriptor& path, mode_t mode)
{
    if (syscall(SYS_fchmodat2, path.Get(), "", mode, AT_EMPTY_PATH) == 0)
        return true;
    if (errno != ENOSYS)
        return false;
    const std::string link = "/proc/self/fd/" + std::to_string(path.Get());
    if (chmod(link.c_str(), mode) == 0)
        return true;
    if (errno == ENOENT) // /proc is not there in a sandbox
        errno = EACCES;
    return false;
}

} // namespace

void SetPermissions(const Folders& folders, const Key& node, std::uint32_t permissions)
{
    const std::string subject = folders.Show(node.place);
    if ((permissions & ~permissionBits) != 0)
        Refuse(Status::invalidArgument, subject, "permissions have nine bits");
    folders.RequireWritable(node.place);
    const Descriptor path = folders.OpenPath(node.kind, node.place);
    const mode_t mode = (GetState(path, subject).st_mode & otherBits) | permissions;
    if (ChangeUnopened(path, mode))
        return;
    const int error = errno;
    if (error != EACCES)
        RefuseWithErrno(subject, error);
    const Descriptor file = node.kind == NodeKind::Directory
                                ? folders.OpenDirectory(node.place)
                                : folders.OpenFile(node.place, O_RDONLY);
    if (fchmod(file.Get(), mode) != 0)
        RefuseWithErrno(subject, errno);
}

void SetLastModifiedTime(const Folders& folders, const Key& node, const Core::DateTime& time)
{
    const std::string subject = folders.Show(node.place);
    if (time.IsEmpty())
        Refuse(Status::invalidArgument, subject, "the time is empty");
    folders.RequireWritable(node.place);
    const Descriptor path = folders.OpenPath(node.kind, node.place);
    const std::array<timespec, 2> times = {timespec{0, UTIME_OMIT}, ToTimespec(time)};
    if (utimensat(path.Get(), "", times.data(), AT_EMPTY_PATH) != 0)
        RefuseWithErrno(subject, errno);
}

bool IsWritable(const Folders& folders, const Key& node)
{
    const Descriptor path = folders.OpenPath(node.kind, node.place);
    return !folders.IsReadOnly(node.place) &&
           faccessat(path.Get(), "", W_OK, AT_EMPTY_PATH | AT_EACCESS) == 0;
}

} // namespace FileObjects
