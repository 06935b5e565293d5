#pragma once

#include "Transport/OutputBuffer.h"

#include <cstddef>
#include <vector>

namespace Transport {

/// Keeps the memory of messages that were sent for the next ones. Not synchronised: the loop's lock
/// guards it.
class BufferPool
{
public:
    /// Returns room for so many bytes, or nothing when there is no memory.
    [[nodiscard]] Memory Allocate(std::size_t size) noexcept;
    /// Keeps the memory, or frees it when there is enough. Throws std::bad_alloc.
    void Recycle(Memory memory);

private:
    std::vector<Memory> spare;
};

} // namespace Transport
