#pragma once

#include "Core/Export.h"

#include <string>
#include <vector>

namespace Core {

/// The namespaces of this process. All its address spaces share one table, since modules keep the
/// index of their namespace as long as they are loaded; an index never changes. All operations may
/// be called from any thread.
class CORE_API NamespaceMap
{
public:
    /// Namespace 0, the base types (OPC 10000-3 and -5).
    static constexpr const char* baseUri = "http://opcfoundation.org/UA/";
    /// Namespace 1, the host's own nodes.
    static constexpr const char* hostUri = "urn:Talvensor:Core";

    /// Returns the index of a registered namespace. Throws NotFoundException for any other.
    [[nodiscard]] static int GetNamespaceIndex(const std::string& uri);

    /// Returns the URI of an index. Throws NotFoundException when no namespace has it.
    [[nodiscard]] static std::string GetUri(int namespaceIndex);

    /// Registers a namespace, if it is not registered yet, and returns its index. Throws
    /// InvalidArgumentException for an empty URI.
    static int Register(const std::string& uri);

    /// Returns all URIs; the position is the index.
    [[nodiscard]] static std::vector<std::string> GetUris();
};

} // namespace Core
