#include "Endpoint/LookUps.h"

#include "Log/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>

namespace Host {
namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;

/// Threads at most for each provider: its further lanes share them.
constexpr unsigned int mostLanes = 64;

/// How often to see whether a look-up has begun.
constexpr microseconds untilBegun{1'000};

} // namespace

/// The state of a look-up, which both threads share.
class LookUps::Ticket
{
public:
    enum class State
    {
        Waiting,
        Running,
        Done,
        GivenUp, ///< before it began
    };

    Ticket(LaneThread& lane, std::shared_ptr<Ticket> before)
        : lane(lane)
        , before(std::move(before))
    {}

    /// On the lane's thread.
    void Run(const Work& work) EXCLUDES(mutex)
    {
        {
            const Support::Lock lock(mutex);
            if (state == State::GivenUp)
                return;
            state = State::Running;
            begin = lastSign = Clock::now();
        }
        work([this] { NoteSign(); });
        {
            const Support::Lock lock(mutex);
            state = State::Done;
            end = Clock::now();
        }
        changed.NotifyAll();
    }

    [[nodiscard]] State GetState() const EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        return state;
    }

    /// True while it runs without a sign of progress for longer than `silence`.
    [[nodiscard]] bool IsStuck(microseconds silence) const EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        return state == State::Running && Clock::now() - lastSign > silence;
    }

    /// Waits for the end: `patience` from now, or from the beginning if that is later, and
    /// `silence` after each sign of progress. Returns true once it is done.
    [[nodiscard]] bool WaitForEnd(const LookUpLimits& limits, microseconds patience) EXCLUDES(mutex)
    {
        const auto start = Clock::now();
        Support::Lock lock(mutex);
        while (state == State::Waiting || state == State::Running) {
            const auto now = Clock::now();
            // That a thread gets no processor yet is not the disk's fault.
            const auto last = state == State::Waiting ? start + limits.longest
                                                      : std::min(std::max(begin, start) + patience,
                                                                 lastSign + limits.silence);
            if (now >= last)
                break;
            // Nobody is woken when it begins, which would take time from those that are fast.
            changed.WaitUntil(lock,
                              state == State::Waiting ? std::min(last, now + untilBegun) : last);
        }
        return state == State::Done;
    }

    /// Takes it back if it has not begun.
    void GiveUp() EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        if (state == State::Waiting)
            state = State::GivenUp;
    }

    [[nodiscard]] Clock::duration GetRunTime() const EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        return end - begin;
    }

    LaneThread& lane;
    std::shared_ptr<Ticket> before; ///< the one of the lane that has to end first; loop thread

private:
    void NoteSign() EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        lastSign = Clock::now();
    }

    mutable Support::Mutex mutex;
    Support::Condition changed; // it is done
    State state GUARDED_BY(mutex) = State::Waiting;
    Clock::time_point begin GUARDED_BY(mutex);
    Clock::time_point lastSign GUARDED_BY(mutex);
    Clock::time_point end GUARDED_BY(mutex);
};

/// A lane: its thread, its latest look-up and its budget.
class LookUps::LaneThread
{
public:
    explicit LaneThread(const LookUpLimits& limits)
        : limits(limits)
        , left(limits.budget)
    {
        thread.Start("for look-ups");
    }

    [[nodiscard]] bool IsRefusing()
    {
        Refill();
        if (left <= microseconds(0))
            return true;
        const auto running = FindRunning();
        return running != nullptr && running->IsStuck(limits.silence);
    }

    [[nodiscard]] std::shared_ptr<Ticket> Begin(Work work)
    {
        latest = std::make_shared<Ticket>(*this, FindRunning());
        thread.Post([ticket = latest, work = std::move(work)] { ticket->Run(work); });
        return latest;
    }

