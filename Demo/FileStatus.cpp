#include "FileStatus.h"

namespace Demo {

std::optional<FileStatus> FileStatus::Get(const std::filesystem::path& path)
{
    FileStatus result;
    return ::stat(path.c_str(), &result.status) == 0 ? std::optional(result) : std::nullopt;
}

std::optional<FileStatus> FileStatus::GetOfLink(const std::filesystem::path& path)
{
    FileStatus result;
    return ::lstat(path.c_str(), &result.status) == 0 ? std::optional(result) : std::nullopt;
}

} // namespace Demo
