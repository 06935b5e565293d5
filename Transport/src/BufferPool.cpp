#include "Transport/BufferPool.h"

#include <utility>

#include <malloc.h>

namespace Transport {

namespace {

constexpr std::size_t mostKept = 32;

}

Memory BufferPool::Allocate(std::size_t size) noexcept
{
    // The library says only how much of a buffer it has filled, so the allocator is asked.
    if (spare.empty() || malloc_usable_size(spare.back().get()) < size)
        return Memory(static_cast<UA_Byte*>(UA_malloc(size)));
    Memory memory = std::move(spare.back());
    spare.pop_back();
    return memory;
}

void BufferPool::Recycle(Memory memory)
{
    if (spare.size() < mostKept)
        spare.push_back(std::move(memory));
}

} // namespace Transport
