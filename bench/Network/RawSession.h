#pragma once

#include "Connection.h"
#include "Frames.h"
#include "Value.h"

#include <OpcUa/Ua.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Bench {

/// An unencrypted connection that sends what no client library would.
class RawSession
{
public:
    /// Opens a channel. Throws std::runtime_error when the host does not let it.
    explicit RawSession(std::uint16_t port);

    /// Creates a session and activates it, without a user. False when the host refuses.
    bool LogIn();
    /// Sends a request and waits for its answer; nothing when the connection ends instead. The
    /// caller sets all of it but the header.
    std::optional<Fuzz::Value> Ask(Fuzz::Value& request);
    /// Sends a chunk of a message that goes on.
    void SendUnfinished(const std::string& content);
    [[nodiscard]] bool IsOpen() const noexcept { return connection.IsOpen(); }

private:
    std::optional<Fuzz::Value> Receive();

    Fuzz::Connection connection;
    Fuzz::Channel channel;
    OpcUa::Ua<UA_NodeId> token;
};

} // namespace Bench