    /// See LookUps::Wait. First waits for the look-up that runs before it.
    [[nodiscard]] bool Wait(Ticket& ticket, Patience patience)
    {
        Refill();
        const auto begin = Clock::now();
        const auto most = patience == Patience::Short
                              ? std::max(microseconds(left - limits.budget / 2), microseconds(0))
                              : limits.longest;
        const bool isBeforeOver = ticket.before == nullptr ||
                                  ticket.before->WaitForEnd(limits, most) ||
                                  ticket.before->GetState() == Ticket::State::GivenUp;
        if (isBeforeOver)
            ticket.before = nullptr;
        const bool isDone = isBeforeOver && ticket.WaitForEnd(limits, most);
        if (!isDone)
            ticket.GiveUp();
        const auto waited = Clock::now() - begin;
        // A thread that gets no processor is not the disk's fault: the time of the look-up counts.
        Spend(isDone ? std::min(waited, ticket.GetRunTime()) : waited);
        return isDone;
    }

    [[nodiscard]] bool WaitIdle(std::chrono::milliseconds limit) { return thread.WaitIdle(limit); }

private:
    /// Returns the look-up that others wait for, null if there is none.
    [[nodiscard]] std::shared_ptr<Ticket> FindRunning()
    {
        auto ticket = latest;
        while (ticket != nullptr && IsOver(*ticket))
            ticket = ticket->before;
        return ticket;
    }

    void Refill()
    {
        const auto now = Clock::now();
        const auto refill =
            duration_cast<microseconds>(now - refilled) * limits.budget.count() / 1'000'000;
        if (refill < microseconds(1))
            return;
        left = std::min(limits.budget, left + refill);
        refilled = now;
    }

    void Spend(Clock::duration time)
    {
        const auto cost = duration_cast<microseconds>(time) - limits.free;
        left -= std::max(cost, microseconds(0));
    }

    const LookUpLimits& limits;
    microseconds left; ///< of the budget; below 0 after a long look-up
    Clock::time_point refilled = Clock::now();
    std::shared_ptr<Ticket> latest;
    WorkerThread thread; // last: its jobs use the tickets
};

LookUps::LookUps(LookUpLimits limits)
    : limits(limits)
{}

LookUps::~LookUps() = default;

std::shared_ptr<LookUps::Ticket> LookUps::Begin(const Lane& lane, Work work)
{
    LaneThread* thread = Find(lane);
    return thread == nullptr || thread->IsRefusing() ? nullptr : thread->Begin(std::move(work));
}

bool LookUps::Wait(const std::shared_ptr<Ticket>& ticket, Patience patience)
{
    return ticket->lane.Wait(*ticket, patience);
}

bool LookUps::Run(const Lane& lane, Work work)
{
    const auto ticket = Begin(lane, std::move(work));
    return ticket != nullptr && Wait(ticket);
}

bool LookUps::IsOver(const Ticket& ticket)
{
    const auto state = ticket.GetState();
    return state == Ticket::State::Done || state == Ticket::State::GivenUp;
}

bool LookUps::WaitIdle(std::chrono::milliseconds limit)
{
    const auto end = Clock::now() + limit;
    bool areIdle = true;
    for (const auto& [lane, thread] : lanes) {
        const auto left = duration_cast<std::chrono::milliseconds>(end - Clock::now());
        if (thread->WaitIdle(std::max(left, std::chrono::milliseconds(0))))
            continue;
        areIdle = false;
        Log(Core::LogLevel::Warning, "Host",
            fmt::format("A look-up of provided nodes (lane {}) has not ended after {} ms",
                        lane.second, limit.count()));
    }
    return areIdle;
}

LookUps::LaneThread* LookUps::Find(const Lane& lane)
{
    const Lane shared{lane.first, lane.second % mostLanes};
    const auto found = lanes.find(shared);
    if (found != lanes.end())
        return found->second.get();
    try {
        return lanes.emplace(shared, std::make_unique<LaneThread>(limits)).first->second.get();
    } catch (const std::system_error& error) {
        Log(Core::LogLevel::Error, "Host",
            fmt::format("Cannot look up provided nodes: {}", error.what()));
        return nullptr;
    }
}

} // namespace Host
