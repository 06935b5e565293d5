#pragma once

#include "PlainClient.h"
#include "Pool.h"
#include "User.h"
#include "Value.h"

#include <OpcUa/Ua.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Fuzz {

/// A session of the OPC UA library's own client.
class LibraryClient
{
public:
    /// `isEncrypted`: Basic256Sha256, signed and encrypted. Logs in as the user where there is one.
    /// Throws UaException.
    LibraryClient(const std::string& url, bool isEncrypted, const std::optional<User>& user);
    LibraryClient(const LibraryClient&) = delete;
    LibraryClient& operator=(const LibraryClient&) = delete;
    ~LibraryClient();

    /// Puts all nodes below the root, and their methods, into the pool.
    void Explore(Pool& pool);
    [[nodiscard]] std::uint16_t FindNamespace(const std::string& uri) const;

    /// Opens a file on a file system of the session's own, for `Check`.
    void OpenFile(const std::string& path);
    /// Reads the position of the open file. Throws if a call fails.
    void Check();

    using Answer = std::function<void(UA_StatusCode)>;
    /// Sends a request without waiting. Returns false if it cannot be sent.
    bool Post(const Value& request, const Answer& answer);
    /// Takes the answers that have come. Returns false if the connection is gone.
    bool TakeAnswers();

private:
    /// A node below another one.
    struct Child
    {
        OpcUa::Ua<UA_NodeId> node;
        std::string name; ///< without its namespace
        bool isMethod;
    };

    [[nodiscard]] std::vector<Child> Browse(const UA_NodeId& node) const;
    /// Returns the inputs that a method declares.
    [[nodiscard]] std::vector<InputType> ReadInputs(const UA_NodeId& method) const;
    [[nodiscard]] UA_StatusCode Call(const UA_NodeId& object, const UA_NodeId& method,
                                     std::size_t count, const UA_Variant* inputs,
                                     OpcUa::Ua<UA_Variant>& output) const;
    [[nodiscard]] bool HasPosition() const;

    OpcUa::PlainClient client;
    std::uint16_t hostNamespace = 0;
    std::uint16_t fileNamespace = 0;
    OpcUa::Ua<UA_NodeId> files;
    std::uint32_t handle = 0;
};

} // namespace Fuzz
