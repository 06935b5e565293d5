#pragma once

#include <string>

namespace FileSystem {

/// Removes a directory with all below it, as Boost.Filesystem's `remove_all` does: follows no link,
/// and ends at the first failure. That function opens a directory and takes a piece of the stack
/// for each level, or reaches no deeper than a path can be long; this one needs a bounded number of
/// both, however deep the tree is. Worker thread; throws std::bad_alloc.
void RemoveTree(const std::string& path);

} // namespace FileSystem
