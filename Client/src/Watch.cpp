#include "Client/Watch.h"

#include "Engine.h"
#include "EventFields.h"
#include "ListItem.h"

#include <OpcUa/Ua.h>
#include <Support/Mutex.h>

#include <deque>
#include <utility>

namespace Client {

const char* GetName(EventKind kind) noexcept
{
    switch (kind) {
    case EventKind::Acknowledgement:
        return "AckEvent";
    case EventKind::ExistsResult:
        return "ExistsResultEvent";
    case EventKind::DeleteResult:
        return "DeleteResultEvent";
    case EventKind::CreateDirectoryResult:
        return "CreateDirectoryResultEvent";
    case EventKind::ListResult:
        return "ListResultEvent";
    case EventKind::Overflow:
        return "EventQueueOverflowEvent";
    }
    return "";
}

const char* DescribeResult(std::uint32_t result) noexcept
{
    switch (result) {
    case 0:
        return "done";
    case 1:
        return "the file could not be opened";
    case 2:
        return "not everything could be written; the server's disk may be full";
    case 3:
        return "the file could not be closed";
    case 4:
        return "the modification time could not be set";
    case 5:
        return "the permissions could not be set";
    default:
        return "a result that this program does not know";
    }
}

namespace {

std::chrono::system_clock::time_point ToTimePoint(UA_DateTime time)
{
    // 100 ns each
    const std::chrono::nanoseconds since((time - UA_DATETIME_UNIX_EPOCH) * 100);
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(since));
}

} // namespace

class Watch::Implementation final : public EventListener
{
public:
    Implementation(Engine& engine, const std::string& sharedNode)
        : engine(engine)
    {
        engine.Run([&] {
            const UA_NodeId node{engine.GetNamespaces().host,
                                 UA_NODEIDTYPE_STRING,
                                 {.string = OpcUa::ViewOf(sharedNode)}};
            try {
                engine.Subscribe(node, *this);
            } catch (const CallRefusedException&) {
                throw OperationFailedException("there is no shared file system '" + sharedNode +
                                               "'");
            }
            engine.Add(*this);
        });
    }

    ~Implementation() override { engine.Leave(*this); }

    Event Next(const Cancellation* cancellation)
    {
        waiter.Wait(
            [this] {
                const Support::Lock lock(mutex);
                return !events.empty() || isLost;
            },
            cancellation);
        const Support::Lock lock(mutex);
        if (events.empty())
            throw ConnectionLostException("the connection was lost: events may have been missed");
        Event event = std::move(events.front());
        events.pop_front();
        return event;
    }

    void OnConnected(bool /*isSameSession*/) override {}
    void OnLost() override { Lose(); }
    void OnDead() override { Lose(); }

    void OnEvent(std::size_t count, UA_Variant* fields) override
    {
        if (count != eventFields)
            return;
        Event event;
        event.time = ToTimePoint(GetScalar<UA_DateTime>(fields[timeField], UA_TYPES_DATETIME, 0));
        if (!Fill(event, fields))
            return;
        {
            const Support::Lock lock(mutex);
            events.push_back(std::move(event));
        }
        waiter.Notify();
    }

private:
    bool Fill(Event& event, const UA_Variant* fields) const
    {
        if (IsOverflow(fields[typeField])) {
            event.kind = EventKind::Overflow;
            return true;
        }
        switch (GetEventType(fields[typeField], engine.GetNamespaces().files)) {
        case ackEventType:
            event.kind = EventKind::Acknowledgement;
            event.handle = GetScalar<UA_UInt32>(fields[handleField], UA_TYPES_UINT32, 0);
            event.result = GetScalar<UA_UInt32>(fields[resultField], UA_TYPES_UINT32, 0);
            return true;
        case existsEventType:
            event.kind = EventKind::ExistsResult;
            event.exists = GetScalar<UA_Boolean>(fields[existField], UA_TYPES_BOOLEAN, false);
            return true;
        case deleteEventType:
            event.kind = EventKind::DeleteResult;
            return true;
        case createDirectoryEventType:
            event.kind = EventKind::CreateDirectoryResult;
            return true;
        case listEventType:
            event.kind = EventKind::ListResult;
            event.entries = TakeEntries(fields[contentField]);
            event.isLimitExceeded =
                GetScalar<UA_Boolean>(fields[limitField], UA_TYPES_BOOLEAN, false);
            return true;
        default:
            return false;
        }
    }

    void Lose()
    {
        {
            const Support::Lock lock(mutex);
            isLost = true;
        }
        waiter.Notify();
    }

    Engine& engine;
    Waiter waiter;
    Support::Mutex mutex;
    std::deque<Event> events GUARDED_BY(mutex);
    bool isLost GUARDED_BY(mutex) = false;
};

Watch::Watch(Connection& connection, const std::string& sharedNode)
    : implementation(std::make_unique<Implementation>(*connection.engine, sharedNode))
{}

Watch::~Watch() = default;

Event Watch::Next(const Cancellation* cancellation)
{
    return implementation->Next(cancellation);
}

} // namespace Client
