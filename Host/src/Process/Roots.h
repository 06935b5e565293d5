#pragma once

#include "Core/Folder.h"

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

/// Makes a root of a folder. Throws InvalidArgumentException if it does not exist, is not a folder,
/// or is the whole file system.
[[nodiscard]] Root MakeRoot(const std::filesystem::path& path, bool isReadOnly);

/// Returns the roots with the names by which clients find them: the last parts of their paths as
/// they were given, and of roots with the same one, the second and further ones with a number. A
/// folder that was given twice is there once.
[[nodiscard]] std::vector<Core::Folder> NameRoots(const std::vector<Root>& roots);

/// Throws InvalidArgumentException for a folder that is given both as read-only and as writable. A
/// root may lie inside another one and have another access; a folder may be given twice.
void CheckTogether(const std::vector<Root>& roots);

/// Throws InvalidArgumentException, with the system's reason, if a root that is not read-only
/// cannot be written.
void RequireWritable(const Root& root);

/// Throws InvalidArgumentException for a root that is a file system of the kernel, such as /proc,
/// /sys or /dev, or has one mounted inside it. Throws std::system_error if the mounts cannot be
/// read.
void RefuseKernelFiles(const std::vector<Root>& roots);

} // namespace Host
