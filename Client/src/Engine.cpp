#include "Engine.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

namespace Client {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr UA_UInt32 longestWait = 1'000; // ms; everything that happens ends it

constexpr milliseconds firstPause{50};
constexpr milliseconds longestPause{1'000};

} // namespace

Engine::Engine(ConnectionOptions givenOptions, const Cancellation* cancellation)
    : options(std::move(givenOptions))
    , connector(options, ending)
    , subscriptions(connector)
    , sender(connector, options.answerTime)
{
    connector.Connect(cancellation);
    // NOLINTNEXTLINE(cppcoreguidelines-prefer-member-initializer): known from now on
    offersObjects = GetNamespaces().objects != 0;
    thread = std::thread([this] { RunThread(); });
}

Engine::~Engine()
{
    Close();
}

void Engine::Close() noexcept
{
    if (!thread.joinable())
        return;
    ending.Stop();
    interruption.Notify();
    connector.GetLoop().Wake();
    thread.join();
}

void Engine::EndBy(steady_clock::time_point deadline) noexcept
{
    ending.EndBy(deadline);
    connector.GetLoop().EndBy(deadline);
    interruption.Notify();
}

void Engine::RunThread()
{
    while (!ending.IsStopping() && !isDead) {
        try {
            RunDepartures();
            RunFunctions();
            TakeOverdue();
            TakePosted();
            sender.SendReady();
            // The calls above run the loop too, and take the wake-up for what has come meanwhile.
            UA_Client_run_iterate(GetClient(), HasWork() ? 0 : longestWait);
            UA_StatusCode status = UA_STATUSCODE_GOOD;
            if (!connector.IsConnected(status) && !ending.IsStopping())
                HandleLoss();
        } catch (const std::exception& failure) { // of memory: the loss is handled once more
            Break(failure.what());
        }
    }
    Die("the connection was closed");
    while (!ending.IsStopping()) { // the listeners leave one after the other
        AwaitDeparture(Waiter::Deadline::max());
        RunDepartures();
    }
    connector.Disconnect();
}

bool Engine::HasWork() const
{
    const Support::Lock lock(mutex);
    return ending.IsStopping() || !departures.empty() || !functions.empty() || !posted.empty() ||
           !overdue.empty();
}

// Work that other threads leave here

void Engine::Post(PostedCallPointer call)
{
    {
        const Support::Lock lock(mutex);
        if (!isDead) {
            posted.push_back(std::move(call));
            call = nullptr;
        }
    }
    if (call)
        call->Lose(false);
    else
        connector.GetLoop().Wake();
}

void Engine::TakePosted()
{
    const Support::Lock lock(mutex);
    sender.Add(posted);
}

void Engine::Run(const std::function<void()>& function)
{
    std::promise<void> promise;
    auto done = promise.get_future();
    std::exception_ptr failure;
    {
        const Support::Lock lock(mutex);
        if (isDead)
            throw ConnectionLostException(lossReason);
        functions.push_back({&function, &failure, &promise});
    }
    connector.GetLoop().Wake();
    done.wait();
    if (failure)
        std::rethrow_exception(failure);
}

void Engine::RunFunctions()
{
    std::vector<Function> taken;
    {
        const Support::Lock lock(mutex);
        taken.swap(functions);
    }
    for (const auto& [function, failure, promise] : taken) {
        try {
            (*function)();
        } catch (...) {
            *failure = std::current_exception();
        }
        promise->set_value();
    }
}

void Engine::Leave(EventListener& listener) noexcept
{
    std::promise<void> promise;
    auto done = promise.get_future();
    {
        const Support::Lock lock(mutex);
        departures.push_back({&listener, &promise});
    }
    connector.GetLoop().Wake();
    interruption.Notify();
    done.wait();
}

void Engine::RunDepartures()
{
    std::vector<Departure> taken;
    {
        const Support::Lock lock(mutex);
        taken.swap(departures);
    }
    for (const auto& departure : taken) {
        listeners.Remove(*departure.listener);
        subscriptions.Unsubscribe(*departure.listener);
        departure.listener->OnDead();
        departure.promise->set_value();
    }
    if (isConnected)
        subscriptions.DeleteLeft();
}

/// Returns too when the engine has to stop.
void Engine::AwaitDeparture(Waiter::Deadline deadline)
{
    interruption.WaitUntil(
        [this] {
            const Support::Lock lock(mutex);
            return ending.IsStopping() || !departures.empty();
        },
        deadline);
}

void Engine::GiveUp(const std::string& reason)
{
    {
        const Support::Lock lock(mutex);
        overdue = reason;
    }
    connector.GetLoop().Wake();
}

void Engine::TakeOverdue()
{
    std::string reason;
    {
        const Support::Lock lock(mutex);
        reason.swap(overdue);
    }
    if (!reason.empty())
        Break(reason);
}

// Losing the connection and making it again

void Engine::Report(const std::string& text) const
{
    if (options.report)
        options.report(text);
}

void Engine::LosePosted()
{
    TakePosted();
    sender.LoseReady();
}

void Engine::HandleLoss()
{
    const std::string reason = connector.TakeLossReason();
    isConnected = false;
    listeners.TellLost();
    LosePosted();
    if (ending.HasEnded()) {
        Die("the connection to " + options.url + " was closed");
        return;
    }
    Report("lost the connection to " + options.url + ": " + reason);
    if (Reconnect())
        Report("connected to " + options.url + " again");
    else if (!ending.IsStopping())
        Die("the connection to " + options.url + " was lost: " + reason +
            ", and could not be restored: " + connector.GetLastFailure());
}

bool Engine::Reconnect()
{
    const auto deadline = steady_clock::now() + options.reconnectTime;
    for (auto pause = firstPause; !ending.IsStopping(); pause = std::min(pause * 2, longestPause)) {
        if (steady_clock::now() >= deadline || ending.HasEnded())
            return false;
        try {
            TryReconnect(deadline);
            return true;
        } catch (const RefusedException& refused) {
            connector.SetLastFailure(refused.what());
            if (refused.GetRefusal() != Refusal::Limit)
                return false;                     // trying again would not help
        } catch (const std::exception& failure) { // of memory, too
            connector.SetLastFailure(failure.what());
        }
        AwaitDeparture(std::min(deadline, steady_clock::now() + pause));
        RunDepartures();
    }
    return false;
}

void Engine::TryReconnect(Waiter::Deadline deadline)
{
    const std::string before = connector.GetFacts().GetSession();
    connector.ConnectAgain(deadline);
    offersObjects = GetNamespaces().objects != 0;
    const std::string& session = connector.GetFacts().GetSession();
    if (session != before)
        subscriptions.Forget();
    subscriptions.DeleteLeft();
    listeners.TellConnected(session);
    isConnected = true;
}

void Engine::Die(const std::string& reason)
{
    if (isDead)
        return;
    std::vector<Function> waiting;
    {
        const Support::Lock lock(mutex);
        isDead = true;
        lossReason = reason;
        waiting.swap(functions);
    }
    LosePosted();
    listeners.TellDead();
    for (const auto& [function, failure, promise] : waiting) {
        *failure = std::make_exception_ptr(ConnectionLostException(reason));
        promise->set_value();
    }
}

std::string Engine::GetLossReason() const
{
    const Support::Lock lock(mutex);
    return lossReason;
}

// Events

void Engine::Add(EventListener& listener)
{
    listeners.Add(listener, connector.GetFacts().GetSession());
}

void Engine::Subscribe(const UA_NodeId& node, EventListener& listener)
{
    subscriptions.Subscribe(node, listener);
}

} // namespace Client
