#include "EventListener.h"

namespace Client {

void EventListeners::Add(EventListener& listener, const std::string& session)
{
    members.push_back({&listener, session});
}

void EventListeners::Remove(const EventListener& listener) noexcept
{
    std::erase_if(members, [&](const Member& member) { return member.listener == &listener; });
}

/// The connection may be lost again before all have heard of it. So each one's session is kept: a
/// listener that has not heard of a new session must not take it for its own the next time.
void EventListeners::TellConnected(const std::string& session)
{
    try {
        for (auto& member : members) {
            member.listener->OnConnected(member.session == session);
            member.session = session;
        }
    } catch (...) {
        TellLost();
        throw;
    }
}

void EventListeners::TellLost()
{
    for (const auto& member : members)
        member.listener->OnLost();
}

void EventListeners::TellDead()
{
    for (const auto& member : members)
        member.listener->OnDead();
}

} // namespace Client
