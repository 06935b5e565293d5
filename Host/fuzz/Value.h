#pragma once

#include <open62541/types.h>
#include <open62541/types_generated.h>

#include <new>
#include <utility>

namespace Fuzz {

/// Owns a value of any of the library's types.
class Value
{
public:
    explicit Value(const UA_DataType& type)
        : type(&type)
        , data(UA_new(&type))
    {
        if (data == nullptr)
            throw std::bad_alloc();
    }
    Value(Value&& other) noexcept
        : type(other.type)
        , data(std::exchange(other.data, nullptr))
    {}
    Value& operator=(Value&& other) noexcept
    {
        std::swap(type, other.type);
        std::swap(data, other.data);
        return *this;
    }
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;
    ~Value()
    {
        if (data != nullptr)
            UA_delete(data, type);
    }

    [[nodiscard]] const UA_DataType& GetType() const noexcept { return *type; }
    [[nodiscard]] void* Get() noexcept { return data; }
    [[nodiscard]] const void* Get() const noexcept { return data; }
    /// Returns the value as a T. REQUIRES: the type describes a T, or its first member is one.
    template <typename T>
    [[nodiscard]] T& As() noexcept
    {
        return *static_cast<T*>(data);
    }

private:
    const UA_DataType* type;
    void* data;
};

} // namespace Fuzz
