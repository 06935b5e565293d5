#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Client {

// Files that their owner alone may read. All throw ClientException with the system's reason.

/// Throws ClientException with what failed and errno's text.
[[noreturn]] void FailWithSystemError(const std::string& what);

/// Makes a folder with mode 0700 unless it is there, and the folders above it. Throws
/// InvalidArgumentException for an empty path.
void MakePrivateFolder(const std::filesystem::path& folder);

[[nodiscard]] std::string ReadWhole(const std::filesystem::path& file);

/// At once and with mode 0600: whoever reads it meets the old content or the new one.
void ReplaceFile(const std::filesystem::path& file, std::string_view content);

} // namespace Client
