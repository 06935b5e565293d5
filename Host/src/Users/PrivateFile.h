#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Host {

enum class GroupMayRead
{
    No,
    Yes,
};

/// The whole of a file that holds secrets. Throws SystemException when it cannot be read, and
/// InvalidArgumentException when it is no regular file, or when others than its owner may read or
/// change it; its group may be allowed to read it.
[[nodiscard]] std::string ReadPrivateFile(const std::filesystem::path& file,
                                          GroupMayRead groupMayRead);

/// The whole of a file whose content is no secret. Throws as above, but for who may read or change
/// it.
[[nodiscard]] std::string ReadFile(const std::filesystem::path& file);

/// Replaces a file, or makes it, at once and with mode 0600: whoever reads it meets the old content
/// or the new one, also after a power failure. Throws SystemException.
void WritePrivateFile(const std::filesystem::path& file, std::string_view content);

/// Makes a folder for its owner alone (mode 0700), and those above it that are missing. Throws
/// SystemException, and InvalidArgumentException when it is there and others may change it.
void MakePrivateFolder(const std::filesystem::path& folder);

} // namespace Host
