#pragma once

#include "Caller.h"
#include "Descriptor.h"
#include "Folders.h"
#include "Keys.h"
#include "OpenFiles.h"

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

/// Returns the SHA-256 of a part of a file: of `length` bytes from `start` on, of all that follow
/// if it is 0, or of fewer at the end of the file. Throws Core::StatusException, also when the
/// caller has gone: Bad_NotReadable for a file that another session has open for writing.
[[nodiscard]] Checksum ComputeFileChecksum(const Folders& folders, const Place& place,
                                           OpenFiles& openFiles, std::uint64_t start,
                                           std::uint64_t length, const Caller& caller);

/// Returns the SHA-256 of all that is below a directory: of the entries in the order of the bytes
/// of their names, for each "f" or "d", the name, a zero byte, and the checksum of the file or
/// directory. Links and special files do not count. Throws as the other.
[[nodiscard]] std::vector<unsigned char>
ComputeTreeChecksum(const Folders& folders, const Place& place, const Caller& caller);

} // namespace FileObjects
