#pragma once

#include "Transport/Asio.h"
#include "Transport/Channel.h"
#include "Transport/LoopMutex.h"
#include "Transport/OutputQueue.h"

#include <memory>

namespace Transport {

class ConnectionManager;

/// One TCP connection: reads when there is something to read, sends what the system takes and waits
/// for the rest, closes. The loop's lock guards it; the two ends say what is done with what comes
/// in. What fails for one connection ends that one alone.
///
/// Lifetime: its manager knows it until it has closed, and handlers that wait for its socket keep
/// it beyond. The manager outlives what it calls, not its memory.
class Connection : public Channel, public std::enable_shared_from_this<Connection>
{
public:
    using Tcp = boost::asio::ip::tcp;
    using ErrorCode = boost::system::error_code;

    /// The end of output that waits when a connection is closed.
    enum class Farewell
    {
        Send, ///< as far as the system takes it at once; it often says why
        Drop,
    };

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    virtual ~Connection() = default;

    /// Waits until there is something to read, unless it must not be read now.
    void Read() REQUIRES(loopLock);
    /// `Read`, where nobody is there to hear that it fails: the connection is closed then.
    void ReadOrClose() REQUIRES(loopLock);
    /// Sends what can be sent; the rest goes once there is room for it.
    void Flush() REQUIRES(loopLock);

    /// Begins to close; the library is told in a later turn. Returns false if it closes already.
    bool Close(Farewell farewell = Farewell::Send) REQUIRES(loopLock);

    /// Returns true while it waits until there is something to read, or until it is its turn.
    [[nodiscard]] bool IsReading() const REQUIRES(loopLock) { return reading; }
    [[nodiscard]] std::size_t GetQueued() const REQUIRES(loopLock) { return output.GetSize(); }
    [[nodiscard]] Tcp::socket& GetSocket() noexcept { return socket; }

protected:
    Connection(const Channel& channel, Tcp::socket socket, ConnectionManager& manager,
               BufferPool* pool);

    /// Tells the library, which takes the connection for the current one meanwhile. The lock is not
    /// held while it does.
    void Notify(UA_ConnectionState state, const UA_KeyValueMap& parameters, UA_ByteString message)
        REQUIRES(loopLock);
    /// Begins to use a socket that is connected: sends and reads.
    void Begin() REQUIRES(loopLock);

    /// Reads what has come in, and waits for more.
    void TakeInput() REQUIRES(loopLock);

    [[nodiscard]] bool IsWriting() const REQUIRES(loopLock) { return writing; }
    [[nodiscard]] OutputQueue& GetOutput() REQUIRES(loopLock) { return output; }

private:
    [[nodiscard]] virtual bool MayRead() REQUIRES(loopLock) { return true; }
    /// There is something to read, or there was not long ago.
    virtual void OnInput() REQUIRES(loopLock) { TakeInput(); }
    /// Takes what has come in.
    virtual void Receive() REQUIRES(loopLock) = 0;
    /// There is output that the system does not take for now.
    virtual void OnOutputLeft() REQUIRES(loopLock) {}
    virtual void OnClosing() REQUIRES(loopLock) {}
    /// The library has been told that it has closed; the manager still knows it.
    virtual void OnClosed() REQUIRES(loopLock) {}

    void OnReadable();
    void OnWritable();
    void ReadInput() REQUIRES(loopLock);
    void SendOn() REQUIRES(loopLock);
    void FinishClose();
    /// Closes the connection if the step throws.
    void Guard(void (Connection::*step)()) REQUIRES(loopLock);

    ConnectionManager& manager;
    Tcp::socket socket;
    OutputQueue output GUARDED_BY(loopLock);
    bool reading GUARDED_BY(loopLock) = false; // waits for input, or for its turn
    bool writing GUARDED_BY(loopLock) = false; // waits until there is room to send
};

} // namespace Transport
