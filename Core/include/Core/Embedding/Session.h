#pragma once

#include "Core/Export.h"
#include "Core/Sessions.h"

#include <memory>
#include <string>

namespace Core::Embedding {

/// A session of an embedded host, opened with `Runtime::OpenSession`. All operations may be called
/// from any thread.
class CORE_API Session : public SessionHandler
{
public:
    ~Session() override;

    /// The session object's identifier, a random Guid.
    [[nodiscard]] virtual const NodeId& GetNodeId() const noexcept = 0;
    [[nodiscard]] virtual const std::string& GetName() const noexcept = 0;

    /// Ends the session: it takes no further call, and its object leaves the sessions folder after
    /// its last call in flight, on the thread of that call. Ending it again does nothing. The
    /// runtime holds its sessions until they are closed.
    virtual void Close() = 0;

    /// Takes no further calls, and tells those in flight that nobody waits for them (`IsClosed`).
    /// Announces nothing, and returns at once. The session ends with `Close`.
    virtual void RefuseCalls() noexcept = 0;
};

/// Makes a session the current one of the calling thread as long as the scope lives.
/// `Runtime::Call` does this by itself.
class CORE_API SessionScope
{
public:
    /// A null session means that the thread works for none.
    explicit SessionScope(std::shared_ptr<Session> session);
    SessionScope(const SessionScope&) = delete;
    SessionScope& operator=(const SessionScope&) = delete;
    ~SessionScope();

private:
    std::shared_ptr<Session> previous;
};

} // namespace Core::Embedding
