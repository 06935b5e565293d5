#pragma once

#include "Core/Export.h"
#include "Core/NodeId.h"

#include <initializer_list>
#include <vector>

namespace Core {

class Value;

/// A structure value: the identifier of its data type and the field values in the order of that
/// data type.
class CORE_API Struct
{
public:
    Struct() noexcept;
    Struct(std::initializer_list<Value> fields);
    explicit Struct(std::vector<Value> fields) noexcept;
    Struct(const Struct&);
    Struct(Struct&&) noexcept;
    Struct& operator=(const Struct&);
    Struct& operator=(Struct&&) noexcept;
    ~Struct();

    void SetDataTypeId(NodeId dataTypeId) noexcept;
    [[nodiscard]] const NodeId& GetDataTypeId() const noexcept;
    [[nodiscard]] const std::vector<Value>& GetFields() const noexcept;

    friend CORE_API bool operator==(const Struct& left, const Struct& right);

private:
    NodeId dataTypeId;
    std::vector<Value> fields;
};

} // namespace Core
