#pragma once

#include <filesystem>
#include <vector>

namespace Host {

/// A folder that clients may reach.
struct Root
{
    std::filesystem::path given; ///< absolute and without ".", ".." and a final slash
    std::filesystem::path real;  ///< the same folder without symbolic links
    bool isReadOnly = false;
};

/// Looks at a folder that is to be a root. Throws InvalidArgumentException when it cannot be one:
/// it is not there, no folder, the whole file system, or a view of the kernel's (/proc).
[[nodiscard]] Root MakeRoot(const std::filesystem::path& path, bool isReadOnly);

/// A root may lie inside another one, and then has its own access; the same folder may be named
/// twice. Throws InvalidArgumentException for a folder that is to be both read-only and not.
void CheckTogether(const std::vector<Root>& roots);

/// True when the path, which need not exist, is the folder or lies in it. Both are absolute; links
/// are followed as far as the path exists.
[[nodiscard]] bool IsInside(const std::filesystem::path& path, const std::filesystem::path& folder);

} // namespace Host
