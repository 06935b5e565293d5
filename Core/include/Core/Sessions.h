#pragma once

#include "Core/Export.h"
#include "Core/Node.h"

#include <memory>

namespace Core {

/// One client's session.
class CORE_API SessionHandler
{
public:
    SessionHandler() = default;
    SessionHandler(const SessionHandler&) = delete;
    SessionHandler& operator=(const SessionHandler&) = delete;
    virtual ~SessionHandler();

    /// Returns the session's object in the sessions folder; null once the session's removal is
    /// announced.
    [[nodiscard]] virtual std::shared_ptr<IObject> GetSessionObject() = 0;

    /// True once the session takes no further calls: nobody waits for those in flight, and work
    /// that takes long may end early. Always false on hosts that cannot tell.
    [[nodiscard]] virtual bool IsClosed() const noexcept;
};

/// The sessions of a host.
class CORE_API Sessions
{
public:
    Sessions() = default;
    Sessions(const Sessions&) = delete;
    Sessions& operator=(const Sessions&) = delete;
    virtual ~Sessions();

    /// Returns the session for which the calling thread works; null when it works for none.
    [[nodiscard]] virtual std::shared_ptr<SessionHandler> GetCurrentSession() const = 0;
};

} // namespace Core
