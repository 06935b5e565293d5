#pragma once

namespace Support {

/// Lets the allocator keep up to 16 MiB of freed memory per arena, so that the system does not make
/// new pages for every block that passes through. Call it before other threads start.
void KeepFreedMemory() noexcept;

} // namespace Support
