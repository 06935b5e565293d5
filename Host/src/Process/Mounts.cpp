#include "Process/Mounts.h"

#include "Support/SystemError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace Host {

namespace {

using Path = std::filesystem::path;

constexpr std::array<std::string_view, 28> kernelFileSystems = {
    "binder",    "binfmt_misc", "bpf",        "cgroup",    "cgroup2",    "configfs", "debugfs",
    "devfs",     "devpts",      "devtmpfs",   "efivarfs",  "functionfs", "fusectl",  "gadgetfs",
    "hugetlbfs", "mqueue",      "nfsd",       "nsfs",      "openpromfs", "proc",     "pstore",
    "resctrl",   "rpc_pipefs",  "securityfs", "selinuxfs", "smackfs",    "sysfs",    "tracefs"};

/// Replaces \ooo, which the kernel writes for blanks, backslashes and line ends.
std::string Unescape(const std::string& text)
{
    std::string result;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '\\' && index + 3 < text.size()) {
            result += static_cast<char>(std::stoi(text.substr(index + 1, 3), nullptr, 8));
            index += 3;
        } else {
            result += text[index];
        }
    }
    return result;
}

/// Parses a line of proc_pid_mountinfo(5): "id parent device top place options [fields...] - type
/// ...".
Mount ReadMount(const std::string& line)
{
    std::istringstream fields(line);
    Mount mount;
    std::string parent;
    std::string top;
    std::string place;
    fields >> mount.id >> parent >> mount.device >> top >> place;
    for (std::string field; field != "-" && fields >> field;) {
    }
    fields >> mount.type;
    mount.top = Unescape(top);
    mount.place = Unescape(place);
    return mount;
}

} // namespace

std::vector<Mount> ReadMounts()
{
    std::ifstream lines("/proc/self/mountinfo");
    if (!lines.is_open())
        Support::ThrowSystemError("cannot read /proc/self/mountinfo");
    std::vector<Mount> mounts;
    for (std::string line; std::getline(lines, line);)
        mounts.push_back(ReadMount(line));
    return mounts;
}

const Mount* FindMount(const Path& path, const std::vector<Mount>& mounts)
{
    struct statx status = {};
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_MNT_ID,
              &status) != 0 ||
        (status.stx_mask & STATX_MNT_ID) == 0)
        return nullptr;
    const auto found = std::find_if(mounts.begin(), mounts.end(), [&status](const Mount& mount) {
        return mount.id == status.stx_mnt_id;
    });
    return found == mounts.end() ? nullptr : &*found;
}

std::optional<FilePlace> FindPlace(const Path& path, const std::vector<Mount>& mounts)
{
    const auto* const mount = FindMount(path, mounts);
    if (mount == nullptr)
        return std::nullopt;
    const auto below = path.lexically_relative(mount->place);
    return FilePlace{.device = mount->device,
                     .path = below == "." ? mount->top : mount->top / below};
}

bool IsBelow(const Path& path, const Path& folder)
{
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first ==
           folder.end();
}

bool IsKernelFileSystem(std::string_view type)
{
    return std::find(kernelFileSystems.begin(), kernelFileSystems.end(), type) !=
           kernelFileSystems.end();
}

} // namespace Host
