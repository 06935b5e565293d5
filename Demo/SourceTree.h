#pragma once

#include "FileStatus.h"
#include "Report.h"

#include <filesystem>
#include <vector>

namespace Demo {

struct SourceEntry
{
    std::filesystem::path path; ///< relative to the tree's root
    FileStatus status;          ///< of the target, for a link
    bool isLink = false;
};

/// The entries of a directory tree, each directory before its entries.
struct SourceTree
{
    std::filesystem::path root;
    std::vector<SourceEntry> entries;
};

/// Reads a tree. A link to a file counts as the file. A link to a directory counts as an empty
/// directory: its entries are elsewhere, or in the tree already, and links can form a circle. Skips
/// and reports dangling links, and entries that are neither file nor directory. Reports a directory
/// that cannot be read as a failure. Leaves out `workspace` silently, since the tree to mirror may
/// contain it.
[[nodiscard]] SourceTree ReadSourceTree(const std::filesystem::path& root,
                                        const std::filesystem::path& workspace, Report& report);

} // namespace Demo
