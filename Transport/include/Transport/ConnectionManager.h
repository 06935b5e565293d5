#pragma once

#include "Transport/Asio.h"
#include "Transport/Channel.h"
#include "Transport/Loop.h"
#include "Transport/LoopMutex.h"

#include <open62541/plugin/eventloop.h>

namespace Transport {

class Connection;

/// The connections of a loop as the library knows them: an event source for TCP. The loop's lock
/// guards it; operations for any thread take it themselves, and so do those that the library calls.
class ConnectionManager
{
public:
    ConnectionManager(const ConnectionManager&) = delete;
    ConnectionManager& operator=(const ConnectionManager&) = delete;
    virtual ~ConnectionManager() = default;

    [[nodiscard]] UA_ConnectionManager& GetHandle() noexcept { return handle; }
    [[nodiscard]] const UA_Logger& GetLogger() const noexcept { return loop.GetLogger(); }
    [[nodiscard]] LoopMutex& GetMutex() const noexcept { return loop.GetMutex(); }

    /// Returns the connection whose message (or opening, or closing) is being handled; 0 outside of
    /// that. Any thread.
    [[nodiscard]] ConnectionId GetCurrent() const;

protected:
    /// Registers itself with the loop, which must outlive it.
    explicit ConnectionManager(Loop& loop);

    [[nodiscard]] Loop& GetLoop() const noexcept { return loop; }
    [[nodiscard]] ConnectionId MakeId() REQUIRES(loopLock) { return ++lastId; }
    [[nodiscard]] bool IsCurrent(ConnectionId id) const REQUIRES(loopLock) { return id == current; }

    /// Tells the library. The lock is not held while it does.
    void Notify(Channel& channel, UA_ConnectionState state, const UA_KeyValueMap& parameters,
                UA_ByteString message) REQUIRES(loopLock);

    /// Says that it has stopped if it is to stop and nothing is open any more. To be called
    /// whenever something has closed.
    void CheckStopped() REQUIRES(loopLock);

private:
    friend class Connection;

    struct Handle : UA_ConnectionManager
    {
        ConnectionManager* owner{};
    };

    // The library's requests. Exceptions that these throw are answered with a status code.
    virtual UA_StatusCode Open(const UA_KeyValueMap& parameters, const Channel& channel)
        REQUIRES(loopLock) = 0;
    /// Takes over the memory of the bytes in any case.
    virtual UA_StatusCode Send(ConnectionId id, UA_ByteString& bytes) REQUIRES(loopLock) = 0;
    /// Returns false if there is none, or it is closing already.
    virtual bool Close(ConnectionId id) REQUIRES(loopLock) = 0;
    virtual UA_StatusCode Allocate(ConnectionId id, UA_ByteString& bytes, std::size_t size) = 0;
    virtual void Free(UA_ByteString& bytes) = 0;

    virtual void CloseAll() REQUIRES(loopLock) = 0;
    /// Returns true if nothing is open.
    [[nodiscard]] virtual bool IsEmpty() const REQUIRES(loopLock) = 0;
    /// Removes a connection that has closed, and checks whether all have.
    virtual void Forget(ConnectionId id) REQUIRES(loopLock) = 0;

    static ConnectionManager& GetOwner(UA_ConnectionManager* manager);
    static ConnectionManager& GetOwner(UA_EventSource* source);
    void FillLifecycle();
    void FillConnections();
    void FillBuffers();
    UA_StatusCode Start();
    void Stop();
    void NotifyOfConnection(Connection& connection, UA_ConnectionState state,
                            const UA_KeyValueMap& parameters, UA_ByteString message)
        REQUIRES(loopLock);

    Loop& loop;
    Handle handle{}; // the lock guards its state
    ConnectionId current GUARDED_BY(loopLock){};
    ConnectionId lastId GUARDED_BY(loopLock){};
};

} // namespace Transport
