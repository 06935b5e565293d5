#include "ServerFacts.h"

#include "Status.h"
#include "StatusWords.h"

#include <OpcUa/Ua.h>

#include <open62541/client_highlevel.h>

#include <algorithm>

namespace Client {

namespace {

using OpcUa::BytesOf;

constexpr const char* filesUri = "urn:Talvensor:FileSystem";
constexpr const char* objectsUri = "urn:Talvensor:FileObjects";
constexpr const char* hostUri = "urn:Talvensor:Host";
constexpr const char* coreUri = "urn:Talvensor:Core"; // built in, not brought

/// Returns a value; empty when there is none.
OpcUa::Ua<UA_Variant> ReadValue(UA_Client& client, UA_UInt32 number)
{
    OpcUa::Ua<UA_Variant> value;
    const UA_StatusCode status =
        UA_Client_readValueAttribute(&client, UA_NODEID_NUMERIC(0, number), &*value);
    if (IsLoss(status))
        throw ConnectionLostException("the connection was lost: " + DescribeStatus(status));
    return value;
}

UA_UInt32 ReadNumber(UA_Client& client, UA_UInt32 number)
{
    const auto value = ReadValue(client, number);
    return UA_Variant_hasScalarType(&*value, &UA_TYPES[UA_TYPES_UINT32])
               ? *static_cast<const UA_UInt32*>(value->data)
               : 0;
}

Namespaces ReadNamespaces(UA_Client& client, const std::string& url)
{
    const auto value = ReadValue(client, UA_NS0ID_SERVER_NAMESPACEARRAY);
    if (!UA_Variant_hasArrayType(&*value, &UA_TYPES[UA_TYPES_STRING]))
        throw NoConnectionException(url + " does not announce its namespaces");
    Namespaces namespaces;
    for (std::size_t i = 0; i < value->arrayLength; ++i)
        namespaces.uris.emplace_back(BytesOf(static_cast<const UA_String*>(value->data)[i]));
    const auto find = [&](const char* uri) {
        const auto found = std::find(namespaces.uris.begin(), namespaces.uris.end(), uri);
        if (found == namespaces.uris.end())
            throw NoConnectionException(url + " serves no files: it has no namespace " + uri);
        return static_cast<UA_UInt16>(found - namespaces.uris.begin());
    };
    namespaces.files = find(filesUri);
    namespaces.host = find(hostUri);
    const auto objects = std::find(namespaces.uris.begin(), namespaces.uris.end(), objectsUri);
    if (objects != namespaces.uris.end())
        namespaces.objects = static_cast<UA_UInt16>(objects - namespaces.uris.begin());
    return namespaces;
}

/// Returns the names of the file systems that all clients share.
std::vector<std::string> BrowseSharedNodes(UA_Client& client, const Namespaces& namespaces)
{
    std::vector<std::string> names;
    UA_BrowseDescription description{};
    description.nodeId = UA_NODEID_NUMERIC(namespaces.host, fileSystemsFolder);
    description.resultMask = UA_BROWSERESULTMASK_ALL;
    description.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
    description.includeSubtypes = true;
    description.nodeClassMask = UA_NODECLASS_OBJECT;
    UA_BrowseRequest request{};
    request.nodesToBrowse = &description;
    request.nodesToBrowseSize = 1;
    UA_BrowseResponse response = UA_Client_Service_browse(&client, request);
    for (std::size_t i = 0; response.resultsSize == 1 && i < response.results[0].referencesSize;
         ++i) {
        const auto& reference = response.results[0].references[i];
        if (reference.nodeId.nodeId.identifierType == UA_NODEIDTYPE_STRING)
            names.emplace_back(BytesOf(reference.browseName.name));
    }
    UA_BrowseResponse_clear(&response);
    return names;
}

} // namespace

std::string GetSessionToken(UA_Client& client)
{
    OpcUa::Ua<UA_NodeId> token;
    UA_ByteString nonce = UA_BYTESTRING_NULL;
    if (UA_Client_getSessionAuthenticationToken(&client, &*token, &nonce) != UA_STATUSCODE_GOOD)
        return {};
    UA_ByteString_clear(&nonce);
    UA_String text = UA_STRING_NULL;
    UA_NodeId_print(&*token, &text);
    std::string result(BytesOf(text));
    UA_String_clear(&text);
    return result;
}

void SessionFacts::Read(UA_Client& client, const std::string& url)
{
    std::string token = GetSessionToken(client);
    if (!session.empty() && token == session)
        return;
    namespaces = ReadNamespaces(client, url);
    UA_Client_getConfig(&client)->customDataTypes = &listItem.Describe(namespaces.files);
    session = std::move(token);
}

void AskServer(UA_Client& client, const Namespaces& namespaces, ServerInfo& info)
{
    info.namespaces = namespaces.uris;
    for (const auto& uri : namespaces.uris)
        if (uri.starts_with("urn:Talvensor:") && uri != hostUri && uri != coreUri)
            info.modules.push_back(uri);
    const auto build = ReadValue(client, UA_NS0ID_SERVER_SERVERSTATUS_BUILDINFO);
    if (UA_Variant_hasScalarType(&*build, &UA_TYPES[UA_TYPES_BUILDINFO])) {
        const auto& told = *static_cast<const UA_BuildInfo*>(build->data);
        info.productName = BytesOf(told.productName);
        info.softwareVersion = BytesOf(told.softwareVersion);
    }
    info.maximumByteString =
        ReadNumber(client, UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXBYTESTRINGLENGTH);
    info.maximumArray = ReadNumber(client, UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXARRAYLENGTH);
    info.maximumCalls = ReadNumber(
        client, UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERMETHODCALL);
    info.sharedNodes = BrowseSharedNodes(client, namespaces);
}

} // namespace Client
