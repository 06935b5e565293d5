#include "Transport/OutputBuffer.h"

#include <algorithm>
#include <new>

#include <malloc.h>

namespace Transport {

void FreeMemory::operator()(UA_Byte* memory) const noexcept
{
    UA_free(memory);
}

OutputBuffer::OutputBuffer(UA_ByteString& bytes) noexcept
    : data(bytes.data)
    , size(bytes.length)
{
    UA_ByteString_init(&bytes);
}

OutputBuffer OutputBuffer::Copy(const UA_Byte* bytes, std::size_t size)
{
    auto* memory = static_cast<UA_Byte*>(UA_malloc(size));
    if (memory == nullptr)
        throw std::bad_alloc();
    std::copy_n(bytes, size, memory);
    UA_ByteString copy{size, memory};
    return OutputBuffer(copy);
}

bool OutputBuffer::Append(std::span<const UA_Byte> bytes) noexcept
{
    if (malloc_usable_size(data.get()) - size < bytes.size())
        return false;
    std::copy(bytes.begin(), bytes.end(), data.get() + size);
    size += bytes.size();
    return true;
}

void OutputBuffer::Shrink() noexcept
{
    shrunk = true;
    if (size == 0)
        return;
    if (auto* smaller = static_cast<UA_Byte*>(UA_realloc(data.get(), size))) {
        // The old memory is gone, or is the new one: not to be freed.
        static_cast<void>(data.release());
        data.reset(smaller);
    }
}

} // namespace Transport
