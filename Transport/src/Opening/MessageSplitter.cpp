#include "Transport/Opening/MessageSplitter.h"

#include <algorithm>

namespace Transport {

std::size_t MessageSplitter::Measure(std::span<const UA_Byte> bytes) noexcept
{
    std::size_t measured = 0;
    while (known < header.size() && measured < bytes.size()) {
        header[known++] = bytes[measured++];
        if (known == header.size())
            left = ReadBodySize();
    }
    const auto body = std::min(left, bytes.size() - measured);
    left -= body;
    if (known == header.size() && left == 0)
        known = 0;
    return measured + body;
}

/// The header's second half is the size of the whole. The library refuses what is no message.
std::size_t MessageSplitter::ReadBodySize() const noexcept
{
    std::size_t size = 0;
    for (std::size_t i = header.size(); i-- > header.size() / 2;)
        size = size << 8U | header[i];
    return size - std::min(size, header.size());
}

} // namespace Transport
