#pragma once

#include "Engine.h"
#include "Ticket.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Client {

// Published numbers.
constexpr UA_UInt32 fileSystemsFolder = 1;
constexpr UA_UInt32 createFileSystemMethod = 2;
constexpr UA_UInt32 ackEventType = 54;
constexpr UA_UInt32 existsEventType = 64;
constexpr UA_UInt32 deleteEventType = 66;
constexpr UA_UInt32 createDirectoryEventType = 67;
constexpr UA_UInt32 listEventType = 68;

// The fields of events in the order in which they are subscribed to.
constexpr std::size_t eventFields = 7;
constexpr std::size_t typeField = 0;
constexpr std::size_t timeField = 1;
constexpr std::size_t handleField = 2;
constexpr std::size_t resultField = 3;
constexpr std::size_t existField = 4;
constexpr std::size_t contentField = 5;
constexpr std::size_t limitField = 6;

/// An entry of a listing as the library decodes it.
struct ListItem
{
    UA_String path;
    UA_DateTime dateTime;
    UA_Boolean isDirectory;
};

/// The entries of a list event's field. Throws std::bad_alloc.
[[nodiscard]] std::vector<ListEntry> TakeEntries(const UA_Variant& content);
/// Whether the event is of that type of the file system's namespace; the number of the type, 0 for
/// those of other namespaces.
[[nodiscard]] UA_UInt32 GetEventType(const UA_Variant& type, UA_UInt16 files);
[[nodiscard]] bool IsOverflow(const UA_Variant& type);
[[nodiscard]] std::optional<FileTime> ToFileTime(UA_DateTime time);
[[nodiscard]] UA_DateTime ToUaTime(FileTime time);

template <typename T>
T GetScalar(const UA_Variant& value, std::size_t type, T otherwise)
{
    return UA_Variant_hasScalarType(&value, &UA_TYPES[type]) ? *static_cast<const T*>(value.data)
                                                             : otherwise;
}

/// A private file system on the server, and which of its events answers what. Events come in the
/// order of the requests; so who waits is kept in that order.
///
/// After a lost connection a new epoch begins: calls of the one before are lost. When the session
/// is the same, so are the node and its handles; the new epoch begins behind a mark, a Close of a
/// handle that nobody has, whose acknowledgement says that everything queued before has run.
class RemoteNode final : public EventListener, public std::enable_shared_from_this<RemoteNode>
{
public:
    explicit RemoteNode(Engine& engine);
    ~RemoteNode() override;

    /// Makes the node. Any thread but the engine's.
    void Open();
    /// Any thread but the engine's.
    void Close() noexcept;

    struct State
    {
        std::uint64_t epoch = 0;
        std::uint64_t incarnation = 0; ///< changes when handles are gone
    };
    /// Waits until the connection is there and returns the state. Throws ConnectionLostException,
    /// CancelledException. Any thread.
    State Await(Waiter& waiter, const Cancellation* cancellation);

    /// Returns when an answer or an event came last. Any thread.
    [[nodiscard]] std::chrono::steady_clock::time_point GetLastLife() const noexcept
    {
        return std::chrono::steady_clock::time_point(std::chrono::steady_clock::duration(lastLife));
    }

    [[nodiscard]] Engine& GetEngine() const noexcept { return engine; }
    [[nodiscard]] const std::shared_ptr<HandleTable>& GetHandles() const noexcept
    {
        return handles;
    }

    // For the engine's thread.

    void OnConnected(bool isSameSession) override;
    void OnLost() override;
    void OnDead() override;
    void OnEvent(std::size_t count, UA_Variant* fields) override;

    [[nodiscard]] const UA_NodeId& GetId() const noexcept { return id; }
    /// False when the call belongs to an epoch that is over.
    bool TakeForSending(const TicketPointer& ticket);
    void TakeAnswer(const TicketPointer& ticket, UA_StatusCode status, UA_Variant* output);

    /// Nothing is known of what became of the call.
    static void Lose(Ticket& ticket) noexcept;

private:
    struct Waiting
    {
        std::uint64_t number; ///< of the request
        TicketPointer ticket;
    };
    using Queue = std::deque<Waiting>;

    void ShowLife() noexcept;
    void Make();
    void SendMark();
    void BeginEpoch();
    void LoseWaiting();
    void TakeAcknowledgement(std::uint32_t handle, std::uint32_t result);
    void TakeExists(bool exists);
    void TakeList(const UA_Variant* fields);
    static TicketPointer TakeFirst(Queue& queue);
    static void FinishEvent(Ticket& ticket) noexcept;
    void TakeOutput(Ticket& ticket, UA_Variant& output);
    [[nodiscard]] Queue* FindQueue(Method method) noexcept;

    Engine& engine;
    const std::shared_ptr<HandleTable> handles = std::make_shared<HandleTable>();
    UA_NodeId id = UA_NODEID_NULL;
    std::uint64_t sent = 0; // counts requests
    Queue existsQueue;
    Queue listQueue;
    Queue deleteQueue;
    Queue createQueue;
    std::optional<std::uint32_t> mark; // the handle that is closed to know that all before is over

    std::atomic<std::chrono::steady_clock::rep> lastLife{0};

    mutable std::mutex mutex; // guards what follows
    bool isReady = false;
    bool isDead = false;
    State state;
    std::set<Waiter*> waiters;
};

} // namespace Client
