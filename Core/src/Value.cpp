#include "Core/Value.h"

#include "Core/Exception.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Core {
namespace {

template <typename T>
constexpr ValueKind kindOf = ValueKind::Empty;
template <>
constexpr ValueKind kindOf<bool> = ValueKind::Boolean;
template <>
constexpr ValueKind kindOf<signed char> = ValueKind::SByte;
template <>
constexpr ValueKind kindOf<unsigned char> = ValueKind::Byte;
template <>
constexpr ValueKind kindOf<short> = ValueKind::Int16;
template <>
constexpr ValueKind kindOf<unsigned short> = ValueKind::UInt16;
template <>
constexpr ValueKind kindOf<int> = ValueKind::Int32;
template <>
constexpr ValueKind kindOf<unsigned int> = ValueKind::UInt32;
template <>
constexpr ValueKind kindOf<long> = ValueKind::Int64;
template <>
constexpr ValueKind kindOf<unsigned long> = ValueKind::UInt64;
template <>
constexpr ValueKind kindOf<float> = ValueKind::Float;
template <>
constexpr ValueKind kindOf<double> = ValueKind::Double;
template <>
constexpr ValueKind kindOf<std::string> = ValueKind::Text;
template <>
constexpr ValueKind kindOf<Value::ByteString> = ValueKind::ByteString;
template <>
constexpr ValueKind kindOf<DateTime> = ValueKind::DateTime;
template <>
constexpr ValueKind kindOf<NodeId> = ValueKind::NodeId;
template <>
constexpr ValueKind kindOf<Struct> = ValueKind::Struct;

using Elements =
    std::variant<std::vector<bool>, std::vector<signed char>, std::vector<unsigned char>,
                 std::vector<short>, std::vector<unsigned short>, std::vector<int>,
                 std::vector<unsigned int>, std::vector<long>, std::vector<unsigned long>,
                 std::vector<float>, std::vector<double>, std::vector<std::string>,
                 std::vector<Value::ByteString>, std::vector<DateTime>, std::vector<NodeId>,
                 std::vector<Struct>>;

template <typename... T>
ValueKind KindOfScalar(const std::variant<T...>& held) noexcept
{
    auto kind = ValueKind::Empty;
    ((kind = std::holds_alternative<T>(held) ? kindOf<T> : kind), ...);
    return kind;
}

template <typename... T>
ValueKind KindOfElements(const std::variant<std::vector<T>...>& elements) noexcept
{
    auto kind = ValueKind::Empty;
    ((kind = std::holds_alternative<std::vector<T>>(elements) ? kindOf<T> : kind), ...);
    return kind;
}

std::string ArrayTypeName(ValueKind elementKind)
{
    return fmt::format("array of {}", ToString(elementKind));
}

[[noreturn]] void ThrowTypeMismatch(std::string_view held, std::string_view wanted)
{
    throw TypeMismatchException(
        fmt::format("a value of type {} cannot be read as {}", held, wanted));
}

template <typename T>
concept Integer = SimpleValue<T> && std::integral<T> && !std::same_as<T, bool>;

template <typename To, typename From>
To Convert(const From& from)
{
    if constexpr (std::same_as<To, From>) {
        return from;
    } else if constexpr (Integer<To> && Integer<From>) {
        if (!std::in_range<To>(from))
            throw OutOfRangeException(fmt::format("the number {} of type {} does not fit into {}",
                                                  from, ToString(kindOf<From>),
                                                  ToString(kindOf<To>)));
        return static_cast<To>(from);
    } else if constexpr (std::same_as<To, double> && std::same_as<From, float>) {
        return static_cast<double>(from);
    } else {
        ThrowTypeMismatch(ToString(kindOf<From>), ToString(kindOf<To>));
    }
}

bool IsProduct(std::size_t product, const Value::Dimensions& factors)
{
    if (std::find(factors.begin(), factors.end(), 0U) != factors.end())
        return product == 0;
    std::size_t soFar = 1;
    for (const auto factor : factors) {
        if (factor > product / soFar) // soFar * factor would exceed product, perhaps overflow
            return false;
        soFar *= factor;
    }
    return soFar == product;
}

void RequireDimensions(std::size_t count, const Value::Dimensions& dimensions)
{
    if (dimensions.empty() || !IsProduct(count, dimensions))
        throw InvalidArgumentException(
            fmt::format("cannot make an array of {} elements with the dimensions [{}]", count,
                        fmt::join(dimensions, ", ")));
}

template <typename T>
Value::Dimensions OneDimension(const std::vector<T>& elements)
{
    if (elements.size() > std::numeric_limits<unsigned int>::max())
        throw InvalidArgumentException(fmt::format(
            "cannot make an array of {} elements: a dimension cannot be so long", elements.size()));
    return {static_cast<unsigned int>(elements.size())};
}

std::size_t OffsetOf(const Value::Dimensions& index, const Value::Dimensions& dimensions)
{
    const auto isInside =
        std::equal(index.begin(), index.end(), dimensions.begin(), dimensions.end(), std::less<>{});
    if (!isInside)
        throw OutOfRangeException(
            fmt::format("the index [{}] lies outside an array with the dimensions [{}]",
                        fmt::join(index, ", "), fmt::join(dimensions, ", ")));
    std::size_t offset = 0;
    for (std::size_t i = 0; i < index.size(); ++i)
        offset = offset * dimensions[i] + index[i];
    return offset;
}

constexpr std::size_t shownBytes = 64;
constexpr std::size_t shownElements = 8;
constexpr std::size_t shownLength = 1000;
constexpr unsigned int shownDepth = 4;

/// Returns the length of the shown beginning, which cuts no UTF-8 sequence apart.
std::size_t ShownLength(std::string_view text)
{
    if (text.size() <= shownBytes)
        return text.size();
    auto length = shownBytes;
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U)
        --length;
    return length;
}

