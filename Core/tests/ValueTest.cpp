#include "Core/Value.h"
#include "Core/Exception.h"
#include "Core/Struct.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <exception>
#include <limits>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace Core {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::string>;
using Index = std::vector<unsigned int>;

enum class Colour
{
    Red
};

// A value converts nothing to a boolean or a number.
static_assert(!std::is_constructible_v<Value, int*>);
static_assert(!std::is_constructible_v<Value, const void*>);
static_assert(!std::is_constructible_v<Value, Value*>);
static_assert(!std::is_constructible_v<Value, const unsigned char*>);
static_assert(!std::is_constructible_v<Value, const wchar_t*>);
static_assert(!std::is_constructible_v<Value, void (*)()>);
static_assert(!std::is_constructible_v<Value, char>);
static_assert(!std::is_constructible_v<Value, wchar_t>);
static_assert(!std::is_constructible_v<Value, long long>);
static_assert(!std::is_constructible_v<Value, long double>);
static_assert(!std::is_constructible_v<Value, Colour>);
static_assert(!std::is_constructible_v<Value, std::vector<bool>::reference>);
static_assert(std::is_convertible_v<const char*, Value>);

static_assert(std::is_nothrow_default_constructible_v<Value>);
static_assert(std::is_nothrow_move_constructible_v<Value>);
static_assert(std::is_nothrow_move_assignable_v<Value>);
static_assert(std::is_nothrow_move_constructible_v<Struct>);
static_assert(std::is_nothrow_move_assignable_v<Struct>);
static_assert(sizeof(Value) <= 64);

template <typename Failure, typename Action>
std::string MessageOf(Action action)
{
    try {
        action();
    } catch (const Failure& failure) {
        return failure.GetMessage();
    } catch (const std::exception& failure) {
        ADD_FAILURE() << "another exception: " << failure.what();
    }
    return "nothing was thrown";
}

template <typename T>
std::string MismatchAsking(const Value& value)
{
    return MessageOf<TypeMismatchException>([&] { (void)value.Get<T>(); });
}

template <typename T>
std::string RangeErrorAsking(const Value& value)
{
    return MessageOf<OutOfRangeException>([&] { (void)value.Get<T>(); });
}

Struct MakeItem(const std::string& path)
{
    Struct item{path, DateTime::FromTicks(1), false};
    item.SetDataTypeId(NodeId(2, 50));
    return item;
}

TEST(AnEmptyValue, HoldsNothing)
{
    const Value value;
    EXPECT_TRUE(value.IsEmpty());
    EXPECT_FALSE(value.IsArray());
    EXPECT_EQ(value.GetKind(), ValueKind::Empty);
    EXPECT_TRUE(value.GetArrayDimensions().empty());
    EXPECT_EQ(value, Value());
}

TEST(AnEmptyValue, ConvertsToNothing)
{
    EXPECT_EQ(MismatchAsking<bool>({}), "a value of type Empty cannot be read as Boolean");
    EXPECT_EQ(MismatchAsking<unsigned int>({}), "a value of type Empty cannot be read as UInt32");
    EXPECT_EQ(MismatchAsking<std::string>({}), "a value of type Empty cannot be read as Text");
    EXPECT_EQ(MismatchAsking<Bytes>({}), "a value of type Empty cannot be read as ByteString");
    EXPECT_EQ(MismatchAsking<Texts>({}), "a value of type Empty cannot be read as array of Text");
    EXPECT_EQ(MismatchAsking<DateTime>({}), "a value of type Empty cannot be read as DateTime");
}

template <typename T>
void ExpectScalar(T scalar, ValueKind kind)
{
    const Value value = scalar;
    EXPECT_EQ(value.GetKind(), kind);
    EXPECT_FALSE(value.IsEmpty());
    EXPECT_FALSE(value.IsArray());
    EXPECT_TRUE(value.GetArrayDimensions().empty());
    EXPECT_EQ(value.Get<T>(), scalar);
    EXPECT_EQ(value, Value(scalar));
}

