#include "Transport/ConnectionManager.h"

#include "Transport/Connection.h"

#include <open62541/plugin/log.h>

#include <exception>
#include <new>
#include <utility>

namespace Transport {

ConnectionManager::ConnectionManager(Loop& loop)
    : loop(loop)
{
    handle.owner = this;
    handle.protocol = Borrow("tcp");
    FillLifecycle();
    FillConnections();
    FillBuffers();
    loop.AddOwnSource(handle.eventSource);
}

ConnectionManager& ConnectionManager::GetOwner(UA_ConnectionManager* manager)
{
    // The library's type is not polymorphic, and every manager made here is of this class.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast)
    return *static_cast<Handle*>(manager)->owner;
}

ConnectionManager& ConnectionManager::GetOwner(UA_EventSource* source)
{
    return GetOwner(reinterpret_cast<UA_ConnectionManager*>(source)); // its first member
}

ConnectionId ConnectionManager::GetCurrent() const
{
    const LoopLock lock(GetMutex());
    return current;
}

// The operations that the library calls

/// Calls what may fail for the library, which knows no exceptions.
template <typename Function>
static UA_StatusCode Answer(const UA_Logger& logger, Function function)
{
    try {
        return function();
    } catch (const std::bad_alloc&) {
        return UA_STATUSCODE_BADOUTOFMEMORY;
    } catch (const std::exception& failure) {
        UA_LOG_ERROR(&logger, UA_LOGCATEGORY_NETWORK, "TCP: %s", failure.what());
        return UA_STATUSCODE_BADINTERNALERROR;
    }
}

void ConnectionManager::FillLifecycle()
{
    auto& source = handle.eventSource;
    source.eventSourceType = UA_EVENTSOURCETYPE_CONNECTIONMANAGER;
    source.name = Borrow("tcp");
    source.state = UA_EVENTSOURCESTATE_FRESH;
    source.start = [](UA_EventSource* self) {
        return GetOwner(self).Start();
    };
    source.stop = [](UA_EventSource* self) {
        GetOwner(self).Stop();
    };
    source.free = [](UA_EventSource*) -> UA_StatusCode {
        return UA_STATUSCODE_GOOD;
    };
}

void ConnectionManager::FillConnections()
{
    handle.openConnection = [](UA_ConnectionManager* self, const UA_KeyValueMap* parameters,
                               void* application, void* data,
                               UA_ConnectionManager_connectionCallback callback) {
        auto& owner = GetOwner(self);
        return Answer(owner.GetLogger(), [&]() -> UA_StatusCode {
            const LoopLock lock(owner.GetMutex());
            if (owner.handle.eventSource.state != UA_EVENTSOURCESTATE_STARTED)
                return UA_STATUSCODE_BADINTERNALERROR;
            if (callback == nullptr)
                return UA_STATUSCODE_BADINVALIDARGUMENT;
            return owner.Open(*parameters, {0, callback, application, data});
        });
    };
    handle.sendWithConnection = [](UA_ConnectionManager* self, uintptr_t id, const UA_KeyValueMap*,
                                   UA_ByteString* bytes) {
        auto& owner = GetOwner(self);
        return Answer(owner.GetLogger(), [&] {
            const LoopLock lock(owner.GetMutex());
            return owner.Send(id, *bytes);
        });
    };
    handle.closeConnection = [](UA_ConnectionManager* self, uintptr_t id) {
        auto& owner = GetOwner(self);
        return Answer(owner.GetLogger(), [&]() -> UA_StatusCode {
            const LoopLock lock(owner.GetMutex());
            return owner.Close(id) ? UA_STATUSCODE_GOOD : UA_STATUSCODE_BADNOTFOUND;
        });
    };
}

void ConnectionManager::FillBuffers()
{
    handle.allocNetworkBuffer = [](UA_ConnectionManager* self, uintptr_t id, UA_ByteString* bytes,
                                   size_t size) {
        return GetOwner(self).Allocate(id, *bytes, size);
    };
    handle.freeNetworkBuffer = [](UA_ConnectionManager* self, uintptr_t, UA_ByteString* bytes) {
        auto& owner = GetOwner(self);
        Answer(owner.GetLogger(), [&]() -> UA_StatusCode {
            owner.Free(*bytes);
            return UA_STATUSCODE_GOOD;
        });
    };
}

// Lifecycle

UA_StatusCode ConnectionManager::Start()
{
    const LoopLock lock(GetMutex());
    if (handle.eventSource.state != UA_EVENTSOURCESTATE_STOPPED)
        return UA_STATUSCODE_BADINTERNALERROR;
    handle.eventSource.state = UA_EVENTSOURCESTATE_STARTED;
    return UA_STATUSCODE_GOOD;
}

void ConnectionManager::Stop()
{
    const LoopLock lock(GetMutex());
    if (handle.eventSource.state != UA_EVENTSOURCESTATE_STARTED)
        return;
    handle.eventSource.state = UA_EVENTSOURCESTATE_STOPPING;
    CloseAll();
    CheckStopped();
}

void ConnectionManager::CheckStopped()
{
    if (handle.eventSource.state == UA_EVENTSOURCESTATE_STOPPING && IsEmpty())
        handle.eventSource.state = UA_EVENTSOURCESTATE_STOPPED;
}

// Telling the library

void ConnectionManager::NotifyOfConnection(Connection& connection, UA_ConnectionState state,
                                           const UA_KeyValueMap& parameters, UA_ByteString message)
{
    const auto outer = std::exchange(current, connection.id); // it may open another one
    Notify(connection, state, parameters, message);
    current = outer;
}

void ConnectionManager::Notify(Channel& channel, UA_ConnectionState state,
                               const UA_KeyValueMap& parameters, UA_ByteString message)
{
    auto& mutex = GetMutex();
    mutex.unlock();
    channel.callback(&handle, channel.id, channel.application, &channel.context, state, &parameters,
                     message);
    mutex.lock();
}

} // namespace Transport
