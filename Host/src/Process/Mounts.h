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
    std::filesystem::path place; ///< where it is mounted
    std::string type;            ///< "ext4", "proc"
};

/// The same for every path that leads to one file, also by way of several mounts.
struct FilePlace
{
    std::string device;
    std::filesystem::path path; ///< within its file system
};

/// The mounts of the calling process. Throws SystemException when the kernel does not tell them.
[[nodiscard]] std::vector<Mount> ReadMounts();

/// The mount that holds a file, or the link if the path is one. Null when the file does not exist,
/// or the kernel does not say.
[[nodiscard]] const Mount* FindMount(const std::filesystem::path& path,
                                     const std::vector<Mount>& mounts);

/// Nothing where `FindMount` finds nothing. `path` is absolute and its folders are no links.
[[nodiscard]] std::optional<FilePlace> FindPlace(const std::filesystem::path& path,
                                                 const std::vector<Mount>& mounts);

/// True for the folder itself and all that is below it, going by the names alone.
[[nodiscard]] bool IsBelow(const std::filesystem::path& path, const std::filesystem::path& folder);

/// True for file systems whose files are the kernel's view of itself, of its devices or of
/// processes: reading or writing them controls the machine.
[[nodiscard]] bool IsKernelFileSystem(std::string_view type);

} // namespace Host
