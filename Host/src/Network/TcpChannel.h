#pragma once

#include "Network/Asio.h"
#include "Network/EventLoop.h"

#include <mutex>
#include <string_view>

namespace Host {

/// Guards the loop and its connections.
using LoopMutex = std::recursive_mutex;

/// A connection, or a socket that listens for them, as the server knows it.
struct TcpChannel
{
    ConnectionId id{};
    UA_ConnectionManager_connectionCallback callback{};
    void* application{};
    void* context{};
    bool closing = false;
};

/// Returns a text as the library takes it, without copying it.
inline UA_String Borrow(std::string_view text)
{
    // The library's type has no const form; nothing that is given this writes to it.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
    return {text.size(), reinterpret_cast<UA_Byte*>(const_cast<char*>(text.data()))};
}

} // namespace Host
