#pragma once

#include "OpcUa/SymmetricCiphers.h"
#include "Transport/Accepting/AcceptedConnection.h"
#include "Transport/Accepting/Limits.h"
#include "Transport/Accepting/Listeners.h"
#include "Transport/ConnectionManager.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Transport {

/// The connections that a server accepts, and the sockets that listen for them. Opening one to
/// elsewhere is answered with Bad_NotSupported. An address without a host listens on every address.
/// A listening port can always be taken over from an ended process (the "reuse" parameter has no
/// effect).
///
/// Threads: the operations that only ask are for any thread, the others for the one that runs the
/// loop.
class AcceptedConnections final : public ConnectionManager,
                                  public OpcUa::MessageObserver,
                                  private Listeners::Owner,
                                  private TurnWork
{
public:
    /// Registers itself with the loop, which must outlive it. `lend` is used where there is no
    /// descriptor left for a connection; empty: none are kept back.
    AcceptedConnections(Loop& loop, const ConnectionLimits& limits, LendDescriptors lend = {});

    /// Returns nothing once the connection has closed.
    [[nodiscard]] std::optional<ConnectionInfo> Get(ConnectionId id) const;
    /// Returns nothing of a connection that is not known.
    [[nodiscard]] ConnectionOutput GetOutput(ConnectionId id) const;
    [[nodiscard]] std::size_t Count() const;
    [[nodiscard]] std::vector<ListeningSocket> GetListenAddresses() const;
    /// Returns how many messages were given to connections so far.
    [[nodiscard]] std::uint64_t CountMessages() const;
    /// Returns how many bytes all connections have received and were given to send so far.
    [[nodiscard]] std::uint64_t CountBytes() const;
    [[nodiscard]] Traffic GetTraffic() const;
    [[nodiscard]] bool IsMemoryBrakeOn() const;

    /// Sets the function that is told once of each connection that has closed, after the server
    /// was; `Get` still knows it then, for the last time.
    void SetClosedObserver(std::function<void(ConnectionId)> observer);

    /// While `isMemoryShort` says true, a connection may receive no more than its equal share of
    /// `ConnectionLimits::brakeAllowance`, counted from when it first said so. A connection that
    /// has used up its share is not read until it says false again, but for a trickle: every 50 ms
    /// all shares together grow by `ConnectionLimits::brakeRefill`. Connections made meanwhile
    /// start with their share used up. So those that send most stop first, those that say little
    /// are still heard, the input above the mark is bounded, and nothing waits for itself: calls
    /// taken before need no further input to end and free their memory, answers are sent all the
    /// while, and a connection that its client has left is still noticed.
    ///
    /// It is asked before each read, on the loop's thread with the loop's lock held: it must be
    /// cheap and may not call the loop or the server. One that throws counts as false.
    void SetMemoryBrake(std::function<bool()> isMemoryShort);

    /// While held, a connection is not read, whatever it has sent; its output goes out. That its
    /// client has left is noticed by `CloseAbandoned` alone then. One that is not known is ignored.
    void Hold(ConnectionId id, bool isHeld);

    /// Closes those that are not read for now and whose clients have left. One whose system still
    /// holds back input that is not read here looks as before; it is found by what is sent to it
    /// next, or by its session's timeout.
    void CloseAbandoned();

    /// Says that a session is active on a connection, or that none is any more: without one it is
    /// bounded by `StrangerLimits`. One that is not known is ignored.
    void MarkAdmitted(ConnectionId id, bool isAdmitted);

    /// Closes the connections that are overdue by `StrangerLimits`. To be called about once a
    /// second; nobody is closed at the first call that finds it overdue.
    void CloseOverdue();

    /// Closes a connection, after the current turn of the loop. Returns false if there is none, or
    /// it is closing already.
    bool CloseConnection(ConnectionId id);

    void OnSigning(unsigned char* data, std::size_t size, OpcUa::Seal& seal) noexcept override;
    [[nodiscard]] bool OnVerified(unsigned char* data, std::size_t size) noexcept override;

private:
    using SharedConnection = std::shared_ptr<AcceptedConnection>;

    // ConnectionManager
    UA_StatusCode Open(const UA_KeyValueMap& parameters, const Channel& channel) override
        REQUIRES(loopLock);
    UA_StatusCode Send(ConnectionId id, UA_ByteString& bytes) override REQUIRES(loopLock);
    bool Close(ConnectionId id) override REQUIRES(loopLock);
    UA_StatusCode Allocate(ConnectionId id, UA_ByteString& bytes, std::size_t size) override;
    void Free(UA_ByteString& bytes) override;
    void CloseAll() override REQUIRES(loopLock);
    [[nodiscard]] bool IsEmpty() const override REQUIRES(loopLock);
    void Forget(ConnectionId id) override REQUIRES(loopLock);

    // Listeners::Owner
    ConnectionId MakeListenerId() override REQUIRES(loopLock);
    void OnListenerChanged(Channel& listener, UA_ConnectionState state,
                           const UA_KeyValueMap& parameters) override REQUIRES(loopLock);
    void OnAccepted(const Channel& listener, Connection::Tcp::socket socket) override
        REQUIRES(loopLock);
    void OnOutOfResources() override REQUIRES(loopLock);
    void OnListenerClosed() override REQUIRES(loopLock);

    // TurnWork
    [[nodiscard]] bool IsWaiting() const override REQUIRES(loopLock);
    void DoPiece() override;

    [[nodiscard]] SharedConnection Find(ConnectionId id) const REQUIRES(loopLock);
    [[nodiscard]] BrakeWatch::Owner MakeBrakeOwner();
    void ReadAll() REQUIRES(loopLock);
    void CloseAllAbandoned() REQUIRES(loopLock);
    bool MakeRoom(const std::string& address) REQUIRES(loopLock);
    void GiveWay(ConnectionId id) REQUIRES(loopLock);
    void ReportRoom(bool isFull, bool hasStrangers) REQUIRES(loopLock);

    AcceptedShares shares;
    ConnectionId filling GUARDED_BY(loopLock){}; // has been given a buffer last
    Listeners listeners GUARDED_BY(loopLock);
    std::unordered_map<ConnectionId, SharedConnection> connections GUARDED_BY(loopLock);
    bool full GUARDED_BY(loopLock) = false; // and that is logged
};

} // namespace Transport
