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
/// it is not there, no folder, or the whole file system.
[[nodiscard]] Root MakeRoot(const std::filesystem::path& path, bool isReadOnly);

/// A root may lie inside another one, and then has its own access; the same folder may be named
/// twice. Throws InvalidArgumentException for a folder that is to be both read-only and not.
void CheckTogether(const std::vector<Root>& roots);

/// Throws InvalidArgumentException for a root that is a view of the kernel's, such as /proc, /sys
/// or /dev, or holds one that is mounted inside it. Throws SystemException when the mounts cannot
/// be read.
void RefuseKernelFiles(const std::vector<Root>& roots);

} // namespace Host
