#pragma once

#include "Core/Export.h"
#include "Core/Guid.h"

#include <cstddef>
#include <memory>
#include <string>
#include <variant>

namespace Core {

/// The identifier of a node: a namespace index and a number, a text or a Guid. Immutable; cheap to
/// copy, since copies share the text. Moving from one leaves it empty.
class CORE_API NodeId
{
public:
    /// The empty identifier.
    NodeId() noexcept = default;
    NodeId(int namespaceIndex, unsigned int numericId) noexcept;
    NodeId(int namespaceIndex, std::string text);
    NodeId(int namespaceIndex, const Guid& guid) noexcept;
    NodeId(const NodeId&) noexcept;
    NodeId(NodeId&& other) noexcept;
    NodeId& operator=(const NodeId&) noexcept;
    NodeId& operator=(NodeId&& other) noexcept;
    ~NodeId();

    /// The empty identifier: number 0 in namespace 0.
    [[nodiscard]] static const NodeId& Empty() noexcept;

    [[nodiscard]] bool IsEmpty() const noexcept;
    [[nodiscard]] int GetNamespaceIndex() const noexcept { return namespaceIndex; }

    /// Return null when the identifier has another form; valid as long as this object lives.
    [[nodiscard]] const unsigned int* GetNumeric() const noexcept;
    [[nodiscard]] const std::string* GetText() const noexcept;
    [[nodiscard]] const Guid* GetGuid() const noexcept;

    /// Returns "ns=1;i=5", "ns=1;s=name" or "ns=1;g=<32 digits>"; without the namespace when that
    /// is 0.
    [[nodiscard]] std::string ToString() const;

    friend CORE_API bool operator==(const NodeId& left, const NodeId& right) noexcept;

private:
    using SharedText = std::shared_ptr<const std::string>;

    int namespaceIndex = 0;
    std::variant<unsigned int, SharedText, Guid> identifier{0U};
};

CORE_API bool operator==(const NodeId& left, const NodeId& right) noexcept;

struct CORE_API HashNodeId
{
    std::size_t operator()(const NodeId& nodeId) const noexcept;
};

} // namespace Core
