#pragma once

#include "Call.h"
#include "Engine.h"

#include <Support/Mutex.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Client {

/// A private file system on the server, and the calls that wait for its events. Events come in the
/// order of the requests, so the calls are kept in that order.
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

    // For the engine's thread.

    void OnConnected(bool isSameSession) override;
    void OnLost() override;
    void OnDead() override;
    void OnEvent(std::size_t count, UA_Variant* fields) override;

    [[nodiscard]] const UA_NodeId& GetId() const noexcept { return id; }
    /// False when the call belongs to an epoch that is over.
    bool TakeForSending(const CallPointer& call);
    void TakeAnswer(const CallPointer& call, UA_StatusCode status, UA_Variant* output);

private:
    struct Waiting
    {
        std::uint64_t number; ///< of the request
        CallPointer call;
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
    static CallPointer TakeFirst(Queue& queue);
    static void FinishEvent(Call& call) noexcept;
    void TakeOutput(Call& call, UA_Variant& output);
    [[nodiscard]] Queue* FindQueue(Events events) noexcept;

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

    mutable Support::Mutex mutex;
    bool isReady GUARDED_BY(mutex) = false;
    bool isDead GUARDED_BY(mutex) = false;
    State state GUARDED_BY(mutex);
    std::set<Waiter*> waiters GUARDED_BY(mutex);
};

} // namespace Client