template <typename T>
void ExpectExtremes(ValueKind kind)
{
    ExpectScalar(std::numeric_limits<T>::lowest(), kind);
    ExpectScalar(std::numeric_limits<T>::max(), kind);
    ExpectScalar(T{}, kind);
}

TEST(AScalar, KeepsItsTypeAndItsExtremes)
{
    ExpectExtremes<bool>(ValueKind::Boolean);
    ExpectExtremes<signed char>(ValueKind::SByte);
    ExpectExtremes<unsigned char>(ValueKind::Byte);
    ExpectExtremes<short>(ValueKind::Int16);
    ExpectExtremes<unsigned short>(ValueKind::UInt16);
    ExpectExtremes<int>(ValueKind::Int32);
    ExpectExtremes<unsigned int>(ValueKind::UInt32);
    ExpectExtremes<long>(ValueKind::Int64);
    ExpectExtremes<unsigned long>(ValueKind::UInt64);
    ExpectExtremes<float>(ValueKind::Float);
    ExpectExtremes<double>(ValueKind::Double);
    ExpectScalar(std::string("text"), ValueKind::Text);
    ExpectScalar(DateTime::FromTicks(5), ValueKind::DateTime);
    ExpectScalar(NodeId(1, "node"), ValueKind::NodeId);
    ExpectScalar(MakeItem("a"), ValueKind::Struct);
}

TEST(ATextLiteral, BecomesAText)
{
    const Value value = "text";
    EXPECT_EQ(value.GetKind(), ValueKind::Text);
    EXPECT_EQ(value.GetText(), "text");
    EXPECT_THROW((void)value.Get<bool>(), TypeMismatchException);
}

TEST(ANullText, IsRefused)
{
    const char* const none = nullptr;
    EXPECT_THROW(Value{none}, InvalidArgumentException);
}

TEST(AText, KeepsEveryByte)
{
    const std::string raw("a\0\n\xFF", 4);
    EXPECT_EQ(Value(raw).Get<std::string>(), raw);
    EXPECT_EQ(Value("").Get<std::string>(), "");
}

/// Reads the extremes of one integer type, held as another, in every combination.
template <typename To, typename From>
void ExpectLosslessOrRefused(From number)
{
    const Value value = number;
    if (std::in_range<To>(number))
        EXPECT_EQ(value.Get<To>(), static_cast<To>(number));
    else
        EXPECT_THROW((void)value.Get<To>(), OutOfRangeException) << +number;
}

template <typename From, typename... To>
void ExpectConversions()
{
    for (const From number :
         {std::numeric_limits<From>::min(), std::numeric_limits<From>::max(), From{0},
          static_cast<From>(-1), From{127}, static_cast<From>(128), static_cast<From>(255)})
        (ExpectLosslessOrRefused<To>(number), ...);
}

template <typename... All>
void ExpectAllConversions()
{
    (ExpectConversions<All, All...>(), ...);
}

TEST(AnInteger, ConvertsToEveryIntegerTypeThatCanHoldIt)
{
    ExpectAllConversions<signed char, unsigned char, short, unsigned short, int, unsigned int, long,
                         unsigned long>();
}

