#include "Transport/OutputQueue.h"

#include <array>
#include <utility>

namespace Transport {

namespace asio = boost::asio;

namespace {

/// As many buffers as are handed to the system at once.
constexpr std::size_t partsAtOnce = 64;

/// The first buffers of a queue, as Boost.Asio takes them.
class Parts
{
public:
    using value_type = asio::const_buffer;
    using const_iterator = const value_type*;

    explicit Parts(const std::deque<OutputBuffer>& buffers) noexcept
    {
        for (const auto& buffer : buffers) {
            parts[count++] = asio::const_buffer(buffer.GetData(), buffer.GetSize());
            if (count == parts.size())
                break;
        }
    }

    [[nodiscard]] const_iterator begin() const noexcept { return parts.data(); }
    [[nodiscard]] const_iterator end() const noexcept { return parts.data() + count; }

private:
    std::array<value_type, partsAtOnce> parts;
    std::size_t count = 0;
};

} // namespace

void OutputQueue::Push(OutputBuffer buffer)
{
    const auto size = buffer.GetSize();
    buffers.push_back(std::move(buffer));
    queued += size;
}

bool OutputQueue::Gather(std::span<const UA_Byte> bytes) noexcept
{
    if (buffers.empty() || !buffers.back().Append(bytes))
        return false;
    queued += bytes.size();
    return true;
}

void OutputQueue::Send(asio::ip::tcp::socket& socket, boost::system::error_code& error)
{
    while (!buffers.empty()) {
        const auto sent = socket.write_some(Parts(buffers), error);
        if (error == asio::error::would_block)
            return error.clear();
        if (error)
            return;
        CountSent(sent);
    }
}

void OutputQueue::CountSent(std::size_t size)
{
    queued -= size;
    while (!buffers.empty() && size >= buffers.front().GetSize()) {
        size -= buffers.front().GetSize();
        if (pool != nullptr)
            pool->Recycle(std::move(buffers.front()).TakeMemory());
        buffers.pop_front();
    }
    if (size > 0)
        buffers.front().CountSent(size);
}

void OutputQueue::Shrink() noexcept
{
    for (auto buffer = buffers.rbegin(); buffer != buffers.rend() && !buffer->IsShrunk(); ++buffer)
        buffer->Shrink();
}

void OutputQueue::Clear() noexcept
{
    buffers.clear();
    queued = 0;
}

} // namespace Transport
