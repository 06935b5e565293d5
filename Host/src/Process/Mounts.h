#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

/// A mounted file system, or a folder of one.
struct Mount
{
    std::uint64_t id = 0;
    std::string device;          ///< the same for all mounts of one file system
    std::filesystem::path top;   ///< the folder of that file system that is mounted
    std::filesystem::path place; ///< the mount point
    std::string type;            ///< "ext4", "proc"
};

/// The place of a file in its file system: the same for all paths and mounts that lead to it.
struct FilePlace
{
    std::string device;
    std::filesystem::path path; ///< within its file system
};

/// Returns the mounts of the calling process. Throws std::system_error if they cannot be read.
[[nodiscard]] std::vector<Mount> ReadMounts();

/// Returns the mount of a file; links are not followed. Returns null if the file does not exist or
/// the kernel does not tell its mount.
[[nodiscard]] const Mount* FindMount(const std::filesystem::path& path,
                                     const std::vector<Mount>& mounts);

/// Returns nothing if `FindMount` returns null. REQUIRES: `path` is absolute, and no folder of it
/// is a link.
[[nodiscard]] std::optional<FilePlace> FindPlace(const std::filesystem::path& path,
                                                 const std::vector<Mount>& mounts);

/// Returns true for the folder itself and all paths below it; compares names only.
[[nodiscard]] bool IsBelow(const std::filesystem::path& path, const std::filesystem::path& folder);

/// Returns true for file systems of the kernel, whose files stand for the kernel, devices or
/// processes: writing to them can control the machine.
[[nodiscard]] bool IsKernelFileSystem(std::string_view type);

} // namespace Host
