#include "Transport/DelayedCallbacks.h"

#include <utility>

namespace Transport {

void DelayedCallbacks::Add(UA_DelayedCallback& callback) noexcept
{
    auto** link = &waiting;
    while (*link != nullptr)
        link = &(*link)->next;
    *link = &callback;
    callback.next = nullptr;
}

void DelayedCallbacks::Remove(const UA_DelayedCallback& callback) noexcept
{
    for (auto** link : {&waiting, &running}) {
        while (*link != nullptr && *link != &callback)
            link = &(*link)->next;
        if (*link != nullptr) {
            *link = callback.next;
            return;
        }
    }
}

bool DelayedCallbacks::BeginTurn() noexcept
{
    running = std::exchange(waiting, nullptr);
    return running != nullptr;
}

UA_DelayedCallback* DelayedCallbacks::TakeNext() noexcept
{
    return running == nullptr ? nullptr : std::exchange(running, running->next);
}

} // namespace Transport
