#pragma once

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

namespace FileSystem {

/// Returns the type of the file that a path leads to, links followed; `status_error` when the
/// system refuses to tell.
[[nodiscard]] boost::filesystem::file_type
GetFileType(const boost::filesystem::path& path) noexcept;

/// True when a path leads to something; false also when the system refuses to tell.
[[nodiscard]] bool PathExists(const boost::filesystem::path& path) noexcept;

} // namespace FileSystem
