#pragma once

#include "Export.h"

#include <cstddef>
#include <cstdio>
#include <string>

/// Wrappers of libc functions. They keep no state and may be called from any thread.
// NOLINTBEGIN(readability-identifier-naming): they are named after what they wrap.
namespace SecurityEnhancedUtils {

/// libc's fopen, unchanged: null on failure, with `errno` as libc leaves it.
FILESYSTEM_API FILE* fopen(const std::string& path, const std::string& mode);

/// Copies exactly `count` characters, without a terminating zero, if the source has at least that
/// many, and returns the destination. A shorter source, or a null pointer, copies nothing and
/// returns null. (The bound is meant this way round.) REQUIRES: `source` ends with a zero;
/// `destination` has room for `count` characters.
FILESYSTEM_API char* strncpy(char* destination, const char* source, std::size_t count);

/// Copies `count` bytes and returns the destination. A null pointer, or a destination that is
/// smaller than `count`, copies nothing and returns the source.
/// REQUIRES: the ranges do not overlap.
FILESYSTEM_API void* memcpy(void* destination, std::size_t destinationSize, const void* source,
                            std::size_t count);

} // namespace SecurityEnhancedUtils
// NOLINTEND(readability-identifier-naming)
