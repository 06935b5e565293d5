#pragma once

#include "Transport/Asio.h"
#include "Transport/BufferPool.h"
#include "Transport/OutputBuffer.h"

#include <cstddef>
#include <deque>
#include <span>

namespace Transport {

/// The messages of one connection that wait to be sent. Not synchronised: the loop's lock guards
/// it.
class OutputQueue
{
public:
    /// `pool` gets the memory of what was sent, and must outlive the queue; null: it is freed.
    explicit OutputQueue(BufferPool* pool) noexcept
        : pool(pool)
    {}

    void Push(OutputBuffer buffer);
    /// Appends the bytes to the last message where there is room. Returns false if there is none.
    [[nodiscard]] bool Gather(std::span<const UA_Byte> bytes) noexcept;

    [[nodiscard]] bool IsEmpty() const noexcept { return buffers.empty(); }
    /// Returns how many bytes wait.
    [[nodiscard]] std::size_t GetSize() const noexcept { return queued; }

    [[nodiscard]] auto begin() const noexcept { return buffers.begin(); }
    [[nodiscard]] auto end() const noexcept { return buffers.end(); }

    /// Hands to the system what it takes without waiting. Leaves the error empty unless the
    /// connection has ended.
    void Send(boost::asio::ip::tcp::socket& socket, boost::system::error_code& error);

    /// Gives back the memory behind the messages that have come since the last time.
    void Shrink() noexcept;
    void Clear() noexcept;

private:
    void CountSent(std::size_t size);

    BufferPool* const pool;
    std::deque<OutputBuffer> buffers;
    std::size_t queued = 0; // bytes in these
};

} // namespace Transport