/// Appends contents to a readable text.
class Description
{
public:
    explicit Description(std::string& text)
        : text(text)
    {}

    void Add(std::monostate /*nothing*/) { text += "empty"; }

    template <SimpleValue T>
    void Add(T number)
    {
        Format("{}", number);
    }

    void Add(const std::string& content)
    {
        const auto length = ShownLength(content);
        Format("\"{}\"", std::string_view(content).substr(0, length));
        if (length < content.size())
            Format("... ({} bytes)", content.size());
    }

    void Add(const Value::ByteString& bytes)
    {
        const auto length = std::min(bytes.size(), shownBytes);
        Format("0x{:02x}", fmt::join(bytes.data(), bytes.data() + length, ""));
        if (length < bytes.size())
            Format("... ({} bytes)", bytes.size());
    }

    void Add(const DateTime& dateTime) { text += dateTime.ToISO8601String(); }
    void Add(const NodeId& nodeId) { text += nodeId.ToString(); }

    template <typename Items, typename AddItem>
    void AddList(const Items& items, char open, char close, AddItem addItem)
    {
        text += open;
        std::size_t shown = 0;
        while (shown < std::min(items.size(), shownElements) && text.size() < shownLength) {
            if (shown > 0)
                text += ", ";
            addItem(items[shown]);
            ++shown;
        }
        if (shown < items.size())
            Format("... ({} elements)", items.size());
        text += close;
    }

private:
    template <typename... Arguments>
    void Format(fmt::format_string<Arguments...> format, Arguments&&... arguments)
    {
        fmt::format_to(std::back_inserter(text), format, std::forward<Arguments>(arguments)...);
    }

    std::string& text;
};

template <typename T>
constexpr bool isVector = false;
template <typename T>
constexpr bool isVector<std::vector<T>> = true;

} // namespace

const char* ToString(ValueKind kind) noexcept
{
    switch (kind) {
    case ValueKind::Empty:
        return "Empty";
    case ValueKind::Boolean:
        return "Boolean";
    case ValueKind::SByte:
        return "SByte";
    case ValueKind::Byte:
        return "Byte";
    case ValueKind::Int16:
        return "Int16";
    case ValueKind::UInt16:
        return "UInt16";
    case ValueKind::Int32:
        return "Int32";
    case ValueKind::UInt32:
        return "UInt32";
    case ValueKind::Int64:
        return "Int64";
    case ValueKind::UInt64:
        return "UInt64";
    case ValueKind::Float:
        return "Float";
    case ValueKind::Double:
        return "Double";
    case ValueKind::Text:
        return "Text";
    case ValueKind::ByteString:
        return "ByteString";
    case ValueKind::DateTime:
        return "DateTime";
    case ValueKind::NodeId:
        return "NodeId";
    case ValueKind::Struct:
        return "Struct";
    }
    return "unknown kind";
}

struct Value::Array
{
    Elements elements;
    Dimensions dimensions;

    friend bool operator==(const Array&, const Array&) = default;
};

template <ElementValue T>
Value::SharedArray Value::Share(std::vector<T> elements, Dimensions dimensions)
{
    return std::make_shared<const Array>(Array{std::move(elements), std::move(dimensions)});
}

Value::Value() noexcept = default;
Value::Value(const Value&) = default;
Value& Value::operator=(const Value&) = default;
Value::~Value() = default;

