#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <optional>

namespace Demo {

/// What the operating system itself says about a path. The demo looks with its own eyes where it
/// judges what the file system under demonstration did.
class FileStatus
{
public:
    /// Follows links. Empty, with `errno` set, when the path leads nowhere.
    [[nodiscard]] static std::optional<FileStatus> Get(const std::filesystem::path& path);
    /// Of a link itself.
    [[nodiscard]] static std::optional<FileStatus> GetOfLink(const std::filesystem::path& path);

    [[nodiscard]] bool IsDirectory() const noexcept { return S_ISDIR(status.st_mode); }
    [[nodiscard]] bool IsRegular() const noexcept { return S_ISREG(status.st_mode); }
    [[nodiscard]] bool IsLink() const noexcept { return S_ISLNK(status.st_mode); }
    [[nodiscard]] std::uint64_t GetSize() const noexcept
    {
        return static_cast<std::uint64_t>(status.st_size);
    }
    /// Of the last modification, in whole seconds since 1970.
    [[nodiscard]] std::time_t GetTime() const noexcept { return status.st_mtim.tv_sec; }

    /// True when any of the permission bits is set.
    [[nodiscard]] bool HasAnyOf(mode_t bits) const noexcept { return (status.st_mode & bits) != 0; }
    /// True when all of the permission bits are set.
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
