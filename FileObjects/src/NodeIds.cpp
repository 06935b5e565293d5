#include "NodeIds.h"

#include "Statuses.h"

#include <utility>

namespace FileObjects {

NodeIds::NodeIds(const Keys& keys, Core::NodeId object, int namespaceIndex)
    : keys(keys)
    , object(std::move(object))
    , namespaceIndex(namespaceIndex)
{}

Core::NodeId NodeIds::ToNodeId(const Key& node) const
{
    if (node.kind == NodeKind::FileSystem)
        return object;
    auto text = keys.Format(node);
    if (text.empty())
        Refuse(Status::browseNameInvalid, "", "the path is too long");
    return {namespaceIndex, std::move(text)};
}

std::optional<Key> NodeIds::FromNodeId(const Core::NodeId& id) const
{
    if (id == object)
        return Key();
    const auto* const text = id.GetText();
    if (text == nullptr || text->empty() || id.GetNamespaceIndex() != namespaceIndex)
        return std::nullopt;
    return keys.Parse(*text);
}

} // namespace FileObjects
