#pragma once

#include "Core/Export.h"

#include <functional>
#include <utility>

namespace Core {

/// Keeps notifications of one affinity switched off; leaving its scope runs the callable that
/// switches them on again, if the guard is armed and holds one.
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

/// Delivers notifications to observers. An affinity names the observers that belong to one
/// behaviour, so that all of them can be silenced together; 0 belongs to nobody.
class CORE_API Dispatcher
{
public:
    Dispatcher() = default;
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;
    virtual ~Dispatcher();

    /// Once it has returned, and until the guard is gone, no notification of that affinity starts;
    /// those that ran on other threads have ended. Called from inside such a notification it does
    /// not wait for that one, nor for one that is itself waiting for this thread in the same way.
    /// Any thread.
    [[nodiscard]] virtual DispatchGuard TerminateDispatchOnStop(unsigned int affinityId) = 0;
};

} // namespace Core
