#pragma once

#include "Pool.h"
#include "Value.h"

#include <OpcUa/Ua.h>

#include <open62541/client.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Fuzz {

/// A session made with the OPC UA library's own client.
class LibraryClient
{
public:
    /// `isEncrypted`: Basic256Sha256, signed and encrypted. Throws UaException.
    LibraryClient(const std::string& url, bool isEncrypted);
    LibraryClient(const LibraryClient&) = delete;
    LibraryClient& operator=(const LibraryClient&) = delete;
    ~LibraryClient();

    /// Puts all nodes below the root, and their methods, into the pool.
    void Explore(Pool& pool);
    [[nodiscard]] std::uint16_t FindNamespace(const std::string& uri) const;

    /// Opens the file on a file system of its own, for `Check`.
    void OpenFile(const std::string& path);
    /// Asks for the open file's position. Throws when a call does not work.
    void Check();

    using Answer = std::function<void(UA_StatusCode)>;
    /// Sends a request without waiting. Returns false if it cannot be sent.
    bool Post(const Value& request, const Answer& answer);
    /// Takes the answers that have come. Returns false if the connection is gone.
    bool TakeAnswers();

private:
    struct ClientDeleter
    {
        void operator()(UA_Client* client) const noexcept { UA_Client_delete(client); }
    };

    /// Returns a node below another one.
    struct Child
    {
        OpcUa::Ua<UA_NodeId> node;
        bool isMethod;
    };

    [[nodiscard]] std::vector<Child> Browse(const UA_NodeId& node) const;
    [[nodiscard]] UA_StatusCode Call(const UA_NodeId& object, const UA_NodeId& method,
                                     std::size_t count, const UA_Variant* inputs,
                                     OpcUa::Ua<UA_Variant>& output) const;
    [[nodiscard]] bool HasPosition() const;

    std::unique_ptr<UA_Client, ClientDeleter> client;
    std::uint16_t hostNamespace = 0;
    std::uint16_t fileNamespace = 0;
    OpcUa::Ua<UA_NodeId> files;
    std::uint32_t handle = 0;
};

} // namespace Fuzz
