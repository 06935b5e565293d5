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

/// An unencrypted connection that can send what no client library would send.
class RawSession
{
public:
    /// Opens a channel. Throws std::runtime_error if the host refuses.
    explicit RawSession(std::uint16_t port);

    /// Creates and activates a session without a user. Returns false if the host refuses.
    bool LogIn();
    /// Sends a request and returns its answer; nothing if the connection ends instead. The caller
    /// sets all members but the header.
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
