#include "Transport/Opening/OpenedConnections.h"

#include <cstdint>
#include <string>
#include <utility>

namespace Transport {

OpenedConnections::OpenedConnections(Loop& loop, Resolver::Function lookUp)
    : ConnectionManager(loop)
    , shares(std::move(lookUp))
{}

void OpenedConnections::Flush()
{
    const LoopLock lock(GetMutex());
    for (const auto& [id, connection] : connections)
        connection->Flush();
}

std::size_t OpenedConnections::GetQueued() const
{
    const LoopLock lock(GetMutex());
    std::size_t queued = 0;
    for (const auto& [id, connection] : connections)
        queued += connection->GetQueued();
    return queued;
}

void OpenedConnections::Break()
{
    const LoopLock lock(GetMutex());
    for (const auto& [id, connection] : connections)
        connection->Close(Connection::Farewell::Drop);
}

UA_StatusCode OpenedConnections::Open(const UA_KeyValueMap& parameters, const Channel& channel)
{
    const auto* const listen = static_cast<const UA_Boolean*>(
        UA_KeyValueMap_getScalar(&parameters, {0, Borrow("listen")}, &UA_TYPES[UA_TYPES_BOOLEAN]));
    if (listen != nullptr && *listen)
        return UA_STATUSCODE_BADNOTSUPPORTED;
    const auto* const port = static_cast<const std::uint16_t*>(
        UA_KeyValueMap_getScalar(&parameters, {0, Borrow("port")}, &UA_TYPES[UA_TYPES_UINT16]));
    const auto* const address = static_cast<const UA_String*>(
        UA_KeyValueMap_getScalar(&parameters, {0, Borrow("address")}, &UA_TYPES[UA_TYPES_STRING]));
    if (port == nullptr || address == nullptr)
        return UA_STATUSCODE_BADINVALIDARGUMENT;
    auto opened = channel;
    opened.id = MakeId();
    const auto connection = std::make_shared<OpenedConnection>(opened, GetLoop(), *this, shares);
    connections.emplace(connection->id, connection);
    try {
        connection->Open({reinterpret_cast<const char*>(address->data), address->length}, *port);
    } catch (...) {
        connections.erase(opened.id);
        throw;
    }
    return UA_STATUSCODE_GOOD;
}

UA_StatusCode OpenedConnections::Send(ConnectionId id, UA_ByteString& bytes)
{
    OutputBuffer buffer(bytes);
    const auto found = connections.find(id);
    return found == connections.end() ? UA_STATUSCODE_BADCONNECTIONCLOSED
                                      : found->second->Send(std::move(buffer));
}

bool OpenedConnections::Close(ConnectionId id)
{
    const auto found = connections.find(id);
    return found != connections.end() && found->second->Close();
}

UA_StatusCode OpenedConnections::Allocate(ConnectionId /*id*/, UA_ByteString& bytes,
                                          std::size_t size)
{
    const LoopLock lock(GetMutex());
    bytes = {size, shares.pool.Allocate(size).release()};
    return bytes.data == nullptr ? UA_STATUSCODE_BADOUTOFMEMORY : UA_STATUSCODE_GOOD;
}

void OpenedConnections::Free(UA_ByteString& bytes)
{
    const LoopLock lock(GetMutex());
    Memory memory(bytes.data);
    UA_ByteString_init(&bytes);
    if (memory)
        shares.pool.Recycle(std::move(memory));
}

void OpenedConnections::CloseAll()
{
    for (const auto& [id, connection] : connections)
        connection->Close();
}

void OpenedConnections::Forget(ConnectionId id)
{
    connections.erase(id);
    CheckStopped();
}

} // namespace Transport
