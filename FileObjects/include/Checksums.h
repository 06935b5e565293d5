#pragma once

#include "Caller.h"
#include "Descriptor.h"

#include <cstdint>
#include <string>
#include <vector>

namespace FileObjects {

/// The SHA-256 of a part of a file.
struct Checksum
{
    std::vector<unsigned char> bytes;
    std::uint64_t length = 0; ///< the number of bytes that there were
};

/// Reads `length` bytes from `start` on, all that follow if it is 0, or fewer at the end of the
/// file. Throws Core::StatusException, also when the caller has gone.
[[nodiscard]] Checksum ComputeChecksum(const Descriptor& file, std::uint64_t start,
                                       std::uint64_t length, const std::string& subject,
                                       const Caller& caller);

/// Returns the SHA-256 of all that is below a directory: of the entries in the order of the bytes
/// of their names, for each "f" or "d", the name, a zero byte, and the checksum of the file or
/// directory. Links and special files do not count. Throws as the other.
[[nodiscard]] std::vector<unsigned char>
ComputeTreeChecksum(const Descriptor& directory, const std::string& subject, const Caller& caller);

} // namespace FileObjects
