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

    /// Ends the session: no further call is accepted, and its object leaves the sessions folder
    /// after its last call in flight, on the thread that ends last. Ending it again does nothing.
    /// The runtime holds its sessions until they are closed.
    virtual void Close() = 0;

    /// True from the first `Close` on.
    [[nodiscard]] virtual bool IsClosed() const noexcept = 0;
};

/// Makes a session the current one of the calling thread for as long as the scope lives. Calls made
/// through `Runtime::Call` do this by themselves.
class CORE_API SessionScope
{
public:
    /// A null session: the thread works for none.
    explicit SessionScope(std::shared_ptr<Session> session);
    SessionScope(const SessionScope&) = delete;
    SessionScope& operator=(const SessionScope&) = delete;
    ~SessionScope();

private:
    std::shared_ptr<Session> previous;
};

} // namespace Core::Embedding
