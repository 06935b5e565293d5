#pragma once

#include "Client/FileSystem.h"

#include <open62541/types.h>

#include <array>
#include <vector>

namespace Client {

/// An entry of a listing as the OPC UA library decodes it.
struct ListItem
{
    UA_String path;
    UA_DateTime dateTime;
    UA_Boolean isDirectory;
};

/// Describes `ListItem` to the OPC UA library, so that it decodes the entries where they arrive.
class ListItemType
{
public:
    ListItemType() = default;
    ListItemType(const ListItemType&) = delete;
    ListItemType& operator=(const ListItemType&) = delete;
    ~ListItemType() = default;

    /// Returns the description for a server; it is valid until the next call. `files`: the index
    /// of the namespace that the type belongs to.
    [[nodiscard]] const UA_DataTypeArray& Describe(UA_UInt16 files) noexcept;

private:
    std::array<UA_DataTypeMember, 3> members{};
    UA_DataType type{};
    UA_DataTypeArray types{nullptr, 1, &type, false};
};

/// Returns the entries of a list event's field. Throws std::bad_alloc.
[[nodiscard]] std::vector<ListEntry> TakeEntries(const UA_Variant& content);

} // namespace Client
