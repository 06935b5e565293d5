#pragma once

#include "Core/Export.h"

#include <compare>
#include <string>

namespace Core {

/// A name within a namespace, such as the browse name of a node or of an event field.
class CORE_API QualifiedName
{
public:
    QualifiedName() = default;
    QualifiedName(int namespaceIndex, std::string name);

    [[nodiscard]] int GetNamespaceIndex() const noexcept { return namespaceIndex; }
    [[nodiscard]] const std::string& GetName() const noexcept { return name; }

    /// Returns "index:name", or the name alone in namespace 0.
    [[nodiscard]] std::string ToString() const;

    // NOLINTNEXTLINE(modernize-use-nullptr): sees a null pointer in what the compiler writes
    friend auto operator<=>(const QualifiedName&, const QualifiedName&) = default;

private:
    int namespaceIndex = 0;
    std::string name;
};

} // namespace Core
