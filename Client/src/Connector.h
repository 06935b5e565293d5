#pragma once

#include "Client/Connection.h"
#include "ClientPointer.h"
#include "Ending.h"
#include "EventLoop.h"
#include "ServerFacts.h"
#include "Waiter.h"

#include <open62541/client.h>
#include <open62541/plugin/log.h>

#include <string>
#include <string_view>
#include <vector>

namespace Client {

/// Connects the OPC UA client to its server: chooses the endpoint, has the server's certificate
/// trusted, logs in. One thread at a time, unless said otherwise.
class Connector
{
public:
    /// Both must outlive it. Throws ClientException when there is no descriptor left.
    Connector(const ConnectionOptions& options, const Ending& ending);
    Connector(const Connector&) = delete;
    Connector& operator=(const Connector&) = delete;
    ~Connector() = default;

    /// Connects for the first time. Throws as Connection's constructor does.
    void Connect(const Cancellation* cancellation);
    /// Connects again, to the same endpoint, with the session that there was where the server still
    /// has it. Throws RefusedException, NoConnectionException, CancelledException.
    void ConnectAgain(Waiter::Deadline deadline);
    /// Says farewell to the server, so that it closes at once what is open, and ends the client.
    void Disconnect() noexcept;

    /// Closes the connection as if the server had. The engine makes it again.
    void Break(std::string_view reason) noexcept;
    /// Returns the reason of the last `Break`, or a general one, and forgets it.
    [[nodiscard]] std::string TakeLossReason();

    /// Returns false, and the status when there is one, while there is no session.
    [[nodiscard]] bool IsConnected(UA_StatusCode& status) const;

    [[nodiscard]] UA_Client& GetClient() const noexcept { return *client; }
    [[nodiscard]] EventLoop& GetLoop() noexcept { return loop; }
    /// Returns the facts of the current session, or of the last one.
    [[nodiscard]] const SessionFacts& GetFacts() const noexcept { return facts; }
    /// Returns the words for the last failure, as the OPC UA library or this has them.
    [[nodiscard]] const std::string& GetLastFailure() const noexcept { return lastFailure; }
    void SetLastFailure(const std::string& text) { lastFailure = text; }

    /// Returns the fingerprint of the server's certificate; empty when it shows none. Any thread
    /// once it is connected.
    [[nodiscard]] const std::string& GetFingerprint() const noexcept { return fingerprint; }
    /// Asks the server. Throws ConnectionLostException.
    [[nodiscard]] ServerInfo AskInfo() const;

private:
    void MakeClient(const UA_EndpointDescription& endpoint);
    void KeepFacts(const UA_EndpointDescription& endpoint);
    void SetIdentity(const UA_EndpointDescription& endpoint, const UA_UserTokenPolicy& token);
    void LogIn(Waiter::Deadline deadline, const Cancellation* cancellation);
    void AwaitSession(Waiter::Deadline deadline, const Cancellation* cancellation);
    [[noreturn]] void ThrowNotConnected(UA_StatusCode status) const;

    const ConnectionOptions& options;
    const Ending& ending;
    std::string lastFailure; // before the logger, which writes it
    UA_Logger logger{};
    EventLoop loop;                               // after the logger
    std::vector<unsigned char> serverCertificate; // DER
    bool isEncrypting = false;                    // the messages, or at least the password
    std::string securityPolicy;
    std::string securityMode;
    std::string applicationName;
    std::string applicationUri;
    std::string fingerprint;
    std::string breakReason;
    SessionFacts facts;
    ClientPointer client; // after everything that it refers to
};

} // namespace Client
