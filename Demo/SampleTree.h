#pragma once

#include <filesystem>

namespace Demo {

/// Makes a directory tree that has what mirroring can stumble over: sizes around the block size,
/// odd names, deep folders, links of all kinds, permissions, times before 1970. Throws
/// std::system_error (a std::filesystem::filesystem_error where that knows the path).
void MakeSampleTree(const std::filesystem::path& root);

} // namespace Demo
