#include "Core/NodeId.h"

#include <fmt/format.h>

#include <functional>
#include <utility>

namespace Core {

NodeId::NodeId(int namespaceIndex, unsigned int numericId) noexcept
    : namespaceIndex(namespaceIndex)
    , identifier(numericId)
{}

NodeId::NodeId(int namespaceIndex, std::string text)
    : namespaceIndex(namespaceIndex)
    , identifier(std::make_shared<const std::string>(std::move(text)))
{}

NodeId::NodeId(int namespaceIndex, const Guid& guid) noexcept
    : namespaceIndex(namespaceIndex)
    , identifier(guid)
{}

NodeId::NodeId(const NodeId&) noexcept = default;
NodeId& NodeId::operator=(const NodeId&) noexcept = default;
NodeId::~NodeId() = default;

NodeId::NodeId(NodeId&& other) noexcept
{
    *this = std::move(other);
}

NodeId& NodeId::operator=(NodeId&& other) noexcept
{
    namespaceIndex = std::exchange(other.namespaceIndex, 0);
    identifier = std::exchange(other.identifier, 0U);
    return *this;
}

const NodeId& NodeId::Empty() noexcept
{
    // Never destroyed, since modules may call until the very end of the process.
    // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): without memory for this nothing runs
    static const auto& empty = *new NodeId;
    return empty;
}

bool NodeId::IsEmpty() const noexcept
{
    const auto* number = GetNumeric();
    return namespaceIndex == 0 && number != nullptr && *number == 0;
}

const unsigned int* NodeId::GetNumeric() const noexcept
{
    return std::get_if<unsigned int>(&identifier);
}

const std::string* NodeId::GetText() const noexcept
{
    const auto* text = std::get_if<SharedText>(&identifier);
    return text == nullptr ? nullptr : text->get();
}

const Guid* NodeId::GetGuid() const noexcept
{
    return std::get_if<Guid>(&identifier);
}

std::string NodeId::ToString() const
{
    const auto prefix = namespaceIndex == 0 ? std::string() : fmt::format("ns={};", namespaceIndex);
    if (const auto* text = GetText())
        return fmt::format("{}s={}", prefix, *text);
    if (const auto* guid = GetGuid())
        return fmt::format("{}g={}", prefix, guid->ToString());
    return fmt::format("{}i={}", prefix, *GetNumeric());
}

bool operator==(const NodeId& left, const NodeId& right) noexcept
{
    const auto haveEqual = [](const auto* own, const auto* other) {
        return own == nullptr ? other == nullptr : other != nullptr && *own == *other;
    };
    return left.namespaceIndex == right.namespaceIndex &&
           haveEqual(left.GetNumeric(), right.GetNumeric()) &&
           haveEqual(left.GetText(), right.GetText()) && haveEqual(left.GetGuid(), right.GetGuid());
}

std::size_t HashNodeId::operator()(const NodeId& nodeId) const noexcept
{
    std::size_t hash = 0;
    if (const auto* text = nodeId.GetText())
        hash = std::hash<std::string>{}(*text);
    else if (const auto* guid = nodeId.GetGuid())
        hash = HashGuid{}(*guid);
    else
        hash = std::hash<unsigned int>{}(*nodeId.GetNumeric());
    // An odd factor spreads the small namespace indices over all bits.
    return hash ^ (static_cast<std::size_t>(nodeId.GetNamespaceIndex()) * 0x9E3779B97F4A7C15U);
}

} // namespace Core
