#pragma once

#include "Client/Connection.h"
#include "ListItem.h"

#include <open62541/client.h>

#include <string>
#include <vector>

namespace Client {

/// Numbers of the server's namespaces that this library needs.
struct Namespaces
{
    std::vector<std::string> uris;
    UA_UInt16 host = 0;
    UA_UInt16 files = 0;
    UA_UInt16 objects = 0; ///< of the file objects; 0 where the server has none
};

/// The folder of the server's file systems, by its published number.
constexpr UA_UInt32 fileSystemsFolder = 1;

/// Facts that hold for one session.
class SessionFacts
{
public:
    /// Asks the server when the client has another session than the last time. `url` names the
    /// server in exceptions. Throws NoConnectionException, ConnectionLostException. The client
    /// refers to this afterwards, which must outlive it.
    void Read(UA_Client& client, const std::string& url);

    [[nodiscard]] const Namespaces& GetNamespaces() const noexcept { return namespaces; }
    /// Returns the text of the session's authentication token.
    [[nodiscard]] const std::string& GetSession() const noexcept { return session; }

private:
    Namespaces namespaces;
    ListItemType listItem;
    std::string session;
};

/// Returns the text of the session's authentication token; empty when there is no session.
[[nodiscard]] std::string GetSessionToken(UA_Client& client);

/// Asks the server and fills in what it announces. Throws ConnectionLostException.
void AskServer(UA_Client& client, const Namespaces& namespaces, ServerInfo& info);

} // namespace Client
