#pragma once

#include "PlainClient.h"

#include <OpcUa/Ua.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>

namespace Bench {

/// The published numbers of the methods that are measured.
enum class Method : std::uint32_t
{
    Open = 1010,
    List = 1090,
    Exists = 1100,
    Read = 1110,
    GetPosition = 1140,
};

/// A connection of the OPC UA library's own client, which shares no code with the project's client:
/// only the host is measured. One thread uses it.
class UaClient
{
public:
    explicit UaClient(const std::string& url);
    /// Logs in as a user, signed and encrypted.
    UaClient(const std::string& url, const std::string& user, const std::string& password);
    UaClient(const UaClient&) = delete;
    UaClient& operator=(const UaClient&) = delete;
    ~UaClient();

    using Answer = std::function<void(const UA_CallMethodResult&)>;
    using Heard = std::function<void(UA_DateTime raised)>;

    /// Returns the node of a shared file system.
    [[nodiscard]] UA_NodeId GetSharedFiles(const std::string& name) const;
    /// Makes a file system of this session's own.
    [[nodiscard]] OpcUa::Ua<UA_NodeId> CreateFiles();

    /// Sends a call; copies the arguments. `Run` calls `answer`, which must not send.
    void Post(const UA_NodeId& object, Method method, std::initializer_list<UA_Variant> inputs,
              Answer answer);
    /// Calls a method and returns its one output. Throws if it has none.
    [[nodiscard]] std::uint32_t CallForNumber(const UA_NodeId& object, Method method,
                                              std::initializer_list<UA_Variant> inputs);

    /// Subscribes to the events of a node; `Run` calls `heard`.
    void Subscribe(const UA_NodeId& node, Heard heard);

    /// Takes answers and events until the condition holds. Throws if the connection breaks.
    template <typename Condition>
    void Run(const Condition& condition)
    {
        while (!condition())
            RunOnce();
    }

private:
    struct Pending;

    void Connect(const std::string& url, UA_ClientConfig& configuration);
    static void OnAnswer(UA_Client* client, void* userdata, UA_UInt32 request, void* response);
    void RunOnce();

    std::unique_ptr<Heard> heard; // on the heap: the library has its address
    OpcUa::PlainClient client;
    UA_UInt16 hostNamespace = 0;
    UA_UInt16 filesNamespace = 0;
};

// Return views, which are valid as long as their arguments.
[[nodiscard]] UA_Variant MakeVariant(const std::uint32_t& number);
[[nodiscard]] UA_Variant MakeVariant(const std::int32_t& number);
[[nodiscard]] UA_Variant MakeVariant(const UA_String& text);
[[nodiscard]] UA_Variant MakeVariant(const bool& flag);

} // namespace Bench
