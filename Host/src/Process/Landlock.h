#pragma once

#include "Process/Roots.h"

#include <string>
#include <vector>

namespace Host {

/// Restricts the calling thread, and those that it starts, to reading the roots and to writing
/// those that are not read-only. From version 4 on it also refuses TCP connections to others, from
/// version 6 on connections to abstract Unix sockets and signals to other processes. Returns the
/// version of the kernel's interface, 0 if the kernel has no Landlock. REQUIRES: the process cannot
/// gain privileges. Throws std::system_error.
int RestrictWithLandlock(const std::vector<Root>& roots);

/// Returns the things that a version restricts: "files, connections, signals".
[[nodiscard]] std::string DescribeLandlock(int version);

} // namespace Host
