#include "Fleet/Fleet.h"

#include "Fleet/FleetReport.h"
#include "TidyEnd.h"

#include <algorithm>
#include <optional>
#include <thread>
#include <utility>

namespace Cli {

namespace {

/// Hosts that are waiting, under way and ended. Any thread.
class HostQueue
{
public:
    explicit HostQueue(std::size_t count)
        : states(count)
    {
        ended.reserve(count); // `End` must not fail
    }

    /// Returns the number of the next host, for the calling thread; none when all have begun.
    std::optional<std::size_t> Begin() EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        if (next == states.size())
            return std::nullopt;
        states[next].isUnderWay = true;
        changed.NotifyOne();
        return next++;
    }

    void End(std::size_t number, HostResult result) EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        states[number].isUnderWay = false;
        states[number].result = std::move(result);
        ended.push_back(number);
        changed.NotifyOne();
    }

    /// Returns a host that ended, in the order of their ends, and its result; none when hosts have
    /// begun since the last call. REQUIRES: not all results were taken.
    std::optional<std::pair<std::size_t, HostResult>> Await() EXCLUDES(mutex)
    {
        Support::Lock lock(mutex);
        while (taken == ended.size() && shownBegun == next)
            changed.Wait(lock);
        shownBegun = next;
        if (taken == ended.size())
            return std::nullopt;
        const auto number = ended[taken++];
        return std::pair(number, std::move(states[number].result));
    }

    [[nodiscard]] std::vector<std::size_t> GetUnderWay() EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        std::vector<std::size_t> numbers;
        for (std::size_t number = 0; number < next; ++number)
            if (states[number].isUnderWay)
                numbers.push_back(number);
        return numbers;
    }

private:
    struct State
    {
        bool isUnderWay = false;
        HostResult result;
    };

    Support::Mutex mutex;
    Support::Condition changed;
    std::vector<State> states GUARDED_BY(mutex);
    std::size_t next GUARDED_BY(mutex) = 0;
    std::vector<std::size_t> ended GUARDED_BY(mutex);
    std::size_t taken GUARDED_BY(mutex) = 0;      // of those that ended
    std::size_t shownBegun GUARDED_BY(mutex) = 0; // as `Await` last saw it
};

/// One run on many hosts.
class Fleet
{
public:
    Fleet(const std::vector<NamedHost>& hosts, std::size_t atOnce, const SharedCommand& shared,
          Console& console)
        : hosts(hosts)
        , shared(shared)
        , report(shared.choice, console)
        , queue(hosts.size())
        , results(hosts.size())
    {
        const auto count = std::min(atOnce, hosts.size());
        threads.reserve(count);
        try {
            while (threads.size() < count)
                threads.emplace_back([this] { Work(); });
        } catch (const std::exception& error) {
            // The system gives no more threads, or no memory for one; those there are do it all.
            if (threads.empty())
                throw Client::OperationFailedException(std::string("cannot start a thread: ") +
                                                       error.what());
        }
    }
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;
    ~Fleet()
    {
        connections.End();
        for (auto& thread : threads)
            thread.join();
    }

    /// Any thread.
    void End() { connections.End(); }

    /// Returns the worst status. Throws BrokenPipeException, ClientException.
    ExitStatus Run()
    {
        for (std::size_t count = 0; count < hosts.size();) {
            if (auto one = queue.Await()) {
                report.Add(one->second);
                one->second.output.clear(); // may be large
                results[one->first] = std::move(one->second);
                ++count;
            }
            report.ShowUnderWay(count, hosts.size(), NameUnderWay());
        }
        report.Conclude(results);
        return FindWorst();
    }

private:
    void Work()
    {
        while (const auto number = queue.Begin()) {
            if (connections.GetCancellation().IsCancelled())
                queue.End(*number, MakeNotBegun(hosts[*number]));
            else
                queue.End(*number, RunOne(hosts[*number]));
        }
    }

    /// Runs the command on a host. An exception would end the whole program here.
    HostResult RunOne(const NamedHost& host)
    {
        try {
            return RunOnHost(host, shared, connections);
        } catch (const std::exception& error) {
            HostResult result;
            result.name = host.name;
            result.isBegun = true;
            result.reason = error.what();
            result.ending = {ExitStatus::Failed, false, result.reason};
            return result;
        }
    }

    static HostResult MakeNotBegun(const NamedHost& host)
    {
        HostResult result;
        result.name = host.name;
        return result;
    }

    std::vector<std::string> NameUnderWay()
    {
        std::vector<std::string> names;
        for (const auto number : queue.GetUnderWay())
            names.push_back(hosts[number].name);
        return names;
    }

    [[nodiscard]] ExitStatus FindWorst() const
    {
        auto worst = ExitStatus::Done;
        for (const auto& result : results)
            worst = std::max(worst, result.ending.status);
        return worst;
    }

    const std::vector<NamedHost>& hosts;
    const SharedCommand& shared;
    FleetReport report; // of the thread that calls Run, as `results`
    OpenConnections connections;
    HostQueue queue;
    std::vector<HostResult> results;
    std::vector<std::thread> threads; // last: they use all of the above
};

} // namespace

int RunOnManyHosts(const std::vector<NamedHost>& hosts, std::size_t atOnce,
                   const SharedCommand& shared, Console& console, const Interruption& interruption)
{
    try {
        Fleet fleet(hosts, atOnce, shared, console);
        const TidyEnd tidyEnd(interruption.GetCancellation(), console, [&] { fleet.End(); });
        const auto worst = fleet.Run();
        return interruption.GetCancellation().IsCancelled() ? 128 + Interruption::GetSignal()
                                                            : static_cast<int>(worst);
    } catch (const BrokenPipeException&) {
        return static_cast<int>(ExitStatus::BrokenPipe);
    }
}

} // namespace Cli
