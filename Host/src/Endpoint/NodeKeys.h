#pragma once

#include <open62541/types.h>

#include <optional>
#include <string>

namespace Host {

// The keys of provided nodes are any bytes; their identifiers are texts that go through the escape
// of OpcUa/Text.h. Each key has one identifier.

/// Returns the identifier of a key; nothing for a key that cannot have one: an empty or very long
/// one, and one with a NUL.
[[nodiscard]] std::optional<std::string> ToIdentifier(const std::string& key);

/// Returns the key of an identifier; nothing for one that `ToIdentifier` does not make.
[[nodiscard]] std::optional<std::string> ToKey(const UA_NodeId& id);

} // namespace Host
