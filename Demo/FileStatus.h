#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <optional>

namespace Demo {

/// The status of a path as the operating system reports it. The demo uses it to check the file
/// system independently.
class FileStatus
{
public:
    /// Follows links. Returns nothing, with `errno` set, if the path cannot be read.
    [[nodiscard]] static std::optional<FileStatus> Get(const std::filesystem::path& path);
    /// Does not follow links.
    [[nodiscard]] static std::optional<FileStatus> GetOfLink(const std::filesystem::path& path);

    [[nodiscard]] bool IsDirectory() const noexcept { return S_ISDIR(status.st_mode); }
    [[nodiscard]] bool IsRegular() const noexcept { return S_ISREG(status.st_mode); }
    [[nodiscard]] bool IsLink() const noexcept { return S_ISLNK(status.st_mode); }
    [[nodiscard]] std::uint64_t GetSize() const noexcept
    {
        return static_cast<std::uint64_t>(status.st_size);
    }
    /// Returns the time of the last modification, in whole seconds since 1970.
    [[nodiscard]] std::time_t GetTime() const noexcept { return status.st_mtim.tv_sec; }

    /// Returns true if any of the permission bits is set.
    [[nodiscard]] bool HasAnyOf(mode_t bits) const noexcept { return (status.st_mode & bits) != 0; }
    /// Returns true if all of the permission bits are set.
    [[nodiscard]] bool HasAllOf(mode_t bits) const noexcept
    {
        return (status.st_mode & bits) == bits;
    }

    [[nodiscard]] bool IsSameFile(const FileStatus& other) const noexcept
    {
        return status.st_dev == other.status.st_dev && status.st_ino == other.status.st_ino;
    }

private:
    struct stat status = {};
};

} // namespace Demo
