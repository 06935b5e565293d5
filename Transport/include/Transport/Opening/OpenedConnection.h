#pragma once

#include "Transport/BufferPool.h"
#include "Transport/Connection.h"
#include "Transport/Opening/MessageSplitter.h"
#include "Transport/Opening/Resolver.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Transport {

class ConnectionManager;
class Loop;

/// The things that all opened connections of a loop share. The loop's lock guards it.
struct OpenedShares
{
    explicit OpenedShares(Resolver::Function lookUp);

    const Resolver::Function lookUp;
    BufferPool pool GUARDED_BY(loopLock);
    /// Used on the loop's thread only: what was read last.
    std::vector<UA_Byte> input;
};

/// A connection to a server: finds its address, connects, gathers small messages.
class OpenedConnection : public Connection
{
public:
    OpenedConnection(const Channel& channel, Loop& loop, ConnectionManager& manager,
                     OpenedShares& shares);

    /// Begins to connect, and tells the library that it does.
    void Open(const std::string& host, std::uint16_t port) REQUIRES(loopLock);

    /// Takes a message, which goes out when the loop is about to wait, or sooner if there is much.
    UA_StatusCode Send(OutputBuffer buffer) REQUIRES(loopLock);

private:
    void Receive() override REQUIRES(loopLock);
    void OnClosing() override REQUIRES(loopLock);

    void OnFound(const Lookup& lookup);
    void ConnectTo(std::vector<Tcp::endpoint> endpoints) REQUIRES(loopLock);
    void ConnectNext() REQUIRES(loopLock);
    void OnConnected(const ErrorCode& error);
    void LogFailure(const ErrorCode& error) const;
    void Establish() REQUIRES(loopLock);
    void TellMessages(std::span<UA_Byte> bytes) REQUIRES(loopLock);

    ConnectionManager& manager;
    OpenedShares& shares;
    std::string host;
    Resolver resolver;
    std::vector<Tcp::endpoint> addresses GUARDED_BY(loopLock); // yet to be tried, the next one last
    bool isOpen GUARDED_BY(loopLock) = false;
    MessageSplitter splitter GUARDED_BY(loopLock);
};

} // namespace Transport
