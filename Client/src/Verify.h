#pragma once

#include "Caller.h"

#include <cstddef>
#include <string>

namespace Client {

/// Reads the remote file and compares it with the local one. Throws FileFailed unless the contents
/// are the same, and what Caller's waiting throws but CallsLost.
void CompareContents(Caller& caller, const std::string& remote, int local,
                     const std::string& localName, std::size_t jobs);

} // namespace Client
