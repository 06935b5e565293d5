#pragma once

#include "Caller.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace Client {

/// The most that one Read returns.
constexpr std::uint32_t readSize = 61440;

/// Takes a part of a file, which begins at that position.
using PartSink = std::function<void(std::uint64_t, std::span<const unsigned char>)>;

/// Reads a remote file from a position to its end into a sink that takes its parts in order.
/// Resumes over lost connections. Returns the file's size. Throws FileFailed, and what Caller's
/// waiting throws but CallsLost; the file is closed then.
std::uint64_t ReadRemoteFile(Caller& caller, const std::string& remote, std::uint64_t start,
                             std::size_t jobs, const PartSink& sink);

} // namespace Client
