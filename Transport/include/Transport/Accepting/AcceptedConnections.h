#pragma once

#include "Transport/Accepting/Limits.h"
#include "Transport/Accepting/Listeners.h"
#include "Transport/Accepting/MemoryBrake.h"
#include "Transport/Accepting/MessageBounds.h"
#include "Transport/Accepting/Strangers.h"
#include "Transport/Asio.h"
#include "Transport/Channel.h"
#include "Transport/OutputBuffer.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Transport {

/// Describes one connection.
struct ConnectionInfo
{
    ConnectionId id{};
    std::string remoteAddress; ///< numeric, without the port
    std::uint16_t remotePort{};
    std::uint64_t bytesIn{};  ///< received
    std::uint64_t bytesOut{}; ///< given to the connection to be sent
};

/// The output on its way to a client.
struct ConnectionOutput
{
    std::size_t largestMessage = 0; ///< that it takes
    std::size_t queued = 0;         ///< bytes that wait to be sent
    std::size_t limit = 0;          ///< with more of them it is closed
    bool isPaused = false;          ///< there are so many that it is not read
};

/// The connection manager of the loop for TCP. The loop's lock guards it: its operations take it,
/// and give it back while the server's callback or the observer runs.
class AcceptedConnections : public OpcUa::MessageObserver
{
public:
    using Mutex = LoopMutex;

    AcceptedConnections(boost::asio::io_context& context, Mutex& mutex, const UA_Logger& logger,
                        const ConnectionLimits& limits, LendDescriptors lend = {});

    [[nodiscard]] UA_ConnectionManager& GetManager() noexcept { return manager; }

    /// On the loop's thread.
    [[nodiscard]] ConnectionId GetCurrent() const noexcept { return current; }
    [[nodiscard]] std::optional<ConnectionInfo> Get(ConnectionId id) const;
    [[nodiscard]] ConnectionOutput GetOutput(ConnectionId id) const;
    [[nodiscard]] std::size_t Count() const;
    [[nodiscard]] std::vector<ListeningSocket> GetListenAddresses() const;
    /// How many messages were given to connections so far; guarded by the loop's lock.
    [[nodiscard]] std::uint64_t CountMessages() const noexcept { return messages; }
    [[nodiscard]] std::uint64_t CountBytes() const;

    void SetClosedObserver(std::function<void(ConnectionId)> observer);
    void SetBrake(std::function<bool()> shortage);

    /// While held, a connection is not read. Unknown ones are ignored. On the loop's thread.
    void Hold(ConnectionId id, bool isHeld);

    /// Closes those that are not read for now and whose clients have left.
    void CloseAbandoned();

    /// See the operations of `EventLoop`.
    void MarkAdmitted(ConnectionId id, bool isAdmitted);
    void CloseOverdue();

    /// False if there is none, or it is closing already.
    bool Close(ConnectionId id);

    void OnSigning(unsigned char* data, std::size_t size, OpcUa::Seal& seal) noexcept override;
    [[nodiscard]] bool OnVerified(const unsigned char* data, std::size_t size) noexcept override;

private:
    using Lock = std::unique_lock<Mutex>;
    using ErrorCode = boost::system::error_code;
    using Tcp = boost::asio::ip::tcp;

    struct Manager : UA_ConnectionManager
    {
        AcceptedConnections* owner{};
    };

    struct Connection : Channel
    {
        Connection(const Channel& channel, Tcp::socket accepted, const ConnectionLimits& limits);

        Tcp::socket socket;
        ConnectionInfo info;
        IncomingMessages incoming;
        OutgoingMessages outgoing;
        const UA_Byte* filling{}; // the buffer of the chunk that is encoded
        std::deque<OutputBuffer> output;
        std::size_t queued{}; // bytes in `output`
        bool held = false;    // is not to be read
        bool reading = false; // waits until there is something to read
        bool writing = false; // waits until there is room to send
    };

    using SharedConnection = std::shared_ptr<Connection>;

    static AcceptedConnections& GetOwner(UA_ConnectionManager* manager);
    static AcceptedConnections& GetOwner(UA_EventSource* source);
    void FillOperations();
    Listeners::Owner MakeListenersOwner(LendDescriptors lend);

    // Lifecycle
    UA_StatusCode Start();
    void Stop();
    void CheckStopped();

    // Accepting
    UA_StatusCode Open(const UA_KeyValueMap& parameters, const Channel& channel);
    bool MakeRoom(const std::string& address);
    void GiveWay(ConnectionId id);
    void ReportRoom(bool isFull, bool hasStrangers);
    void AddConnection(const Channel& listener, Tcp::socket socket);

    // Reading
    void Read(const SharedConnection& connection);
    void OnReadable(const SharedConnection& connection);
    void Receive(Connection& connection, std::size_t size);
    [[nodiscard]] bool MayRead(const Connection& connection);

    // Sending
    UA_StatusCode Allocate(ConnectionId id, UA_ByteString& bytes, std::size_t size);
    UA_StatusCode Send(ConnectionId id, OutputBuffer buffer);
    void Flush(const SharedConnection& connection);
    void FlushWhatFits(Connection& connection, ErrorCode& error);
    void FlushLater(const SharedConnection& connection);
    void OnWritable(const SharedConnection& connection);
    void CheckOutput(const SharedConnection& connection);

    // Closing
    void Refuse(ConnectionId id, const Strangers::Refusal& refusal);
    void BeginClose(const SharedConnection& connection);
    void FinishClose(const SharedConnection& connection);

    // The memory brake
    bool AskBrake() const;
    void UpdateBrake();
    void CheckBrakeLater();
    void CheckBrake();
    void ReadAll();

    void Notify(Connection& connection, UA_ConnectionState state, const UA_KeyValueMap& parameters,
                UA_ByteString message);
    void Notify(Channel& channel, UA_ConnectionState state, const UA_KeyValueMap& parameters,
                UA_ByteString message);
    template <typename Function>
    void Guard(const SharedConnection& connection, Function function);

    const UA_Logger& logger;
    const ConnectionLimits limits;
    boost::asio::io_context& context;
    Mutex& mutex;
    Manager manager{};

    // Used on the loop's thread only.
    std::vector<UA_Byte> input;
    std::function<void(ConnectionId)> closedObserver;
    ConnectionId current{};

    // Guarded by the loop's lock.
    std::uint64_t messages{};
    std::uint64_t bytes{}; // received and given to connections
    ConnectionId lastId{};
    ConnectionId filling{}; // has been given a buffer last
    Listeners listeners;
    std::unordered_map<ConnectionId, SharedConnection> connections;
    std::vector<boost::asio::const_buffer> gathered; // scratch
    bool full = false;                               // and that is logged
    std::function<bool()> isMemoryShort;
    Strangers strangers;
    MemoryBrake brake;
    boost::asio::steady_timer brakeTimer;
};

} // namespace Transport
