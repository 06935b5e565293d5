#pragma once

#include "FileStatus.h"
#include "Report.h"

#include <filesystem>
#include <vector>

namespace Demo {

struct SourceEntry
{
    std::filesystem::path path; ///< relative to the tree's root
    FileStatus status;          ///< of a link: of what it leads to
    bool isLink = false;
};

/// What a directory tree holds, each directory before its contents.
struct SourceTree
{
    std::filesystem::path root;
    std::vector<SourceEntry> entries;
};

/// Looks through a tree. A link to a file counts as the file. A link to a directory counts as a
/// directory, but what is behind it is left out: it is somewhere else, or in the tree already, and
/// links can form a circle. Dangling links and what is neither file nor directory are skipped and
/// reported; a directory that cannot be read is a failure. `workspace` is left out silently, since
/// the tree to mirror may be the one in which the demo works.
[[nodiscard]] SourceTree ReadSourceTree(const std::filesystem::path& root,
                                        const std::filesystem::path& workspace, Report& report);

} // namespace Demo
