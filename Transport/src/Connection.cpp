#include "Transport/Connection.h"

#include "Transport/ConnectionManager.h"

#include <open62541/plugin/log.h>

#include <exception>
#include <utility>

namespace Transport {

namespace asio = boost::asio;

Connection::Connection(const Channel& channel, Tcp::socket socket, ConnectionManager& manager,
                       BufferPool* pool)
    : Channel(channel)
    , manager(manager)
    , socket(std::move(socket))
    , output(pool)
{}

void Connection::Guard(void (Connection::*step)())
{
    try {
        (this->*step)();
    } catch (const std::exception& failure) {
        UA_LOG_ERROR(&manager.GetLogger(), UA_LOGCATEGORY_NETWORK, "TCP %zu: closed: %s", id,
                     failure.what());
        Close();
    }
}

void Connection::Notify(UA_ConnectionState state, const UA_KeyValueMap& parameters,
                        UA_ByteString message)
{
    manager.NotifyOfConnection(*this, state, parameters, message);
}

void Connection::Begin()
{
    if (!closing)
        Guard(&Connection::SendOn);
}

// Reading

void Connection::Read()
{
    if (closing || reading || !MayRead())
        return;
    reading = true;
    socket.async_wait(Tcp::socket::wait_read,
                      [self = shared_from_this()](const ErrorCode&) { self->OnReadable(); });
}

void Connection::ReadOrClose()
{
    if (!closing)
        Guard(&Connection::Read);
}

void Connection::OnReadable()
{
    const LoopLock lock(manager.GetMutex());
    if (!closing)
        Guard(&Connection::OnInput);
}

void Connection::TakeInput()
{
    if (closing)
        return;
    reading = false;
    Guard(&Connection::ReadInput);
}

void Connection::ReadInput()
{
    if (!MayRead())
        return;
    Receive();
    Read();
}

// Sending

void Connection::Flush()
{
    if (closing || writing)
        return OnOutputLeft();
    ErrorCode error;
    output.Send(socket, error);
    if (error)
        return static_cast<void>(Close());
    if (output.IsEmpty())
        return;
    writing = true;
    socket.async_wait(Tcp::socket::wait_write,
                      [self = shared_from_this()](const ErrorCode&) { self->OnWritable(); });
    OnOutputLeft();
}

void Connection::OnWritable()
{
    const LoopLock lock(manager.GetMutex());
    if (closing)
        return;
    writing = false;
    Guard(&Connection::SendOn);
}

void Connection::SendOn()
{
    Flush();
    Read();
}

// Closing

bool Connection::Close(Farewell farewell)
{
    if (std::exchange(closing, true))
        return false;
    asio::post(socket.get_executor(), [self = shared_from_this()] { self->FinishClose(); });
    OnClosing();
    ErrorCode ignored; // the connection ends in any case
    if (farewell == Farewell::Send && !writing)
        output.Send(socket, ignored);
    output.Clear();
    socket.shutdown(Tcp::socket::shutdown_both, ignored);
    return true;
}

void Connection::FinishClose()
{
    const LoopLock lock(manager.GetMutex());
    Notify(UA_CONNECTIONSTATE_CLOSING, {0, nullptr}, {});
    OnClosed();
    ErrorCode ignored; // the descriptor is gone in any case
    socket.close(ignored);
    manager.Forget(id);
}

} // namespace Transport
