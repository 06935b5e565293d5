#include "Endpoint/Namespaces.h"

#include "Core/Exception.h"
#include "Core/NamespaceMap.h"
#include "Endpoint/Ua.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>

namespace Host {
namespace {

/// Returns the bytes of a Guid in the order of its written digits.
std::array<unsigned char, 16> BytesOf(const UA_Guid& guid)
{
    std::array<unsigned char, 16> bytes{};
    for (std::size_t i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(guid.data1 >> (24U - 8U * i));
    for (std::size_t i = 0; i < 2; ++i) {
        bytes[4 + i] = static_cast<unsigned char>(guid.data2 >> (8U - 8U * i));
        bytes[6 + i] = static_cast<unsigned char>(guid.data3 >> (8U - 8U * i));
    }
    std::copy(std::begin(guid.data4), std::end(guid.data4), bytes.begin() + 8);
    return bytes;
}

UA_Guid GuidOf(const std::array<unsigned char, 16>& bytes)
{
    UA_Guid guid{};
    for (std::size_t i = 0; i < 4; ++i)
        guid.data1 = (guid.data1 << 8U) | bytes[i];
    for (std::size_t i = 0; i < 2; ++i) {
        guid.data2 = static_cast<UA_UInt16>((guid.data2 << 8U) | bytes[4 + i]);
        guid.data3 = static_cast<UA_UInt16>((guid.data3 << 8U) | bytes[6 + i]);
    }
    std::copy(bytes.begin() + 8, bytes.end(), std::begin(guid.data4));
    return guid;
}

} // namespace

Namespaces::Namespaces(UA_Server& server)
{
    for (const std::string& uri : Core::NamespaceMap::GetUris())
        uaIndexes.push_back(uri == Core::NamespaceMap::baseUri
                                ? UA_UInt16{0}
                                : UA_Server_addNamespace(&server, uri.c_str()));
}

UA_UInt16 Namespaces::ToUa(int coreIndex) const
{
    if (coreIndex < 0 || static_cast<std::size_t>(coreIndex) >= uaIndexes.size())
        throw Core::NotFoundException("clients do not know the host's namespace " +
                                      std::to_string(coreIndex));
    return uaIndexes[static_cast<std::size_t>(coreIndex)];
}

int Namespaces::ToCore(UA_UInt16 uaIndex) const
{
    const auto found = std::find(uaIndexes.begin(), uaIndexes.end(), uaIndex);
    if (found == uaIndexes.end())
        throw Core::NotFoundException("the host does not know the clients' namespace " +
                                      std::to_string(uaIndex));
    return static_cast<int>(found - uaIndexes.begin());
}

Ua<UA_NodeId> Namespaces::ToUa(const Core::NodeId& nodeId) const
{
    const UA_UInt16 index = ToUa(nodeId.GetNamespaceIndex());
    if (const auto* text = nodeId.GetText())
        return Ua<UA_NodeId>(UA_NODEID_STRING_ALLOC(index, EscapeToUtf8(*text).c_str()));
    if (const auto* guid = nodeId.GetGuid())
        return Ua<UA_NodeId>(UA_NODEID_GUID(index, GuidOf(guid->GetBytes())));
    return Ua<UA_NodeId>(UA_NODEID_NUMERIC(index, *nodeId.GetNumeric()));
}

Core::NodeId Namespaces::ToCore(const UA_NodeId& nodeId) const
{
    const int index = ToCore(nodeId.namespaceIndex);
    switch (nodeId.identifierType) {
    case UA_NODEIDTYPE_NUMERIC:
        return {index, nodeId.identifier.numeric};
    case UA_NODEIDTYPE_STRING:
        return {index, UnescapeFromUtf8(Host::BytesOf(nodeId.identifier.string))};
    case UA_NODEIDTYPE_GUID:
        return {index, Core::Guid(BytesOf(nodeId.identifier.guid))};
    case UA_NODEIDTYPE_BYTESTRING:
        break;
    }
    throw Core::NotFoundException("the host has no nodes with opaque identifiers");
}

UA_QualifiedName Namespaces::ToUaView(const Core::QualifiedName& name) const
{
    return {ToUa(name.GetNamespaceIndex()), ViewOf(name.GetName())};
}

} // namespace Host