Value::Value(Value&& other) noexcept
    : held(std::exchange(other.held, {}))
{}

Value& Value::operator=(Value&& other) noexcept
{
    if (this != &other)
        held = std::exchange(other.held, {});
    return *this;
}

Value::Value(const char* text)
{
    if (text == nullptr)
        throw InvalidArgumentException("cannot make a text value of a null pointer");
    held.emplace<std::string>(text);
}

Value::Value(const std::string& text)
    : held(text)
{}

Value::Value(std::string&& text) noexcept
    : held(std::move(text))
{}

Value::Value(const DateTime& dateTime) noexcept
    : held(dateTime)
{}

Value::Value(DateTime&& dateTime) noexcept
    : held(dateTime)
{}

Value::Value(const NodeId& nodeId) noexcept
    : held(nodeId)
{}

Value::Value(const Struct& structure)
    : held(structure)
{}

Value::Value(Struct&& structure) noexcept
    : held(std::move(structure))
{}

Value::Value(const std::vector<Struct>& structures)
    : held(Share(structures, OneDimension(structures)))
{}

Value::Value(std::vector<Struct>&& structures)
{
    auto dimensions = OneDimension(structures);
    held = Share(std::move(structures), std::move(dimensions));
}

Value::Value(const std::vector<std::string>& texts)
    : held(Share(texts, OneDimension(texts)))
{}

Value::Value(const ByteString& bytes, bool isByteString)
    : Value(ByteString(bytes), isByteString)
{}

Value::Value(ByteString&& bytes, bool isByteString)
{
    if (isByteString) {
        held = std::move(bytes);
    } else {
        auto dimensions = OneDimension(bytes);
        held = Share(std::move(bytes), std::move(dimensions));
    }
}

template <ElementValue T>
Value Value::MakeArray(std::vector<T> elements, Dimensions dimensions)
{
    RequireDimensions(elements.size(), dimensions);
    Value value;
    value.held = Share(std::move(elements), std::move(dimensions));
    return value;
}

template <typename T>
T Value::Get() const
{
    if constexpr (std::same_as<T, ByteString>) {
        return GetBytes();
    } else if constexpr (isVector<T>) {
        return GetElements<typename T::value_type>();
    } else {
        return std::visit(
            [this](const auto& content) -> T {
                using Content = std::remove_cvref_t<decltype(content)>;
                if constexpr (std::same_as<Content, SharedArray>)
                    ThrowTypeMismatch(GetTypeName(), Core::ToString(kindOf<T>));
                else
                    return Convert<T>(content);
            },
            held);
    }
}

template <typename T>
T Value::Get(const Dimensions& index) const
{
    const auto* array = std::get_if<SharedArray>(&held);
    if (array == nullptr)
        ThrowTypeMismatch(GetTypeName(), ArrayTypeName(kindOf<T>));
    const auto offset = OffsetOf(index, (*array)->dimensions);
    return std::visit(
        [offset](const auto& elements) -> T {
            using Element = typename std::remove_cvref_t<decltype(elements)>::value_type;
            return Convert<T, Element>(elements[offset]);
        },
        (*array)->elements);
}

template <ElementValue T>
const std::vector<T>& Value::GetElements() const
{
    if (const auto* array = std::get_if<SharedArray>(&held))
        if (const auto* elements = std::get_if<std::vector<T>>(&(*array)->elements))
            return *elements;
    ThrowTypeMismatch(GetTypeName(), ArrayTypeName(kindOf<T>));
}

template <typename T>
const T& Value::RequireScalar() const
{
    if (const auto* scalar = std::get_if<T>(&held))
        return *scalar;
    ThrowTypeMismatch(GetTypeName(), Core::ToString(kindOf<T>));
}

const Value::ByteString& Value::GetByteString() const
{
    return RequireScalar<ByteString>();
}

const std::string& Value::GetText() const
{
    return RequireScalar<std::string>();
}

const Value::ByteString& Value::GetBytes() const
{
    if (const auto* bytes = std::get_if<ByteString>(&held))
        return *bytes;
    if (const auto* array = std::get_if<SharedArray>(&held))
        if (const auto* bytes = std::get_if<ByteString>(&(*array)->elements))
            return *bytes;
    ThrowTypeMismatch(GetTypeName(), Core::ToString(ValueKind::ByteString));
}

const Struct& Value::GetStruct() const
{
    return RequireScalar<Struct>();
}

Value::Dimensions Value::GetArrayDimensions() const
{
    const auto* array = std::get_if<SharedArray>(&held);
    return array == nullptr ? Dimensions() : (*array)->dimensions;
}

