#include "Core/Struct.h"

#include "Core/Value.h"

#include <utility>

namespace Core {

Struct::Struct() noexcept = default;

Struct::Struct(std::initializer_list<Value> fields)
    : fields(fields)
{}

Struct::Struct(std::vector<Value> fields) noexcept
    : fields(std::move(fields))
{}

Struct::Struct(const Struct&) = default;
Struct::Struct(Struct&&) noexcept = default;
Struct& Struct::operator=(const Struct&) = default;
Struct& Struct::operator=(Struct&&) noexcept = default;
Struct::~Struct() = default;

void Struct::SetDataTypeId(NodeId newDataTypeId) noexcept
{
    dataTypeId = std::move(newDataTypeId);
}

const NodeId& Struct::GetDataTypeId() const noexcept
{
    return dataTypeId;
}

const std::vector<Value>& Struct::GetFields() const noexcept
{
    return fields;
}

bool operator==(const Struct& left, const Struct& right)
{
    return left.dataTypeId == right.dataTypeId && left.fields == right.fields;
}

} // namespace Core
