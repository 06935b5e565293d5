#include "Transport/Accepting/MessageStream.h"

#include <algorithm>

namespace Transport {
namespace {

constexpr std::size_t chunkTypeAt = 3; // behind the type of the message
constexpr std::size_t sizeAt = 4;
constexpr unsigned char anotherFollows = 'C';

} // namespace

MessageStream::Sizes MessageStream::Take(std::span<const unsigned char> bytes) noexcept
{
    auto largest = current;
    while (!bytes.empty() && !lost) {
        if (headerSize < headerLength) {
            bytes = bytes.subspan(TakeHeader(bytes));
            if (headerSize < headerLength)
                break;
            BeginChunk();
            largest.bytes = std::max(largest.bytes, current.bytes);
            largest.chunks = std::max(largest.chunks, current.chunks);
        } else {
            const auto count = std::min(missing, bytes.size());
            missing -= count;
            bytes = bytes.subspan(count);
        }
        if (missing == 0 && !lost)
            EndChunk();
    }
    return largest;
}

std::size_t MessageStream::TakeHeader(std::span<const unsigned char> bytes) noexcept
{
    const auto count = std::min(headerLength - headerSize, bytes.size());
    std::copy_n(bytes.begin(), count, header.begin() + static_cast<std::ptrdiff_t>(headerSize));
    headerSize += count;
    return count;
}

void MessageStream::BeginChunk() noexcept
{
    std::size_t size = 0;
    for (auto at = headerLength; at > sizeAt; --at)
        size = size << 8U | header.at(at - 1);
    const auto type = header.at(chunkTypeAt);
    if (size < headerLength || (type != 'F' && type != 'A' && type != anotherFollows)) {
        lost = true;
        return;
    }
    missing = size - headerLength;
    current.bytes += size;
    ++current.chunks;
}

void MessageStream::EndChunk() noexcept
{
    headerSize = 0;
    if (header.at(chunkTypeAt) == anotherFollows)
        return;
    current = {};
    ++messages;
}

} // namespace Transport
