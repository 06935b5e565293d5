#include "AllocationCount.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t allocationsOfThisThread = 0;

} // namespace

std::size_t GetAllocationsOfThisThread() noexcept
{
    return allocationsOfThisThread;
}

#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define CORE_TESTS_CANNOT_REPLACE_NEW // clang links these sanitizers' own operator new
#endif
#endif

#ifdef CORE_TESTS_CANNOT_REPLACE_NEW

bool CountsAllocations() noexcept
{
    return false;
}

#else

bool CountsAllocations() noexcept
{
    return true;
}

// NOLINTBEGIN(cppcoreguidelines-no-malloc): this is the allocator of everything else
void* operator new(std::size_t size)
{
    ++allocationsOfThisThread;
    if (void* memory = std::malloc(std::max<std::size_t>(size, 1))) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

#endif
