#include "Core/NamespaceMap.h"

#include "Core/Exception.h"

#include "Support/Mutex.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <optional>

namespace Core {
namespace {

struct Table
{
    Support::SharedMutex mutex;
    std::vector<std::string> uris GUARDED_BY(mutex){NamespaceMap::baseUri, NamespaceMap::hostUri};

    [[nodiscard]] std::optional<int> Find(const std::string& uri) const REQUIRES_SHARED(mutex)
    {
        const auto found = std::find(uris.begin(), uris.end(), uri);
        if (found == uris.end())
            return std::nullopt;
        return static_cast<int>(found - uris.begin());
    }
};

Table& GetTable()
{
    // Never destroyed, since modules may call until the very end of the process.
    static auto& table = *new Table;
    return table;
}

} // namespace

int NamespaceMap::GetNamespaceIndex(const std::string& uri)
{
    auto& table = GetTable();
    const Support::ReadLock lock(table.mutex);
    if (const auto index = table.Find(uri))
        return *index;
    throw NotFoundException(fmt::format("the namespace '{}' is not registered", uri));
}

std::string NamespaceMap::GetUri(int namespaceIndex)
{
    auto& table = GetTable();
    const Support::ReadLock lock(table.mutex);
    const auto position = static_cast<std::size_t>(namespaceIndex); // too large for a negative one
    if (position >= table.uris.size())
        throw NotFoundException(fmt::format("no namespace has the index {}", namespaceIndex));
    return table.uris[position];
}

int NamespaceMap::Register(const std::string& uri)
{
    if (uri.empty())
        throw InvalidArgumentException("cannot register a namespace without a URI");
    auto& table = GetTable();
    const Support::Lock lock(table.mutex);
    if (const auto index = table.Find(uri))
        return *index;
    table.uris.push_back(uri);
    return static_cast<int>(table.uris.size() - 1);
}

std::vector<std::string> NamespaceMap::GetUris()
{
    auto& table = GetTable();
    const Support::ReadLock lock(table.mutex);
    return table.uris;
}

} // namespace Core
