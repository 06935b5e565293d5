#pragma once

#include <open62541/types.h>
#include <open62541/types_generated.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace OpcUa {

/// The description of one of the library's own types.
template <typename T>
inline constexpr std::size_t uaTypeIndex = UA_TYPES_COUNT;
template <>
inline constexpr std::size_t uaTypeIndex<UA_NodeId> = UA_TYPES_NODEID;
template <>
inline constexpr std::size_t uaTypeIndex<UA_Variant> = UA_TYPES_VARIANT;
template <>
inline constexpr std::size_t uaTypeIndex<UA_Argument> = UA_TYPES_ARGUMENT;
template <>
inline constexpr std::size_t uaTypeIndex<UA_QualifiedName> = UA_TYPES_QUALIFIEDNAME;
template <>
inline constexpr std::size_t uaTypeIndex<UA_CallMethodRequest> = UA_TYPES_CALLMETHODREQUEST;
template <>
inline constexpr std::size_t uaTypeIndex<UA_CallMethodResult> = UA_TYPES_CALLMETHODRESULT;

/// Owns a value of the library and clears it at the end. Movable, not copyable.
template <typename T>
class Ua
{
    static_assert(uaTypeIndex<T> < UA_TYPES_COUNT, "name the type above");

public:
    Ua() noexcept { UA_init(&value, &Type()); }
    /// Takes over the contents of the value.
    explicit Ua(const T& taken) noexcept
        : value(taken)
    {}
    Ua(Ua&& other) noexcept
        : value(other.Release())
    {}
    Ua& operator=(Ua&& other) noexcept
    {
        std::swap(value, other.value);
        return *this;
    }
    Ua(const Ua&) = delete;
    Ua& operator=(const Ua&) = delete;
    ~Ua() { UA_clear(&value, &Type()); }

    [[nodiscard]] static const UA_DataType& Type() noexcept { return UA_TYPES[uaTypeIndex<T>]; }

    T& operator*() noexcept { return value; }
    const T& operator*() const noexcept { return value; }
    T* operator->() noexcept { return &value; }
    const T* operator->() const noexcept { return &value; }

    /// Returns the contents, and is empty afterwards.
    [[nodiscard]] T Release() noexcept
    {
        T released = value;
        UA_init(&value, &Type());
        return released;
    }

private:
    T value;
};

/// Returns a view of a text, for calls that copy their arguments; valid as long as the text.
[[nodiscard]] inline UA_String ViewOf(std::string_view text) noexcept
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the library only reads it
    return {text.size(), reinterpret_cast<UA_Byte*>(const_cast<char*>(text.data()))};
}

[[nodiscard]] inline UA_LocalizedText LocalizedViewOf(std::string_view text) noexcept
{
    return {UA_STRING_NULL, ViewOf(text)};
}

/// Returns the bytes of a string or byte string of the library; valid as long as the string.
[[nodiscard]] inline std::string_view BytesOf(const UA_String& string) noexcept
{
    return {reinterpret_cast<const char*>(string.data), string.length};
}

} // namespace OpcUa
