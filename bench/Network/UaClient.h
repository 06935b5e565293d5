#pragma once

#include <OpcUa/Ua.h>

#include <open62541/client.h>

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

/// A plain connection made with the OPC UA library's own client, which shares no code with ours:
/// what is measured is the host. One thread.
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

    /// The node of a shared file system.
    [[nodiscard]] UA_NodeId GetSharedFiles(const std::string& name) const;
    /// A new file system of this session's own.
    [[nodiscard]] OpcUa::Ua<UA_NodeId> CreateFiles();

    /// Sends a call; the arguments are read before this returns. `answer` is called from `Run`; it
    /// may not send.
    void Post(const UA_NodeId& object, Method method, std::initializer_list<UA_Variant> inputs,
              Answer answer);
    /// Waits for the one output of a call. Throws when it has none.
    [[nodiscard]] std::uint32_t CallForNumber(const UA_NodeId& object, Method method,
                                              std::initializer_list<UA_Variant> inputs);

    /// Hears the events of a node from `Run` on.
    void Subscribe(const UA_NodeId& node, Heard heard);

    /// Takes what comes until the condition holds. Throws when the connection breaks, or when
    /// nothing comes for a minute.
    template <typename Condition>
    void Run(const Condition& condition)
    {
        while (!condition())
            RunOnce();
    }

private:
    struct ClientDeleter
    {
        void operator()(UA_Client* client) const noexcept { UA_Client_delete(client); }
    };
    struct Pending;

    void Connect(const std::string& url, UA_ClientConfig& configuration);
    static void OnAnswer(UA_Client* client, void* userdata, UA_UInt32 request, void* response);
    void RunOnce();
    [[nodiscard]] UA_UInt16 GetNamespace(const std::string& uri) const;

    std::unique_ptr<Heard> heard; // where the library finds it
    std::unique_ptr<UA_Client, ClientDeleter> client;
    UA_UInt16 hostNamespace = 0;
    UA_UInt16 filesNamespace = 0;
    std::size_t arrived = 0;
    std::size_t silentRounds = 0;
};

// Views, valid as long as what they are made of.
[[nodiscard]] UA_Variant MakeVariant(const std::uint32_t& number);
[[nodiscard]] UA_Variant MakeVariant(const std::int32_t& number);
[[nodiscard]] UA_Variant MakeVariant(const UA_String& text);
[[nodiscard]] UA_Variant MakeVariant(const bool& flag);

} // namespace Bench
