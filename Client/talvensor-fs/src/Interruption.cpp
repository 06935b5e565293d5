#include "Interruption.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <utility>

namespace Cli {

namespace {

std::atomic<Client::Cancellation*> current{nullptr};
std::atomic<int> firstSignal{0};
std::atomic<int> running{0}; // handlers, on whatever threads

static_assert(std::atomic<Client::Cancellation*>::is_always_lock_free &&
              std::atomic<int>::is_always_lock_free);

void Handle(int number)
{
    const int previousError = errno;
    ++running;
    int none = 0;
    if (!firstSignal.compare_exchange_strong(none, number))
        _exit(128 + number);
    if (auto* const cancellation = current.load())
        cancellation->Cancel();
    --running;
    errno = previousError;
}

/// No handler that comes later sees the one before, and no handler that saw it is still running.
void SetCurrent(Client::Cancellation* cancellation)
{
    current = cancellation;
    while (running > 0)
        std::this_thread::yield();
}

} // namespace

Interruption::Interruption()
    : cancellation(std::make_unique<Client::Cancellation>())
{
    firstSignal = 0;
    SetCurrent(cancellation.get());
    struct sigaction action = {};
    action.sa_handler = Handle;
    action.sa_flags = SA_RESTART;
    for (std::size_t index = 0; index < signals.size(); ++index) {
        sigaction(signals.at(index), nullptr, &previous.at(index));
        // A signal that the parent had us ignore, as nohup does, stays ignored.
        if (previous.at(index).sa_handler != SIG_IGN)
            sigaction(signals.at(index), &action, nullptr);
    }
}

Interruption::~Interruption()
{
    for (std::size_t index = 0; index < signals.size(); ++index)
        sigaction(signals.at(index), &previous.at(index), nullptr);
    SetCurrent(nullptr);
}

int Interruption::GetSignal() noexcept
{
    return firstSignal;
}

void Interruption::Renew()
{
    auto next = std::make_unique<Client::Cancellation>();
    firstSignal = 0;
    SetCurrent(next.get());
    cancellation = std::move(next);
    if (firstSignal != 0) // it came in between
        cancellation->Cancel();
}

} // namespace Cli
