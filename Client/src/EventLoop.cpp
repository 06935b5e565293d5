#include "EventLoop.h"

#include "Client/Exceptions.h"
#include "Transport/Asio.h"
#include "Transport/Loop.h"
#include "Transport/Opening/OpenedConnections.h"

#include <atomic>
#include <chrono>
#include <limits>
#include <string>
#include <unistd.h>

namespace Client {

namespace {

using std::chrono::steady_clock;
using Transport::loopLock;

constexpr auto never = std::numeric_limits<UA_DateTime>::max();

} // namespace

/// The client's part in each turn of the loop: ends what was cancelled or is overdue, and sends
/// what has gathered.
class EventLoop::Implementation : private Transport::TurnPart
{
public:
    Implementation(const UA_Logger& logger, const Cancellation* cancellation);
    /// Runs what the library has left, which frees memory.
    ~Implementation() override { loop.RunAllDelayed(); }

    [[nodiscard]] Transport::Loop& GetLoop() noexcept { return loop; }
    [[nodiscard]] Transport::OpenedConnections& GetConnections() noexcept { return connections; }
    void EndBy(steady_clock::time_point deadline) noexcept;

private:
    void BeforeWaiting() override;
    [[nodiscard]] UA_DateTime GetNext(UA_DateTime now) override REQUIRES(loopLock);

    [[nodiscard]] bool IsCancelled() const noexcept
    {
        return cancellation != nullptr && cancellation->IsCancelled();
    }
    [[nodiscard]] steady_clock::time_point GetEnd() const noexcept
    {
        return steady_clock::time_point(steady_clock::duration(end));
    }
    void WatchCancellation();

    const Cancellation* const cancellation;
    std::atomic<steady_clock::rep> end{steady_clock::duration::max().count()};
    /// One connection has few handlers; looking for a further one costs a call of the system each
    /// time.
    static constexpr std::size_t handlersPerTurn = 1;
    Transport::Loop loop;
    Transport::OpenedConnections connections; // after the loop
    boost::asio::posix::stream_descriptor cancelling;
};

EventLoop::Implementation::Implementation(const UA_Logger& logger, const Cancellation* cancellation)
    : cancellation(cancellation)
    , loop(logger, *this, handlersPerTurn)
    , connections(loop)
    , cancelling(loop.GetContext())
{
    if (cancellation != nullptr)
        WatchCancellation();
}

/// Has the loop wake up when the time comes to cancel; each turn looks whether it has.
void EventLoop::Implementation::WatchCancellation()
{
    const int descriptor = dup(cancellation->GetDescriptor()); // a descriptor here closes its own
    if (descriptor < 0)
        throw boost::system::system_error(errno, boost::system::system_category());
    cancelling.assign(descriptor);
    cancelling.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                          [](const boost::system::error_code&) {});
}

void EventLoop::Implementation::BeforeWaiting()
{
    if (IsCancelled() || steady_clock::now() >= GetEnd())
        connections.Break();
    connections.Flush();
}

UA_DateTime EventLoop::Implementation::GetNext(UA_DateTime now)
{
    if (IsCancelled())
        return now;
    const auto last = GetEnd();
    if (last == steady_clock::time_point::max())
        return never;
    using std::chrono::microseconds;
    const auto left = std::chrono::ceil<microseconds>(last - steady_clock::now()).count();
    return now + left * UA_DATETIME_USEC;
}

void EventLoop::Implementation::EndBy(steady_clock::time_point deadline) noexcept
{
    end = deadline.time_since_epoch().count();
    loop.Wake();
}

namespace {

/// Makes what the system refuses an exception of this library.
template <typename Function>
auto Translate(Function function)
{
    try {
        return function();
    } catch (const boost::system::system_error& failure) {
        throw ClientException("an event loop cannot be made: " + failure.code().message());
    }
}

} // namespace

EventLoop::EventLoop(const UA_Logger& logger, const Cancellation* cancellation)
    : implementation(
          Translate([&] { return std::make_unique<Implementation>(logger, cancellation); }))
{}

EventLoop::~EventLoop() = default;

UA_EventLoop* EventLoop::GetHandle() noexcept
{
    return &implementation->GetLoop().GetHandle();
}

void EventLoop::Wake() noexcept
{
    implementation->GetLoop().Wake();
}

std::size_t EventLoop::GetQueuedOutput() const noexcept
{
    return implementation->GetConnections().GetQueued();
}

void EventLoop::Break() noexcept
{
    implementation->GetConnections().Break();
}

void EventLoop::EndBy(std::chrono::steady_clock::time_point deadline) noexcept
{
    implementation->EndBy(deadline);
}

} // namespace Client
