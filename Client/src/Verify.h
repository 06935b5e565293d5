#pragma once

#include "Caller.h"

#include <cstddef>
#include <functional>
#include <string>

namespace Client {

/// Reads the remote file and compares it with the local one. Throws FileFailed unless the contents
/// are the same, and what Caller's waiting throws but CallsLost. `tell` hears how far it is.
void CompareContents(Caller& caller, const std::string& remote, int local,
                     const std::string& localName, std::size_t jobs,
                     const std::function<void(std::uint64_t)>& tell);

} // namespace Client
