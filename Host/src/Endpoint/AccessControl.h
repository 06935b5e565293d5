#pragma once

#include "Endpoint/Sessions.h"

#include <open62541/server.h>

#include <functional>
#include <utility>
#include <vector>

namespace Host {

/// The server's access control: tells `Sessions` of logins and of sessions that come and go, and
/// says what clients may do: read, browse and call.
///
/// Clients learn nothing of the sessions of others: the library's objects that describe them are
/// refused. Loop thread.
class AccessControl
{
public:
    /// `sessions` must outlive it.
    AccessControl(Sessions& sessions, const SessionRules& rules);
    AccessControl(const AccessControl&) = delete;
    AccessControl& operator=(const AccessControl&) = delete;

    /// Returns true for a variable whose value a session may read.
    using IsReadable = std::function<bool(const UA_NodeId& node, const ClientSession* session)>;
    void SetReadability(IsReadable rule) { isReadable = std::move(rule); }

    /// Returns true for a method of the base model that may be called on the object; null: on any.
    using IsCallable = std::function<bool(const UA_NodeId& method, const UA_NodeId* object)>;
    void SetCallability(IsCallable rule) { isCallable = std::move(rule); }

    /// Makes this the access control of a server, which it must outlive. Clears the one before.
    void Install(UA_ServerConfig& configuration);

private:
    struct Callbacks;

    Sessions& sessions;
    IsReadable isReadable;
    IsCallable isCallable;
    std::vector<UA_UserTokenPolicy> tokenPolicies; // views of literals
};

} // namespace Host
