#pragma once

#include "Transport/ConnectionManager.h"
#include "Transport/Opening/OpenedConnection.h"

#include <cstddef>
#include <memory>
#include <unordered_map>

namespace Transport {

/// The connections that a client opens. Listening is answered with Bad_NotSupported. Messages
/// gather until `Flush`, which belongs before the loop waits.
class OpenedConnections final : public ConnectionManager
{
public:
    /// Registers itself with the loop, which must outlive it. `lookUp` finds the addresses of a
    /// name, on a thread of its own.
    explicit OpenedConnections(Loop& loop, Resolver::Function lookUp = &LookUp);

    /// Sends what has gathered. On the loop's thread.
    void Flush();

    /// Returns how many bytes wait to be sent. Any thread.
    [[nodiscard]] std::size_t GetQueued() const;

    /// Closes what is open, as if the servers had: what waits to be sent is dropped, and so are
    /// lookups of names.
    void Break();

private:
    UA_StatusCode Open(const UA_KeyValueMap& parameters, const Channel& channel) override
        REQUIRES(loopLock);
    UA_StatusCode Send(ConnectionId id, UA_ByteString& bytes) override REQUIRES(loopLock);
    bool Close(ConnectionId id) override REQUIRES(loopLock);
    UA_StatusCode Allocate(ConnectionId id, UA_ByteString& bytes, std::size_t size) override;
    void Free(UA_ByteString& bytes) override;
    void CloseAll() override REQUIRES(loopLock);
    [[nodiscard]] bool IsEmpty() const override REQUIRES(loopLock) { return connections.empty(); }
    void Forget(ConnectionId id) override REQUIRES(loopLock);

    OpenedShares shares;
    std::unordered_map<ConnectionId, std::shared_ptr<OpenedConnection>>
        connections GUARDED_BY(loopLock);
};

} // namespace Transport
