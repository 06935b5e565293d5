#pragma once

#include "Core/Export.h"

#include <functional>
#include <utility>

namespace Core {

/// Keeps the notifications of one affinity switched off. Its destructor runs the callable that
/// switches them on again, if the guard holds one.
class CORE_API DispatchGuard
{
public:
    DispatchGuard() noexcept = default;
    explicit DispatchGuard(std::function<void()> onLeave) noexcept
        : onLeave(std::move(onLeave))
    {}
    DispatchGuard(DispatchGuard&& other) noexcept
        : onLeave(std::exchange(other.onLeave, nullptr))
    {}
    DispatchGuard(const DispatchGuard&) = delete;
    DispatchGuard& operator=(const DispatchGuard&) = delete;
    DispatchGuard& operator=(DispatchGuard&&) = delete;
    ~DispatchGuard()
    {
        if (IsArmed())
            onLeave();
    }

    [[nodiscard]] bool IsArmed() const noexcept { return static_cast<bool>(onLeave); }

private:
    std::function<void()> onLeave; // must not throw
};

/// Delivers notifications to observers. An affinity names the observers of one behaviour, so that
/// the dispatcher can silence all of them together; 0 is the affinity of no behaviour.
class CORE_API Dispatcher
{
public:
    Dispatcher() = default;
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;
    virtual ~Dispatcher();

    /// Silences an affinity: until the guard is destroyed no notification of that affinity starts.
    /// Waits for those that run on other threads. Called from inside such a notification it does
    /// not wait for that one, nor for one that itself waits for this thread in the same way. Any
    /// thread.
    [[nodiscard]] virtual DispatchGuard TerminateDispatchOnStop(unsigned int affinityId) = 0;
};

} // namespace Core
