#pragma once

#include <open62541/plugin/eventloop.h>

namespace Transport {

/// The callbacks that the library wants to have called in the next turn of the loop, in order. The
/// library owns their memory. Not synchronised: the loop's lock guards it.
class DelayedCallbacks
{
public:
    void Add(UA_DelayedCallback& callback) noexcept;
    /// One that is not there is ignored.
    void Remove(const UA_DelayedCallback& callback) noexcept;

    /// Returns true if none waits for the next turn.
    [[nodiscard]] bool IsEmpty() const noexcept { return waiting == nullptr; }

    /// Begins a turn: `TakeNext` returns those that wait now. Returns true if there are any.
    bool BeginTurn() noexcept;
    /// Returns null at the end of the turn. Calling what it returns may free it, or remove others.
    [[nodiscard]] UA_DelayedCallback* TakeNext() noexcept;

private:
    UA_DelayedCallback* waiting{}; // for the next turn
    UA_DelayedCallback* running{}; // what is left of this one
};

} // namespace Transport
