#include "Operations.h"

#include "Core/DateTime.h"
#include "Core/Guid.h"

#include <deque>
#include <fstream>
#include <functional>
#include <sys/stat.h>
#include <thread>

namespace Bench {

namespace {

constexpr std::size_t batch = 10'000;

/// The reference: a queue of paths, and a thread that tests each and passes on an event's values.
class ByHand
{
public:
    explicit ByHand(std::function<void(const Values&)> handOver)
        : handOver(std::move(handOver))
    {}
    ByHand(const ByHand&) = delete;
    ByHand& operator=(const ByHand&) = delete;
    ~ByHand()
    {
        {
            const std::scoped_lock lock(mutex);
            isEnding = true;
        }
        changed.notify_one();
        worker.join();
    }

    void Ask(const std::string& path)
    {
        {
            const std::scoped_lock lock(mutex);
            queue.push_back(path);
        }
        changed.notify_one();
    }

private:
    void Work()
    {
        std::string path;
        while (Take(path)) {
            struct stat status = {};
            Answer(::stat(path.c_str(), &status) == 0);
        }
    }

    bool Take(std::string& path)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return isEnding || !queue.empty(); });
        if (queue.empty())
            return false;
        path = std::move(queue.front());
        queue.pop_front();
        return true;
    }

    /// Returns all values that subscribers get: identifier, type, source and its name, two times,
    /// message, severity, and the answer.
    void Answer(bool exists)
    {
        const auto id = Core::Guid::Random().GetBytes();
        const auto now = Core::DateTime::Now();
        Values values;
        values.reserve(9);
        values.emplace_back(Bytes(id.begin(), id.end()), true);
        values.emplace_back(Core::NodeId(2, 64));
        values.emplace_back(source);
        values.emplace_back("Files");
        values.emplace_back(now);
        values.emplace_back(now);
        values.emplace_back("ExistsResultEventType");
        values.emplace_back(static_cast<unsigned short>(100));
        values.emplace_back(exists);
        handOver(values);
    }

    const std::function<void(const Values&)> handOver;
    const Core::NodeId source{1, Core::Guid::Random()};
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::string> queue; // guarded by mutex
    bool isEnding = false;         // guarded by mutex
    std::thread worker{[this] {
        Work();
    }};
};

} // namespace

Operations MakeExistsOperations(Host& host, const std::filesystem::path& folder)
{
    const auto path = (folder / "is there").string();
    std::ofstream(path) << "content";

    Operation exists{.name = "exists", .batch = batch, .run = {}};
    exists.run = [&host, inputs = Values{path}](std::size_t count) {
        host.GetEvents().Expect(count);
        for (std::size_t i = 0; i < count; ++i)
            host.Call("Exists", inputs);
        host.GetEvents().Wait();
    };

    const auto answers = std::make_shared<Arrivals>();
    const auto byHand = std::make_shared<ByHand>([answers](const Values&) { answers->Add(); });
    Operation reference{.name = "exists/reference", .batch = batch, .run = {}};
    reference.run = [path, answers, byHand](std::size_t count) {
        answers->Expect(count);
        for (std::size_t i = 0; i < count; ++i)
            byHand->Ask(path);
        answers->Wait();
    };
    return {exists, reference};
}

} // namespace Bench
