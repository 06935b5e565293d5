#pragma once

#include "Process/Roots.h"

#include <string>
#include <vector>

namespace Host {

/// Restricts the calling thread, and those that it starts, to reading the roots, and writing those
/// that are not read-only. From version 4 on they can open no TCP connection either, from version 6
/// on neither connect to abstract Unix sockets nor send signals to other processes. Returns the
/// version of the kernel's interface, 0 where the kernel has none. REQUIRES: no new privileges can
/// be gained. Throws SystemException.
int RestrictWithLandlock(const std::vector<Root>& roots);

/// "files, connections, signals": the matters that a version restricts.
[[nodiscard]] std::string DescribeLandlock(int version);

} // namespace Host
