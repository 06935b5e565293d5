#include "Endpoint/NodeKeys.h"

#include "Endpoint/Ua.h"

#include <cstddef>
#include <string_view>

namespace Host {
namespace {

/// The length that the standard allows, in characters; a byte is at most one of them.
constexpr std::size_t longestKey = 4'096;

bool IsValid(const std::string& key)
{
    return !key.empty() && key.size() <= longestKey && key.find('\0') == std::string::npos;
}

} // namespace

std::optional<std::string> ToIdentifier(const std::string& key)
{
    if (!IsValid(key))
        return std::nullopt;
    return EscapeToUtf8(key);
}

std::optional<std::string> ToKey(const UA_NodeId& id)
{
    constexpr std::size_t longestEscape = 4;
    if (id.identifierType != UA_NODEIDTYPE_STRING ||
        id.identifier.string.length > longestEscape * longestKey)
        return std::nullopt;
    const std::string_view text = OpcUa::BytesOf(id.identifier.string);
    std::string key = UnescapeFromUtf8(text);
    if (!IsValid(key) || EscapeToUtf8(key) != text)
        return std::nullopt;
    return key;
}

} // namespace Host
