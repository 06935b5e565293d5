#pragma once

#include "Core/Embedding/Runtime.h"
#include "Core/NamespaceMap.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace FileSystemTests {

/// A limit against hanging: no passing test waits that long.
inline constexpr std::chrono::seconds hangLimit{60};

/// Hears and keeps the events of one object. Any thread.
class EventRecorder
{
public:
    using EventPointer = std::shared_ptr<const Core::Embedding::Event>;

    EventRecorder(Core::Embedding::Runtime& runtime, const Core::NodeId& object)
        : subscription(runtime.Subscribe(object, [this](const EventPointer& event) { Add(event); }))
    {}

    /// Waits for the next event not yet taken; null when none comes.
    [[nodiscard]] EventPointer Take()
    {
        std::unique_lock lock(mutex);
        if (!changed.wait_for(lock, hangLimit, [this] { return taken < events.size(); }))
            return nullptr;
        return events[taken++];
    }

    /// Returns the events not yet taken, without waiting.
    [[nodiscard]] std::vector<EventPointer> TakeAll()
    {
        const std::lock_guard lock(mutex);
        std::vector<EventPointer> result(events.begin() + static_cast<std::ptrdiff_t>(taken),
                                         events.end());
        taken = events.size();
        return result;
    }

private:
    void Add(const EventPointer& event)
    {
        {
            const std::lock_guard lock(mutex);
            events.push_back(event);
        }
        changed.notify_all();
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<EventPointer> events; // guarded by mutex
    std::size_t taken = 0;            // guarded by mutex
    Core::Embedding::EventSubscription
        subscription; // last: ends before the members that its callback uses
};

/// Returns the number of an event's type in the module's namespace.
inline unsigned int TypeNumber(const Core::Embedding::Event& event)
{
    const unsigned int* number = event.type->GetNodeId().GetNumeric();
    return number == nullptr ? 0 : *number;
}

inline constexpr unsigned int ackEvent = 54;
inline constexpr unsigned int existsResultEvent = 64;
inline constexpr unsigned int deleteResultEvent = 66;
inline constexpr unsigned int createDirectoryResultEvent = 67;
inline constexpr unsigned int listResultEvent = 68;

/// Returns a field that the event's own type adds.
inline const Core::Value& OwnField(const Core::Embedding::Event& event, const char* name)
{
    return event.GetField(Core::QualifiedName(event.type->GetNodeId().GetNamespaceIndex(), name));
}

} // namespace FileSystemTests
