#pragma once

#include <filesystem>

namespace Demo {

/// Makes a directory tree that is hard to mirror: sizes around the block size, odd names, deep
/// directories, links of all kinds, permissions, times before 1970. Throws std::system_error, or
/// its child std::filesystem::filesystem_error, which names the path.
void MakeSampleTree(const std::filesystem::path& root);

} // namespace Demo