TEST(AnInteger, ConvertsUpToTheLimitOfATypeAndNotBeyond)
{
    EXPECT_EQ(Value(255).Get<unsigned char>(), 255);
    EXPECT_THROW((void)Value(256).Get<unsigned char>(), OutOfRangeException);
    EXPECT_EQ(Value(-128L).Get<signed char>(), -128);
    EXPECT_THROW((void)Value(-129L).Get<signed char>(), OutOfRangeException);
    EXPECT_EQ(Value(4'294'967'295L).Get<unsigned int>(), 4'294'967'295U);
    EXPECT_THROW((void)Value(4'294'967'296L).Get<unsigned int>(), OutOfRangeException);
    EXPECT_EQ(Value(9'223'372'036'854'775'807UL).Get<long>(), 9'223'372'036'854'775'807L);
    EXPECT_THROW((void)Value(9'223'372'036'854'775'808UL).Get<long>(), OutOfRangeException);
    EXPECT_THROW((void)Value(-1).Get<unsigned long>(), OutOfRangeException);
}

TEST(ANumberThatDoesNotFit, IsNamedWithBothTypes)
{
    EXPECT_EQ(RangeErrorAsking<unsigned char>(300),
              "the number 300 of type Int32 does not fit into Byte");
    EXPECT_EQ(RangeErrorAsking<unsigned int>(static_cast<signed char>(-1)),
              "the number -1 of type SByte does not fit into UInt32");
    EXPECT_EQ(RangeErrorAsking<signed char>(static_cast<unsigned char>(200)),
              "the number 200 of type Byte does not fit into SByte");
    EXPECT_EQ(RangeErrorAsking<int>(std::numeric_limits<unsigned long>::max()),
              "the number 18446744073709551615 of type UInt64 does not fit into Int32");
}

TEST(ABoolean, IsNoNumberAndNoNumberIsABoolean)
{
    EXPECT_EQ(MismatchAsking<unsigned char>(true),
              "a value of type Boolean cannot be read as Byte");
    EXPECT_THROW((void)Value(true).Get<double>(), TypeMismatchException);
    EXPECT_THROW((void)Value(1).Get<bool>(), TypeMismatchException);
    EXPECT_THROW((void)Value(static_cast<unsigned char>(1)).Get<bool>(), TypeMismatchException);
    EXPECT_THROW((void)Value(1.0).Get<bool>(), TypeMismatchException);
}

TEST(AFloat, ConvertsToADouble)
{
    EXPECT_EQ(Value(1.5F).Get<double>(), 1.5);
    EXPECT_EQ(Value(std::numeric_limits<float>::max()).Get<double>(),
              static_cast<double>(std::numeric_limits<float>::max()));
    EXPECT_TRUE(std::isnan(Value(std::nanf("")).Get<double>()));
}

TEST(AFloatingPointNumber, ConvertsToNothingElse)
{
    EXPECT_EQ(MismatchAsking<float>(1.5), "a value of type Double cannot be read as Float");
    EXPECT_EQ(MismatchAsking<int>(1.0F), "a value of type Float cannot be read as Int32");
    EXPECT_EQ(MismatchAsking<double>(1), "a value of type Int32 cannot be read as Double");
}

TEST(TextsTimesIdentifiersAndStructures, ConvertToNothingElse)
{
    EXPECT_EQ(MismatchAsking<unsigned int>("5"), "a value of type Text cannot be read as UInt32");
    EXPECT_EQ(MismatchAsking<std::string>(5), "a value of type Int32 cannot be read as Text");
    EXPECT_EQ(MismatchAsking<Bytes>("text"), "a value of type Text cannot be read as ByteString");
    EXPECT_EQ(MismatchAsking<std::string>(Value(Bytes{65}, true)),
              "a value of type ByteString cannot be read as Text");
    EXPECT_EQ(MismatchAsking<long>(DateTime::Now()),
              "a value of type DateTime cannot be read as Int64");
    EXPECT_EQ(MismatchAsking<DateTime>(0L), "a value of type Int64 cannot be read as DateTime");
    EXPECT_EQ(MismatchAsking<std::string>(NodeId(1, "a")),
              "a value of type NodeId cannot be read as Text");
    EXPECT_EQ(MismatchAsking<NodeId>(MakeItem("a")),
              "a value of type Struct cannot be read as NodeId");
    EXPECT_EQ(MismatchAsking<Struct>("a"), "a value of type Text cannot be read as Struct");
}

TEST(AScalar, IsNoArray)
{
    EXPECT_EQ(MismatchAsking<Texts>("a"), "a value of type Text cannot be read as array of Text");
    EXPECT_THROW((void)Value(MakeItem("a")).Get<std::vector<Struct>>(), TypeMismatchException);
    EXPECT_THROW((void)Value("a").GetElements<std::string>(), TypeMismatchException);
    EXPECT_EQ(MessageOf<TypeMismatchException>([] { (void)Value("a").Get<std::string>(Index{0}); }),
              "a value of type Text cannot be read as array of Text");
}

TEST(AByteString, IsAScalarOfBytes)
{
    const Bytes bytes{0, 1, 255};
    const Value value(bytes, true);
    EXPECT_EQ(value.GetKind(), ValueKind::ByteString);
    EXPECT_FALSE(value.IsArray());
    EXPECT_TRUE(value.GetArrayDimensions().empty());
    EXPECT_EQ(value.Get<Bytes>(), bytes);
    EXPECT_EQ(value.GetByteString(), bytes);
    EXPECT_THROW((void)value.GetElements<unsigned char>(), TypeMismatchException);
    EXPECT_THROW((void)value.Get<unsigned char>(Index{0}), TypeMismatchException);
}

TEST(AByteString, MayBeEmpty)
{
    const Value value(Bytes{}, true);
    EXPECT_FALSE(value.IsEmpty());
    EXPECT_TRUE(value.Get<Bytes>().empty());
}

TEST(AnArrayOfBytes, IsNoByteStringButReadsAsOne)
{
    const Bytes bytes{0, 1, 255};
    const Value value(bytes, false);
    EXPECT_EQ(value.GetKind(), ValueKind::Byte);
    EXPECT_TRUE(value.IsArray());
    EXPECT_EQ(value.GetArrayDimensions(), Index{3});
    EXPECT_EQ(value.Get<Bytes>(), bytes);
    EXPECT_EQ(value.GetElements<unsigned char>(), bytes);
    EXPECT_EQ(value.Get<unsigned int>(Index{2}), 255U);
    EXPECT_THROW((void)value.GetByteString(), TypeMismatchException);
    EXPECT_NE(value, Value(bytes, true));
}

TEST(BytesOfEitherKind, AreReadWithoutACopy)
{
    const Bytes bytes{0, 1, 255};
    const Value byteString(bytes, true);
    EXPECT_EQ(&byteString.GetBytes(), &byteString.GetByteString());
    const Value array(bytes, false);
    EXPECT_EQ(&array.GetBytes(), &array.GetElements<unsigned char>());
    EXPECT_THROW((void)Value("bytes").GetBytes(), TypeMismatchException);
    EXPECT_THROW((void)Value(std::vector<std::string>{"a"}).GetBytes(), TypeMismatchException);
}

TEST(AnArrayOfOtherIntegers, DoesNotReadAsAByteString)
{
    EXPECT_EQ(MismatchAsking<Bytes>(Value::MakeArray(std::vector<int>{1}, {1})),
              "a value of type array of Int32 cannot be read as ByteString");
}

template <typename T>
void ExpectArray(const std::vector<T>& elements, ValueKind kind)
{
    const auto count = static_cast<unsigned int>(elements.size());
    const Value value = Value::MakeArray(elements, {count});
    EXPECT_EQ(value.GetKind(), kind);
    EXPECT_TRUE(value.IsArray());
    EXPECT_FALSE(value.IsEmpty());
    EXPECT_EQ(value.GetArrayDimensions(), Index{count});
    EXPECT_EQ(value.Get<std::vector<T>>(), elements);
    EXPECT_EQ(value.GetElements<T>(), elements);
    for (unsigned int i = 0; i < count; ++i)
        EXPECT_EQ(value.Get<T>(Index{i}), static_cast<T>(elements[i]));
    EXPECT_EQ(value, Value::MakeArray(elements, {count}));
    EXPECT_NE(value, Value());
}

TEST(AnArray, KeepsElementsOfEveryType)
{
    ExpectArray<bool>({true, false, true}, ValueKind::Boolean);
    ExpectArray<signed char>({-128, 127}, ValueKind::SByte);
    ExpectArray<unsigned char>({0, 255}, ValueKind::Byte);
    ExpectArray<short>({-32768, 32767}, ValueKind::Int16);
    ExpectArray<unsigned short>({0, 65535}, ValueKind::UInt16);
    ExpectArray<int>({-1, 1}, ValueKind::Int32);
    ExpectArray<unsigned int>({0, 4'294'967'295U}, ValueKind::UInt32);
    ExpectArray<long>({std::numeric_limits<long>::min()}, ValueKind::Int64);
    ExpectArray<unsigned long>({std::numeric_limits<unsigned long>::max()}, ValueKind::UInt64);
    ExpectArray<float>({1.5F}, ValueKind::Float);
    ExpectArray<double>({2.5}, ValueKind::Double);
    ExpectArray<std::string>({"", "text"}, ValueKind::Text);
    ExpectArray<Bytes>({Bytes{}, Bytes{1, 2}}, ValueKind::ByteString);
    ExpectArray<DateTime>({DateTime(), DateTime::FromTicks(1)}, ValueKind::DateTime);
    ExpectArray<NodeId>({NodeId(), NodeId(1, "a")}, ValueKind::NodeId);
    ExpectArray<Struct>({MakeItem("a"), MakeItem("b")}, ValueKind::Struct);
}

TEST(AnArray, IsMadeOfAListOfStructuresOrTexts)
{
    const std::vector<Struct> items{MakeItem("a"), MakeItem("b")};
    EXPECT_EQ(Value(items), Value::MakeArray(items, {2}));
    EXPECT_EQ(Value(std::vector<Struct>(items)).GetArrayDimensions(), Index{2});
    const Texts texts{"a", "b", "c"};
    EXPECT_EQ(Value(texts), Value::MakeArray(texts, {3}));
}

TEST(AnArray, WithoutElementsStillHasItsTypeAndDimensions)
{
    const Value value(std::vector<Struct>{});
    EXPECT_FALSE(value.IsEmpty());
    EXPECT_TRUE(value.IsArray());
    EXPECT_EQ(value.GetKind(), ValueKind::Struct);
    EXPECT_EQ(value.GetArrayDimensions(), Index{0});
    EXPECT_TRUE(value.Get<std::vector<Struct>>().empty());
    EXPECT_THROW((void)value.Get<Texts>(), TypeMismatchException);
    EXPECT_THROW((void)value.Get<Struct>(Index{0}), OutOfRangeException);
    EXPECT_EQ(Value::MakeArray(Texts{}, {3, 0}).GetArrayDimensions(), (Index{3, 0}));
    EXPECT_EQ(Value(Bytes{}, false).GetArrayDimensions(), Index{0});
}

TEST(AnArray, IsNoScalar)
{
    EXPECT_EQ(MismatchAsking<std::string>(Texts{"a"}),
              "a value of type array of Text cannot be read as Text");
    EXPECT_EQ(MismatchAsking<bool>(Texts{"a"}),
              "a value of type array of Text cannot be read as Boolean");
    EXPECT_THROW((void)Value(Texts{"a"}).GetText(), TypeMismatchException);
    EXPECT_THROW((void)Value(std::vector<Struct>{Struct()}).GetStruct(), TypeMismatchException);
}

TEST(AnArray, IsReadWholeOnlyAsWhatItsElementsAre)
{
    const auto numbers = Value::MakeArray(std::vector<int>{1, 2}, {2});
    EXPECT_EQ(MismatchAsking<std::vector<unsigned int>>(numbers),
              "a value of type array of Int32 cannot be read as array of UInt32");
    EXPECT_THROW((void)numbers.GetElements<long>(), TypeMismatchException);
}

TEST(AnArrayOfSeveralDimensions, VariesItsLastIndexFastest)
{
    const auto value = Value::MakeArray(std::vector<int>{0, 1, 2, 10, 11, 12}, {2, 3});
    EXPECT_EQ(value.GetArrayDimensions(), (Index{2, 3}));
    for (unsigned int row = 0; row < 2; ++row)
        for (unsigned int column = 0; column < 3; ++column)
            EXPECT_EQ(value.Get<unsigned int>(Index{row, column}), row * 10 + column);
    const auto cube = Value::MakeArray(std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}, {2, 2, 2});
    EXPECT_EQ(cube.Get<int>(Index{1, 0, 1}), 5);
    EXPECT_EQ(value.Get<std::vector<int>>(), (std::vector<int>{0, 1, 2, 10, 11, 12}));
}

TEST(AnElement, ConvertsLikeAScalar)
{
    const auto value = Value::MakeArray(std::vector<int>{300, -1}, {2});
    EXPECT_EQ(value.Get<unsigned short>(Index{0}), 300);
    EXPECT_THROW((void)value.Get<unsigned char>(Index{0}), OutOfRangeException);
    EXPECT_THROW((void)value.Get<unsigned int>(Index{1}), OutOfRangeException);
    EXPECT_EQ(MessageOf<TypeMismatchException>([&] { (void)value.Get<std::string>(Index{0}); }),
              "a value of type Int32 cannot be read as Text");
    EXPECT_EQ(Value::MakeArray(std::vector<float>{1.5F}, {1}).Get<double>(Index{0}), 1.5);
}

class AnIndexThatDoesNotFit : public testing::TestWithParam<Index>
{};

TEST_P(AnIndexThatDoesNotFit, IsRefused)
{
    const auto value = Value::MakeArray(Texts{"a", "b", "c", "d", "e", "f"}, {2, 3});
    EXPECT_THROW((void)value.Get<std::string>(GetParam()), OutOfRangeException);
}

INSTANTIATE_TEST_SUITE_P(Indices, AnIndexThatDoesNotFit,
                         testing::Values(Index{}, Index{0}, Index{5}, Index{0, 0, 0}, Index{2, 0},
                                         Index{0, 3}, Index{1, 3}, Index{4'294'967'295U, 0},
                                         Index{0, 4'294'967'295U}));

TEST(ARefusedIndex, IsNamedWithTheDimensions)
{
    const auto value = Value::MakeArray(Texts{"a", "b"}, {2, 1});
    EXPECT_EQ(MessageOf<OutOfRangeException>([&] {
                  (void)value.Get<std::string>(Index{2, 0});
              }),
              "the index [2, 0] lies outside an array with the dimensions [2, 1]");
}

class DimensionsThatDoNotFit : public testing::TestWithParam<Index>
{};

TEST_P(DimensionsThatDoNotFit, AreRefused)
{
    EXPECT_THROW((void)Value::MakeArray(std::vector<int>{1, 2, 3, 4}, GetParam()),
                 InvalidArgumentException);
}

INSTANTIATE_TEST_SUITE_P(Dimensions, DimensionsThatDoNotFit,
                         testing::Values(Index{}, Index{3}, Index{5}, Index{2, 3}, Index{4, 0},
                                         Index{0}, Index{4'294'967'295U, 4'294'967'295U},
                                         // their product overflows to 4
                                         Index{2'147'483'649U, 2'147'483'648U, 4}));

TEST(Dimensions, WhoseProductOverflowsToNothingAreNotThoseOfAnEmptyArray)
{
    const Index huge{65'536, 65'536, 65'536, 65'536};
    EXPECT_THROW((void)Value::MakeArray(Texts{}, huge), InvalidArgumentException);
}

TEST(Dimensions, AreAtLeastOne)
{
    EXPECT_THROW((void)Value::MakeArray(Texts{}, {}), InvalidArgumentException);
    EXPECT_THROW((void)Value::MakeArray(Texts{"a"}, {}), InvalidArgumentException);
}

TEST(RefusedDimensions, AreNamedWithTheNumberOfElements)
{
    EXPECT_EQ(MessageOf<InvalidArgumentException>([] {
                  (void)Value::MakeArray(Texts{"a"}, {2, 3});
              }),
              "cannot make an array of 1 elements with the dimensions [2, 3]");
}

TEST(ACopyOfAnArray, SharesItsElements)
{
    const Value value(std::vector<Struct>(1000, MakeItem("a")));
    Value copy = value;
    EXPECT_EQ(&copy.GetElements<Struct>(), &value.GetElements<Struct>());
    copy = "replaced";
    EXPECT_THAT(value.GetElements<Struct>(), SizeIs(1000));
}

TEST(AnArray, IsMadeWithoutCopyingWhatIsHandedOver)
{
    std::vector<Struct> items(3, MakeItem("a"));
    const auto* first = items.data();
    EXPECT_EQ(Value(std::move(items)).GetElements<Struct>().data(), first);
    Bytes bytes(100);
    const auto* firstByte = bytes.data();
    EXPECT_EQ(Value(std::move(bytes), true).GetByteString().data(), firstByte);
    Texts texts(3);
    const auto* firstText = texts.data();
    EXPECT_EQ(Value::MakeArray(std::move(texts), {3}).GetElements<std::string>().data(), firstText);
}

TEST(AValueMovedFrom, IsEmpty)
{
    for (const auto& original : {Value(1), Value("text"), Value(NodeId(1, "a")), Value(Texts{"a"}),
                                 Value(MakeItem("a")), Value(Bytes{1}, true)}) {
        Value source = original;
        Value target(std::move(source));
        EXPECT_TRUE(source.IsEmpty()); // NOLINT(bugprone-use-after-move): the subject
        EXPECT_EQ(target, original);
        source = std::move(target);
        EXPECT_TRUE(target.IsEmpty()); // NOLINT(bugprone-use-after-move): the subject
        EXPECT_EQ(source, original);
    }
}

TEST(AValue, SurvivesBeingAssignedToItself)
{
    Value value(Texts{"a"});
    auto& same = value;
    value = same;
    EXPECT_EQ(value, Value(Texts{"a"}));
    value = std::move(same);
    EXPECT_EQ(value, Value(Texts{"a"}));
}

TEST(Values, OfDifferentKindDimensionsOrContentsDiffer)
{
    const std::vector<int> four{1, 2, 3, 4};
    const std::vector<Value> all{
        Value(),
        Value(true),
        Value(false),
        Value(1),
        Value(1U),
        Value(1L),
        Value(2),
        Value(1.0F),
        Value(1.0),
        Value("1"),
        Value(""),
        Value(Bytes{1}, true),
        Value(Bytes{1}, false),
        Value(DateTime()),
        Value(DateTime::FromTicks(1)),
        Value(NodeId()),
        Value(NodeId(1, 1)),
        Value(Struct()),
        Value(MakeItem("a")),
        Value(MakeItem("b")),
        Value(Texts{}),
        Value(Texts{"1"}),
        Value(std::vector<Struct>{}),
        Value::MakeArray(four, {4}),
        Value::MakeArray(four, {2, 2}),
        Value::MakeArray(four, {4, 1}),
        Value::MakeArray(std::vector<unsigned int>{1, 2, 3, 4}, {4}),
    };
    for (std::size_t i = 0; i < all.size(); ++i)
        for (std::size_t j = 0; j < all.size(); ++j)
            EXPECT_EQ(all[i] == all[j], i == j) << all[i].ToString() << ' ' << all[j].ToString();
}

TEST(AnArray, CanBeReadOnSeveralThreadsThroughItsCopies)
{
    const Value value(std::vector<Struct>(100, MakeItem("a")));
    constexpr int threadCount = 4;
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back([copy = value] {
            for (unsigned int position = 0; position < 100; ++position) {
                const Value another = copy; // NOLINT(performance-unnecessary-copy-initialization)
                EXPECT_EQ(another.Get<Struct>(Index{position}), MakeItem("a"));
            }
        });
    for (auto& thread : threads)
        thread.join();
}

TEST(AStructure, KeepsItsFieldsInOrderAndItsDataType)
{
    Struct item{"path", DateTime::FromTicks(1), true};
    EXPECT_TRUE(item.GetDataTypeId().IsEmpty());
    item.SetDataTypeId(NodeId(2, 50));
    EXPECT_EQ(item.GetDataTypeId(), NodeId(2, 50));
    ASSERT_THAT(item.GetFields(), SizeIs(3));
    EXPECT_EQ(item.GetFields()[0], Value("path"));
    EXPECT_EQ(item.GetFields()[1], Value(DateTime::FromTicks(1)));
    EXPECT_EQ(item.GetFields()[2], Value(true));
}

TEST(AStructure, IsMadeOfAVectorOfFieldsToo)
{
    EXPECT_EQ(Struct(std::vector<Value>{1, "a"}), (Struct{1, "a"}));
    EXPECT_TRUE(Struct().GetFields().empty());
}

TEST(Structures, DifferInDataTypeOrFields)
{
    auto other = MakeItem("a");
    EXPECT_EQ(other, MakeItem("a"));
    other.SetDataTypeId(NodeId(2, 51));
    EXPECT_NE(other, MakeItem("a"));
    EXPECT_NE(MakeItem("b"), MakeItem("a"));
}

TEST(AStructure, MayHoldStructuresAndArrays)
{
    const Value value = Struct{Struct{1, 2}, Texts{"a"}};
    EXPECT_EQ(value.GetStruct().GetFields()[0].GetStruct().GetFields()[1], Value(2));
    EXPECT_EQ(value.GetStruct().GetFields()[1].Get<std::string>(Index{0}), "a");
}

TEST(AKind, HasAName)
{
    EXPECT_STREQ(ToString(ValueKind::Empty), "Empty");
    EXPECT_STREQ(ToString(ValueKind::UInt64), "UInt64");
    EXPECT_STREQ(ToString(ValueKind::Struct), "Struct");
}

TEST(ADescription, ShowsScalars)
{
    EXPECT_EQ(Value().ToString(), "empty");
    EXPECT_EQ(Value(true).ToString(), "true");
    EXPECT_EQ(Value(static_cast<unsigned char>(65)).ToString(), "65");
    EXPECT_EQ(Value(static_cast<signed char>(-65)).ToString(), "-65");
    EXPECT_EQ(Value(std::numeric_limits<unsigned long>::max()).ToString(), "18446744073709551615");
    EXPECT_EQ(Value(0.1).ToString(), "0.1");
    EXPECT_EQ(Value("text").ToString(), "\"text\"");
    EXPECT_EQ(Value(Bytes{0, 10, 255}, true).ToString(), "0x000aff");
    EXPECT_EQ(Value(DateTime::FromUnixEpochTime(0)).ToString(), "1970-01-01T00:00:00Z");
    EXPECT_EQ(Value(NodeId(1, "a")).ToString(), "ns=1;s=a");
}

TEST(ADescription, ShowsArraysAndStructures)
{
    EXPECT_EQ(Value(Texts{"a", "b"}).ToString(), "[\"a\", \"b\"]");
    EXPECT_EQ(Value::MakeArray(std::vector<bool>{true, false}, {2}).ToString(), "[true, false]");
    EXPECT_EQ(Value(Texts{}).ToString(), "[]");
    EXPECT_EQ(Value(Struct{1, Struct{2}}).ToString(), "{1, {2}}");
    EXPECT_EQ(Value(std::vector<Struct>{Struct{1}, Struct{2}}).ToString(), "[{1}, {2}]");
}

TEST(ADescription, IsShortWhateverTheContents)
{
    EXPECT_EQ(Value(std::string(64, 'x')).ToString(), '"' + std::string(64, 'x') + '"');
    EXPECT_EQ(Value(std::string(65, 'x')).ToString(),
              '"' + std::string(64, 'x') + "\"... (65 bytes)");
    EXPECT_THAT(Value(Bytes(1'000'000), true).ToString(), EndsWith("00... (1000000 bytes)"));
    EXPECT_EQ(Value::MakeArray(std::vector<int>(61'440), {61'440}).ToString(),
              "[0, 0, 0, 0, 0, 0, 0, 0... (61440 elements)]");
    Value deep;
    for (int level = 0; level < 20; ++level)
        deep = Struct{deep};
    Value wide = "leaf";
    for (int level = 0; level < 4; ++level)
        wide = Struct(std::vector<Value>(9, wide));
    EXPECT_EQ(deep.ToString(), "{{{{{...}}}}}");
    EXPECT_LT(wide.ToString().size(), 2000U);
    const Struct longTexts(std::vector<Value>(8, std::string(60, 'x')));
    EXPECT_LT(Value(std::vector<Struct>(8, longTexts)).ToString().size(), 2000U);
}

TEST(ADescription, DoesNotCutACharacterApart)
{
    const auto text = std::string(63, 'x') + "\xC3\xBC and more";
    EXPECT_THAT(Value(text).ToString(),
                AllOf(StartsWith('"' + std::string(63, 'x') + '"'), HasSubstr("bytes")));
}

} // namespace
} // namespace Core
