#pragma once

#include "Transport/Accepting/BrakeWatch.h"
#include "Transport/Accepting/ConnectionInfo.h"
#include "Transport/Accepting/InputTurns.h"
#include "Transport/Accepting/Limits.h"
#include "Transport/Accepting/MessageBounds.h"
#include "Transport/Accepting/Strangers.h"
#include "Transport/Connection.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Transport {

/// The things that all accepted connections of a loop share. The loop's lock guards it.
struct AcceptedShares
{
    AcceptedShares(Loop& loop, const ConnectionLimits& limits, BrakeWatch::Owner owner);

    const ConnectionLimits limits;
    Strangers strangers GUARDED_BY(loopLock);
    BrakeWatch brake GUARDED_BY(loopLock);
    InputTurns turns GUARDED_BY(loopLock);
    /// Used on the loop's thread only: what was read last.
    std::vector<UA_Byte> input;
    /// Used on the loop's thread only: told of each connection that has closed.
    std::function<void(ConnectionId)> closedObserver;
    std::uint64_t messages GUARDED_BY(loopLock) = 0; ///< given to connections so far
    Traffic traffic GUARDED_BY(loopLock);
};

/// A connection that a client has made: keeps what comes and goes within bounds.
class AcceptedConnection : public Connection
{
public:
    /// Throws boost::system::system_error if the client has left already.
    AcceptedConnection(const Channel& channel, Tcp::socket accepted, ConnectionManager& manager,
                       AcceptedShares& shares);

    /// Tells the library of the connection, and begins to read.
    void Begin() REQUIRES(loopLock);

    [[nodiscard]] const ConnectionInfo& GetInfo() const REQUIRES(loopLock) { return info; }
    [[nodiscard]] ConnectionOutput DescribeOutput() const REQUIRES(loopLock);

    /// While held, it is not read.
    void Hold(bool isHeld) REQUIRES(loopLock);

    /// The library fills this buffer with a chunk for the connection.
    void SetFilling(const UA_Byte* buffer) REQUIRES(loopLock) { filling = buffer; }
    /// A chunk is about to be signed; one in no buffer of the connection is left alone.
    void OnSigning(UA_Byte* chunk, std::size_t size, OpcUa::Seal& seal) REQUIRES(loopLock);
    /// A chunk was decrypted and its signature is right. Returns false if it is out of order.
    [[nodiscard]] bool OnVerified(UA_Byte* chunk, std::size_t size) REQUIRES(loopLock);

    /// Reads when it is its turn.
    void TakeTurn() REQUIRES(loopLock) { TakeInput(); }

    UA_StatusCode Send(OutputBuffer buffer, bool isGathering) REQUIRES(loopLock);

    /// Closes it and says why, as far as the client still takes it.
    void Refuse(const Strangers::Refusal& refusal) REQUIRES(loopLock);
    /// Closes it if it is not read for now and its client has left.
    void CloseIfAbandoned() REQUIRES(loopLock);

private:
    [[nodiscard]] bool MayRead() override REQUIRES(loopLock);
    void OnInput() override REQUIRES(loopLock);
    void Receive() override REQUIRES(loopLock);
    void OnOutputLeft() override REQUIRES(loopLock);
    void OnClosing() override REQUIRES(loopLock);
    void OnClosed() override REQUIRES(loopLock);

    void Take(std::size_t size) REQUIRES(loopLock);
    void ReportRefusal() REQUIRES(loopLock);

    ConnectionManager& manager;
    AcceptedShares& shares;
    ConnectionInfo info GUARDED_BY(loopLock);
    IncomingMessages incoming GUARDED_BY(loopLock);
    OutgoingMessages outgoing GUARDED_BY(loopLock);
    const UA_Byte* filling GUARDED_BY(loopLock){};
    bool held GUARDED_BY(loopLock) = false;
};

} // namespace Transport
