#pragma once

#include <open62541/client.h>

#include <memory>

namespace Client {

struct ClientDeleter
{
    void operator()(UA_Client* client) const noexcept { UA_Client_delete(client); }
};

using ClientPointer = std::unique_ptr<UA_Client, ClientDeleter>;

} // namespace Client
