#pragma once

#include "Endpoint/WorkerThread.h"
#include "Support/Mutex.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace Host {

/// The bounds of the waiting for look-ups.
struct LookUpLimits
{
    /// Without a sign of progress for this long, a look-up is given up. A disk that works answers
    /// faster, and a client hardly notices one such stop of the host.
    std::chrono::microseconds silence{30'000};
    /// The longest wait for a look-up that shows progress: the entries of a very large directory.
    std::chrono::microseconds longest{1'000'000};
    /// The waiting that each lane may cause in a second: a tenth of the host's time. A disk that is
    /// slow but answers never reaches `silence`.
    std::chrono::microseconds budget{100'000};
    /// The part of each look-up that costs nothing: answers from the system's caches take less, so
    /// that a disk that works may be asked as often as clients like.
    std::chrono::microseconds free{100};
};

/// Runs look-ups that can take their time, or never end, on threads of their own, while the loop's
/// thread waits for them: for a while. The look-ups of a lane run one after another, on the lane's
/// thread, which starts with the first one.
///
/// A look-up that was given up runs on, so it must own all that it touches. Until it ends or shows
/// progress, its lane refuses others at once. Loop thread.
class LookUps
{
public:
    using Microseconds = std::chrono::microseconds;
    using Clock = std::chrono::steady_clock;

    /// A lane: a provider's number, and one of its lanes.
    using Lane = std::pair<std::size_t, unsigned int>;

    /// Shows that a look-up goes on. Called by the look-up, on the lane's thread.
    using Sign = std::function<void()>;
    /// Must not throw.
    using Work = std::function<void(const Sign& sign)>;

    enum class Patience
    {
        Ordinary,
        /// There is a stale answer already: waits only as long as half of the budget is left for
        /// those who have none.
        Short,
    };

    /// A look-up on its way or done.
    class Ticket;

    explicit LookUps(LookUpLimits limits = {});
    LookUps(const LookUps&) = delete;
    LookUps& operator=(const LookUps&) = delete;
    /// Waits for the look-ups that run.
    ~LookUps();

    /// Begins a look-up. Returns null if the lane refuses it: it is stuck, has used up its budget,
    /// or there are no more threads.
    [[nodiscard]] std::shared_ptr<Ticket> Begin(const Lane& lane, Work work);

    /// Returns true once the look-up is done, false if it is given up. One that has not begun by
    /// then never does. May be called again for one that has.
    [[nodiscard]] bool Wait(const std::shared_ptr<Ticket>& ticket,
                            Patience patience = Patience::Ordinary);

    /// Both of them. What `work` has written may be used only if this returns true.
    [[nodiscard]] bool Run(const Lane& lane, Work work);

    /// True for a look-up that is done or was given up before it began. Its results may be used if
    /// it has begun.
    [[nodiscard]] static bool IsOver(const Ticket& ticket);

    /// Returns true once nothing runs, and logs the lanes that are still at work after the limit.
    [[nodiscard]] bool WaitIdle(std::chrono::milliseconds limit);

private:
    class LaneThread;

    [[nodiscard]] LaneThread* Find(const Lane& lane);

    const LookUpLimits limits;
    std::map<Lane, std::unique_ptr<LaneThread>> lanes;
};

} // namespace Host
