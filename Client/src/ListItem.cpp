#include "ListItem.h"

#include "UaTimes.h"

#include <OpcUa/Text.h>
#include <OpcUa/Ua.h>

#include <cstddef>

namespace Client {

namespace {

constexpr UA_UInt32 listItemNumber = 50;
constexpr UA_UInt32 listItemEncoding = 1320;

UA_DataTypeMember DescribeMember(const char* name, std::size_t type) noexcept
{
    UA_DataTypeMember described{};
    described.memberName = name;
    described.memberType = &UA_TYPES[type];
    return described;
}

} // namespace

const UA_DataTypeArray& ListItemType::Describe(UA_UInt16 files) noexcept
{
    // No padding between them.
    static_assert(offsetof(ListItem, dateTime) == sizeof(UA_String));
    static_assert(offsetof(ListItem, isDirectory) == sizeof(UA_String) + sizeof(UA_DateTime));
    members = {DescribeMember("path", UA_TYPES_STRING),
               DescribeMember("dateTime", UA_TYPES_DATETIME),
               DescribeMember("isDirectory", UA_TYPES_BOOLEAN)};
    type = {};
    type.typeName = "ListItem";
    type.typeId = UA_NODEID_NUMERIC(files, listItemNumber);
    type.binaryEncodingId = UA_NODEID_NUMERIC(files, listItemEncoding);
    type.memSize = sizeof(ListItem);
    type.typeKind = UA_DATATYPEKIND_STRUCTURE;
    type.membersSize = members.size() & 0xFFU;
    type.members = members.data();
    return types;
}

std::vector<ListEntry> TakeEntries(const UA_Variant& content)
{
    std::vector<ListEntry> entries;
    if (content.type == nullptr || UA_Variant_isScalar(&content))
        return entries;
    entries.reserve(content.arrayLength);
    const auto add = [&entries](const ListItem& item) {
        entries.push_back({OpcUa::UnescapeFromUtf8(OpcUa::BytesOf(item.path)),
                           ToFileTime(item.dateTime), item.isDirectory});
    };
    if (content.type->memSize == sizeof(ListItem) &&
        content.type->typeKind == UA_DATATYPEKIND_STRUCTURE) {
        for (std::size_t i = 0; i < content.arrayLength; ++i)
            add(static_cast<const ListItem*>(content.data)[i]);
        return entries;
    }
    if (content.type != &UA_TYPES[UA_TYPES_EXTENSIONOBJECT])
        return entries;
    for (std::size_t i = 0; i < content.arrayLength; ++i) {
        const auto& object = static_cast<const UA_ExtensionObject*>(content.data)[i];
        const bool isDecoded = object.encoding == UA_EXTENSIONOBJECT_DECODED ||
                               object.encoding == UA_EXTENSIONOBJECT_DECODED_NODELETE;
        if (isDecoded && object.content.decoded.type->memSize == sizeof(ListItem))
            add(*static_cast<const ListItem*>(object.content.decoded.data));
    }
    return entries;
}

} // namespace Client
