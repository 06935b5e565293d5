#pragma once

#include <open62541/plugin/eventloop.h>

#include <cstdint>
#include <string_view>

namespace Transport {

/// Names a connection or a listening socket. Counted up from 1 and never used again; 0 names none.
using ConnectionId = std::uintptr_t;

/// A connection, or a socket that listens for them, as the library knows it.
struct Channel
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

} // namespace Transport
