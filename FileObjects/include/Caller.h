#pragma once

#include "Core/Node.h"
#include "Core/NodeId.h"
#include "Core/Sessions.h"

#include <atomic>
#include <memory>

namespace FileObjects {

/// The session that a call is made for.
class Caller
{
public:
    /// Throws Core::StatusException without a session. `isStopping` outlives the caller.
    Caller(std::shared_ptr<Core::SessionHandler> session, const std::atomic<bool>& isStopping);

    [[nodiscard]] const Core::NodeId& GetSession() const noexcept { return id; }

    /// Throws Core::StatusException once nobody waits for the call any more. Work that can take
    /// long asks again and again.
    void CheckGoesOn() const;

private:
    std::shared_ptr<Core::SessionHandler> session;
    Core::NodeId id;
    const std::atomic<bool>& isStopping;
};

} // namespace FileObjects
