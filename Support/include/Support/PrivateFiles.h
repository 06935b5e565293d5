#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Support {

// Files and folders for their owner alone. All of these functions throw std::system_error if the
// system refuses.

/// A file or folder must not be used: it is of the wrong kind, or others may read or change it. The
/// text names it and says what to do.
class UnsafeFileException : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

enum class GroupMayRead
{
    No,
    Yes,
};

/// Returns the content of a file that holds secrets. Throws UnsafeFileException if it is not a
/// regular file, or if others than its owner may read or change it; its group may read it if
/// `groupMayRead` says so.
[[nodiscard]] std::string ReadPrivateFile(const std::filesystem::path& file,
                                          GroupMayRead groupMayRead);

/// Returns the content of a file that holds no secrets. Throws UnsafeFileException if it is not a
/// regular file.
[[nodiscard]] std::string ReadFile(const std::filesystem::path& file);

/// Creates or replaces a file with mode 0600. One that root replaces keeps its owner, and one that
/// root creates belongs to the owner of its folder. Readers see the old content or the new one,
/// also after a power failure.
void WritePrivateFile(const std::filesystem::path& file, std::string_view content);

/// Creates a folder with mode 0700, and missing folders above it. Does nothing if it exists.
void MakePrivateFolder(const std::filesystem::path& folder);

/// Throws UnsafeFileException if the path is not a folder, or if others than its owner may change
/// it.
void RequirePrivateFolder(const std::filesystem::path& folder);

} // namespace Support
