#include "Core/Events.h"
#include "Core/Exception.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace Core {

EventArguments::EventArguments(std::vector<QualifiedName> fields)
    : fields(std::move(fields))
{}

unsigned int EventArguments::GetFieldIndex(const QualifiedName& name) const
{
    const auto field = std::find(fields.begin(), fields.end(), name);
    if (field == fields.end())
        throw NotFoundException(fmt::format("The event type has no field '{}'", name.ToString()));
    return static_cast<unsigned int>(field - fields.begin());
}

unsigned int EventArguments::GetFieldsSize() const noexcept
{
    return static_cast<unsigned int>(fields.size());
}

} // namespace Core