ValueKind Value::GetKind() const noexcept
{
    const auto* array = std::get_if<SharedArray>(&held);
    return array == nullptr ? KindOfScalar(held) : KindOfElements((*array)->elements);
}

bool Value::IsEmpty() const noexcept
{
    return std::holds_alternative<std::monostate>(held);
}

bool Value::IsArray() const noexcept
{
    return std::holds_alternative<SharedArray>(held);
}

std::string Value::GetTypeName() const
{
    return IsArray() ? ArrayTypeName(GetKind()) : Core::ToString(GetKind());
}

std::string Value::ToString() const
{
    std::string text;
    Describe(text, 0);
    return text;
}

void Value::Describe(std::string& text, unsigned int depth) const
{
    Description description(text);
    const auto describeStruct = [&](const Struct& structure) {
        if (depth == shownDepth)
            text += "{...}";
        else
            description.AddList(structure.GetFields(), '{', '}',
                                [&](const Value& field) { field.Describe(text, depth + 1); });
    };
    const auto describeItem = [&](const auto& item) {
        if constexpr (std::same_as<std::remove_cvref_t<decltype(item)>, Struct>)
            describeStruct(item);
        else
            description.Add(item);
    };
    const auto describeElements = [&](const auto& elements) {
        using Element = typename std::remove_cvref_t<decltype(elements)>::value_type;
        description.AddList(elements, '[', ']',
                            [&](const Element& element) { describeItem(element); });
    };
    const auto describeContent = [&](const auto& content) {
        if constexpr (std::same_as<std::remove_cvref_t<decltype(content)>, SharedArray>)
            std::visit(describeElements, content->elements);
        else
            describeItem(content);
    };
    std::visit(describeContent, held);
}

bool operator==(const Value& left, const Value& right)
{
    const auto* leftArray = std::get_if<Value::SharedArray>(&left.held);
    const auto* rightArray = std::get_if<Value::SharedArray>(&right.held);
    if (leftArray != nullptr && rightArray != nullptr)
        return **leftArray == **rightArray;
    return left.held == right.held;
}

// The operations of every type of a value, compiled into this library.
#define CORE_INSTANTIATE_ELEMENT(T)                                                                \
    template Value Value::MakeArray<T>(std::vector<T>, Value::Dimensions);                         \
    template T Value::Get<T>(const Value::Dimensions&) const;                                      \
    template const std::vector<T>& Value::GetElements<T>() const;                                  \
    template T Value::Get<T>() const;

CORE_INSTANTIATE_ELEMENT(bool)
CORE_INSTANTIATE_ELEMENT(signed char)
CORE_INSTANTIATE_ELEMENT(unsigned char)
CORE_INSTANTIATE_ELEMENT(short)
CORE_INSTANTIATE_ELEMENT(unsigned short)
CORE_INSTANTIATE_ELEMENT(int)
CORE_INSTANTIATE_ELEMENT(unsigned int)
CORE_INSTANTIATE_ELEMENT(long)
CORE_INSTANTIATE_ELEMENT(unsigned long)
CORE_INSTANTIATE_ELEMENT(float)
CORE_INSTANTIATE_ELEMENT(double)
CORE_INSTANTIATE_ELEMENT(std::string)
CORE_INSTANTIATE_ELEMENT(Value::ByteString)
CORE_INSTANTIATE_ELEMENT(DateTime)
CORE_INSTANTIATE_ELEMENT(NodeId)
CORE_INSTANTIATE_ELEMENT(Struct)

// Get<std::vector<unsigned char>>, the byte string, is among the elements above.
template std::vector<bool> Value::Get<std::vector<bool>>() const;
template std::vector<signed char> Value::Get<std::vector<signed char>>() const;
template std::vector<short> Value::Get<std::vector<short>>() const;
template std::vector<unsigned short> Value::Get<std::vector<unsigned short>>() const;
template std::vector<int> Value::Get<std::vector<int>>() const;
template std::vector<unsigned int> Value::Get<std::vector<unsigned int>>() const;
template std::vector<long> Value::Get<std::vector<long>>() const;
template std::vector<unsigned long> Value::Get<std::vector<unsigned long>>() const;
template std::vector<float> Value::Get<std::vector<float>>() const;
template std::vector<double> Value::Get<std::vector<double>>() const;
template std::vector<std::string> Value::Get<std::vector<std::string>>() const;
template std::vector<Value::ByteString> Value::Get<std::vector<Value::ByteString>>() const;
template std::vector<DateTime> Value::Get<std::vector<DateTime>>() const;
template std::vector<NodeId> Value::Get<std::vector<NodeId>>() const;
template std::vector<Struct> Value::Get<std::vector<Struct>>() const;

} // namespace Core
