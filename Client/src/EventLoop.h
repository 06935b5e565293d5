#pragma once

#include "Client/Cancellation.h"

#include <open62541/plugin/eventloop.h>

#include <chrono>
#include <cstddef>
#include <memory>

namespace Client {

/// The event loop of one OPC UA client: timers, and TCP connections that it opens. Sending never
/// blocks and gathers small messages; waiting ends at once when there is something to do.
///
/// Threads: one, which runs it through the handle; `Wake` is for any thread.
/// Lifetime: outlives the client that it is given to (UA_ClientConfig::externalEventLoop).
class EventLoop
{
public:
    /// `logger` must outlive it, and so must `cancellation`, which does what `Break` does, unless
    /// null. Throws ClientException when there is no descriptor left.
    explicit EventLoop(const UA_Logger& logger, const Cancellation* cancellation = nullptr);
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;
    ~EventLoop();

    [[nodiscard]] UA_EventLoop* GetHandle() noexcept;

    /// Lets `run` return soon, or not wait the next time.
    void Wake() noexcept;

    /// Bytes that wait to be sent.
    [[nodiscard]] std::size_t GetQueuedOutput() const noexcept;

    /// Closes what is open, as if the peer had.
    void Break() noexcept;

    /// Does what `Break` does when the time has come, and whenever it is run from then on. Any
    /// thread.
    void EndBy(std::chrono::steady_clock::time_point deadline) noexcept;

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation;
};

} // namespace Client
