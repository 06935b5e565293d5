#pragma once

#include "Roots.h"

#include <vector>

namespace Host {

/// Restricts the calling thread, and those that it starts, to reading the roots, and writing those
/// that are not read-only. Returns the version of the kernel's interface, 0 where the kernel has
/// none. REQUIRES: no new privileges can be gained. Throws SystemException.
int RestrictWithLandlock(const std::vector<Root>& roots);

} // namespace Host
