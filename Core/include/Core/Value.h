#pragma once

#include "Core/DateTime.h"
#include "Core/Export.h"
#include "Core/NodeId.h"
#include "Core/Struct.h"

#include <concepts>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace Core {

/// The type of a value, or of the elements of an array value.
enum class ValueKind
{
    Empty,
    Boolean,
    SByte,
    Byte,
    Int16,
    UInt16,
    Int32,
    UInt32,
    Int64,
    UInt64,
    Float,
    Double,
    Text,
    ByteString,
    DateTime,
    NodeId,
    Struct,
};

/// Returns the name of a kind, as error texts show it.
[[nodiscard]] CORE_API const char* ToString(ValueKind kind) noexcept;

template <typename T, typename... Others>
concept OneOf = (std::same_as<T, Others> || ...);

/// Booleans and numbers. A value takes exactly these and converts nothing to them, so a pointer or
/// a text literal never becomes a boolean.
template <typename T>
concept SimpleValue = OneOf<T, bool, signed char, unsigned char, short, unsigned short, int,
                            unsigned int, long, unsigned long, float, double>;

/// The types of array elements.
template <typename T>
concept ElementValue =
    SimpleValue<T> || OneOf<T, std::string, std::vector<unsigned char>, DateTime, NodeId, Struct>;

/// A variant: nothing, one scalar, or an array of scalars with its dimensions. Arrays are immutable
/// and the copies of a value share them, so copying a listing of 61440 entries is cheap; different
/// threads may use different copies. Moving from a value leaves it empty.
class CORE_API Value
{
public:
    using ByteString = std::vector<unsigned char>;
    using Dimensions = std::vector<unsigned int>;

    /// Empty.
    Value() noexcept;
    Value(const Value&);
    Value(Value&& other) noexcept;
    Value& operator=(const Value&);
    Value& operator=(Value&& other) noexcept;
    ~Value();

    template <SimpleValue T>
    Value(T scalar) noexcept
        : held(std::in_place_type<T>, scalar)
    {}
    /// Makes a text. Throws InvalidArgumentException for a null pointer.
    Value(const char* text);
    Value(const std::string& text);
    Value(std::string&& text) noexcept;
    Value(const DateTime& dateTime) noexcept;
    Value(DateTime&& dateTime) noexcept;
    Value(const NodeId& nodeId) noexcept;
    Value(const Struct& structure);
    Value(Struct&& structure) noexcept;

    /// Make arrays of one dimension.
    Value(const std::vector<Struct>& structures);
    Value(std::vector<Struct>&& structures);
    Value(const std::vector<std::string>& texts);

    /// Make a byte string when `isByteString` is true, otherwise an array of bytes.
    Value(const ByteString& bytes, bool isByteString);
    Value(ByteString&& bytes, bool isByteString);

    /// Makes an array with the lengths of its dimensions, the last varying fastest. Throws
    /// InvalidArgumentException without a dimension, or when the product of the lengths is not the
    /// number of elements.
    template <ElementValue T>
    [[nodiscard]] static Value MakeArray(std::vector<T> elements, Dimensions dimensions);

    /// Returns the held scalar, converted: integers to any integer type that can hold the number,
    /// float to double, everything else only to itself. For vectors of element types, returns a
    /// copy of the elements of an array of exactly that type, all dimensions in one;
    /// `std::vector<unsigned char>` takes a byte string or an array of bytes. Throws
    /// TypeMismatchException naming both types, OutOfRangeException for a number that does not fit.
    template <typename T>
    [[nodiscard]] T Get() const;

    /// Returns the element of an array at an index for each dimension, converted like a scalar.
    /// Throws TypeMismatchException when this is no array, OutOfRangeException when the index has
    /// another number of dimensions or lies outside.
    template <typename T>
    [[nodiscard]] T Get(const Dimensions& index) const;

    /// Returns the elements of an array without a copy; valid as long as this value or a copy of it
    /// lives unchanged. Throws TypeMismatchException when the elements are not exactly of type T.
    template <ElementValue T>
    [[nodiscard]] const std::vector<T>& GetElements() const;

    /// Return the held byte string or text without a copy; valid and failing like GetElements.
    [[nodiscard]] const ByteString& GetByteString() const;
    [[nodiscard]] const std::string& GetText() const;
    /// Returns the bytes of Get<ByteString>, of a byte string or an array of bytes, without a copy.
    [[nodiscard]] const ByteString& GetBytes() const;
    [[nodiscard]] const Struct& GetStruct() const;

    /// Returns the length of each dimension; empty for a scalar.
    [[nodiscard]] Dimensions GetArrayDimensions() const;

    [[nodiscard]] ValueKind GetKind() const noexcept;
    [[nodiscard]] bool IsEmpty() const noexcept;
    [[nodiscard]] bool IsArray() const noexcept;

    /// Returns a text for logs and error messages. Shortens long contents.
    [[nodiscard]] std::string ToString() const;

    /// True for the same kind, dimensions and contents; numbers of different kinds differ.
    friend CORE_API bool operator==(const Value& left, const Value& right);

private:
    struct Array;
    using SharedArray = std::shared_ptr<const Array>;
    using Held = std::variant<std::monostate, bool, signed char, unsigned char, short,
                              unsigned short, int, unsigned int, long, unsigned long, float, double,
                              std::string, ByteString, DateTime, NodeId, Struct, SharedArray>;

    template <ElementValue T>
    [[nodiscard]] static SharedArray Share(std::vector<T> elements, Dimensions dimensions);
    template <typename T>
    [[nodiscard]] const T& RequireScalar() const;
    [[nodiscard]] std::string GetTypeName() const;
    void Describe(std::string& text, unsigned int depth) const;

    Held held;
};

} // namespace Core
