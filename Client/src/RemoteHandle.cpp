#include "RemoteHandle.h"

#include <vector>

namespace Client {

RemoteHandle::~RemoteHandle()
{
    table->Remove(number);
}

std::shared_ptr<RemoteHandle> HandleTable::Add(std::uint32_t number, std::shared_ptr<Waiter> waiter)
{
    auto handle = std::make_shared<RemoteHandle>(shared_from_this(), number, std::move(waiter));
    const Support::Lock lock(mutex);
    handles.insert_or_assign(number, handle);
    if (const auto found = early.extract(number))
        handle->Acknowledge(found.mapped());
    return handle;
}

void HandleTable::Remove(std::uint32_t number) noexcept
{
    const Support::Lock lock(mutex);
    // Unless the number has been given out again.
    const auto found = handles.find(number);
    if (found != handles.end() && found->second.expired())
        handles.erase(found);
}

void HandleTable::Acknowledge(std::uint32_t number, std::uint32_t result)
{
    std::shared_ptr<RemoteHandle> handle; // released after the lock
    const Support::Lock lock(mutex);
    const auto found = handles.find(number);
    if (found == handles.end()) {
        // Of a handle that nobody waits for any more, unless one is being opened. Failures stay.
        if (opening > 0)
            if (auto& kept = early[number]; kept == 0)
                kept = result;
    } else if ((handle = found->second.lock()))
        handle->Acknowledge(result);
}

void HandleTable::Lose()
{
    std::vector<std::shared_ptr<RemoteHandle>> open; // released after the lock
    const Support::Lock lock(mutex);
    opening = 0; // none of them will be answered
    early.clear();
    for (const auto& [number, handle] : handles)
        if (auto shared = handle.lock()) {
            shared->Lose();
            open.push_back(std::move(shared));
        }
}

void HandleTable::BeginOpening()
{
    const Support::Lock lock(mutex);
    ++opening;
}

void HandleTable::EndOpening()
{
    const Support::Lock lock(mutex);
    if (opening > 0 && --opening == 0)
        early.clear();
}

} // namespace Client
