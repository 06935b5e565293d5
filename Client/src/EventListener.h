#pragma once

#include <open62541/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Client {

/// Hears the events of one node. Its operations run on the engine's thread.
class EventListener
{
public:
    EventListener() = default;
    EventListener(const EventListener&) = delete;
    EventListener& operator=(const EventListener&) = delete;
    virtual ~EventListener() = default;

    /// The connection is back. Throws what the server refuses.
    virtual void OnConnected(bool isSameSession) = 0;
    /// Calls that are not answered will not be.
    virtual void OnLost() = 0;
    /// The connection will not come back, or the listener leaves: calls that wait and what they
    /// belong to would keep each other.
    virtual void OnDead() = 0;
    virtual void OnEvent(std::size_t count, UA_Variant* fields) = 0;
};

/// The listeners of one connection, and the session that each has heard of. Of the engine's thread.
class EventListeners
{
public:
    /// `session`: the token of the session that the listener has heard of.
    void Add(EventListener& listener, const std::string& session);
    void Remove(const EventListener& listener) noexcept;

    /// Tells all that there is a connection. When one of them throws, all are told that it is lost.
    void TellConnected(const std::string& session);
    void TellLost();
    void TellDead();

private:
    struct Member
    {
        EventListener* listener;
        std::string session;
    };
    std::vector<Member> members;
};

} // namespace Client
