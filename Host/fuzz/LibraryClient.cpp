#include "LibraryClient.h"

#include <OpcUa/UaException.h>

#include <chrono>
#include <map>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

namespace Fuzz {

using OpcUa::BytesOf;
using OpcUa::Encryption;
using OpcUa::RequireGood;
using OpcUa::Ua;
using OpcUa::ViewAsVariant;
using OpcUa::ViewOf;

namespace {

constexpr UA_UInt32 longestCall = 60'000; // ms
constexpr std::size_t mostNodes = 20'000;
constexpr UA_UInt32 folderNumber = 1; // in the host's namespace
constexpr UA_UInt32 createFileSystem = 2;
constexpr UA_UInt32 openMethod = 1010;
constexpr UA_UInt32 getPositionMethod = 1140;

std::string TextOf(const UA_NodeId& node)
{
    UA_String text = UA_STRING_NULL;
    RequireGood(UA_NodeId_print(&node, &text), "printing a node's id");
    std::string copy(BytesOf(text));
    UA_String_clear(&text);
    return copy;
}

/// Returns the type of the answers to a type of requests.
const UA_DataType& FindResponse(const UA_DataType& request)
{
    std::string name = request.typeName;
    name.replace(name.rfind("Request"), std::string::npos, "Response");
    for (const UA_DataType& type : UA_TYPES)
        if (name == type.typeName)
            return type;
    throw std::logic_error("there is no type " + name);
}

} // namespace

LibraryClient::LibraryClient(const std::string& url, bool isEncrypted,
                             const std::optional<User>& user)
{
    UA_ClientConfig configuration =
        OpcUa::MakeClientConfiguration(isEncrypted ? Encryption::Basic256Sha256 : Encryption::None);
    configuration.timeout = longestCall;
    configuration.noNewSession = true;
    if (user)
        RequireGood(UA_ClientConfig_setAuthenticationUsername(&configuration, user->name.c_str(),
                                                              user->password.c_str()),
                    "setting a user");
    client = OpcUa::Connect(configuration, url);
    hostNamespace = FindNamespace("urn:Talvensor:Host");
    fileNamespace = FindNamespace("urn:Talvensor:FileSystem");
}

LibraryClient::~LibraryClient()
{
    UA_Client_disconnect(client.get());
}

std::uint16_t LibraryClient::FindNamespace(const std::string& uri) const
{
    return OpcUa::FindNamespace(*client, uri);
}

void LibraryClient::Explore(Pool& pool)
{
    const std::string shared = "FileSystem";
    pool.AddFiles({hostNamespace, UA_NODEIDTYPE_STRING, {.string = ViewOf(shared)}});
    std::size_t next = pool.AddNode(UA_NODEID_NUMERIC(0, UA_NS0ID_ROOTFOLDER));
    std::map<std::string, std::size_t> known{{TextOf(pool.GetNode(next)), next}};
    for (; next < pool.CountNodes() && pool.CountNodes() < mostNodes; ++next)
        for (const auto& [node, name, isMethod] : Browse(pool.GetNode(next))) {
            const auto [found, isNew] = known.try_emplace(TextOf(*node), pool.CountNodes());
            if (isNew)
                pool.AddNode(*node);
            pool.AddChild(next, found->second);
            if (isMethod) // objects share the methods of their type
                pool.AddMethod({next, found->second, ReadInputs(*node)});
        }
}

std::vector<LibraryClient::Child> LibraryClient::Browse(const UA_NodeId& node) const
{
    UA_BrowseDescription description{};
    description.nodeId = node;
    description.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
    description.includeSubtypes = true;
    description.resultMask = UA_BROWSERESULTMASK_NODECLASS | UA_BROWSERESULTMASK_BROWSENAME;
    UA_BrowseRequest request{};
    request.nodesToBrowse = &description;
    request.nodesToBrowseSize = 1;
    UA_BrowseResponse response = UA_Client_Service_browse(client.get(), request);
    std::vector<Child> children;
    for (std::size_t i = 0; i < response.resultsSize; ++i)
        for (std::size_t j = 0; j < response.results[i].referencesSize; ++j) {
            UA_ReferenceDescription& found = response.results[i].references[j];
            children.push_back({Ua<UA_NodeId>(std::exchange(found.nodeId.nodeId, UA_NODEID_NULL)),
                                std::string(BytesOf(found.browseName.name)),
                                found.nodeClass == UA_NODECLASS_METHOD});
        }
    UA_BrowseResponse_clear(&response);
    return children;
}

std::vector<InputType> LibraryClient::ReadInputs(const UA_NodeId& method) const
{
    std::vector<InputType> inputs;
    for (const Child& child : Browse(method)) {
        Ua<UA_Variant> value;
        if (child.name != "InputArguments" ||
            UA_Client_readValueAttribute(client.get(), *child.node, &*value) !=
                UA_STATUSCODE_GOOD ||
            !UA_Variant_hasArrayType(&*value, &UA_TYPES[UA_TYPES_ARGUMENT]))
            continue;
        const auto* arguments = static_cast<const UA_Argument*>(value->data);
        for (std::size_t i = 0; i < value->arrayLength; ++i)
            inputs.push_back({UA_findDataType(&arguments[i].dataType),
                              arguments[i].valueRank != UA_VALUERANK_SCALAR});
    }
    return inputs;
}

UA_StatusCode LibraryClient::Call(const UA_NodeId& object, const UA_NodeId& method,
                                  std::size_t count, const UA_Variant* inputs,
                                  Ua<UA_Variant>& output) const
{
    std::size_t outputs = 0;
    UA_Variant* values = nullptr;
    const UA_StatusCode status =
        UA_Client_call(client.get(), object, method, count, inputs, &outputs, &values);
    if (outputs > 0)
        output = Ua<UA_Variant>(std::exchange(values[0], UA_Variant{}));
    UA_Array_delete(values, outputs, &UA_TYPES[UA_TYPES_VARIANT]);
    return status;
}

void LibraryClient::OpenFile(const std::string& path)
{
    Ua<UA_Variant> output;
    RequireGood(Call(UA_NODEID_NUMERIC(hostNamespace, folderNumber),
                     UA_NODEID_NUMERIC(hostNamespace, createFileSystem), 0, nullptr, output),
                "CreateFileSystem");
    if (!UA_Variant_hasScalarType(&*output, &UA_TYPES[UA_TYPES_NODEID]))
        throw std::runtime_error("CreateFileSystem gives no node");
    std::swap(*files, *static_cast<UA_NodeId*>(output->data));
    const UA_String name = ViewOf(path);
    const UA_Int32 toRead = 1;
    const UA_Variant inputs[] = {ViewAsVariant(&name, UA_TYPES_STRING),
                                 ViewAsVariant(&toRead, UA_TYPES_INT32)};
    RequireGood(Call(*files, UA_NODEID_NUMERIC(fileNamespace, openMethod), 2, inputs, output),
                "Open");
    if (!UA_Variant_hasScalarType(&*output, &UA_TYPES[UA_TYPES_UINT32]))
        throw std::runtime_error("Open gives no handle");
    handle = *static_cast<UA_UInt32*>(output->data);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(longestCall);
    while (!HasPosition()) { // until it is open
        if (std::chrono::steady_clock::now() > limit)
            throw std::runtime_error("a file is not opened");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

bool LibraryClient::HasPosition() const
{
    Ua<UA_Variant> output;
    const UA_Variant input = ViewAsVariant(&handle, UA_TYPES_UINT32);
    RequireGood(
        Call(*files, UA_NODEID_NUMERIC(fileNamespace, getPositionMethod), 1, &input, output),
        "the good client's call");
    return output->type != nullptr;
}

void LibraryClient::Check()
{
    if (!HasPosition())
        throw std::runtime_error("the good client's file is not open any more");
}

bool LibraryClient::Post(const Value& request, const Answer& answer)
{
    struct Pending
    {
        Answer answer;
    };
    auto pending = std::make_unique<Pending>(Pending{answer});
    const auto take = [](UA_Client*, void* context, UA_UInt32, void* response) {
        const std::unique_ptr<Pending> owned(static_cast<Pending*>(context));
        owned->answer(static_cast<const UA_ResponseHeader*>(response)->serviceResult);
    };
    const bool isSent = __UA_Client_AsyncService(client.get(), request.Get(), &request.GetType(),
                                                 take, &FindResponse(request.GetType()),
                                                 pending.get(), nullptr) == UA_STATUSCODE_GOOD;
    if (isSent)
        static_cast<void>(pending.release()); // belongs to the answer now
    return isSent;
}

bool LibraryClient::TakeAnswers()
{
    return UA_Client_run_iterate(client.get(), 0) == UA_STATUSCODE_GOOD;
}

} // namespace Fuzz
