#include "Core/QualifiedName.h"

#include <fmt/format.h>

#include <utility>

namespace Core {

QualifiedName::QualifiedName(int namespaceIndex, std::string name)
    : namespaceIndex(namespaceIndex)
    , name(std::move(name))
{}

std::string QualifiedName::ToString() const
{
    return namespaceIndex == 0 ? name : fmt::format("{}:{}", namespaceIndex, name);
}

} // namespace Core
