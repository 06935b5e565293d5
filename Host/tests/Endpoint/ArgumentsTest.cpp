#include "Endpoint/Arguments.h"

#include "Core/Embedding/InformationModel.h"
#include "Core/NamespaceMap.h"

#include <gtest/gtest.h>

#include <open62541/server_config_default.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace Host {
namespace {

using Core::Embedding::ArgumentDescription;
using Core::Embedding::InformationModel;

constexpr unsigned int byteType = 3;
constexpr unsigned int uInt64Type = 9;
constexpr unsigned int stringType = 12;
constexpr unsigned int openModeEnum = 33;

InformationModel LoadModel()
{
    InformationModel model;
    model.LoadNodeSet(TALVENSOR_MODEL);
    return model;
}

class AnArgument : public testing::Test
{
protected:
    UA_StatusCode Check(const Core::NodeId& type, const UA_Variant& input, int rank = -1)
    {
        ArgumentDescription declared;
        declared.dataType = type;
        declared.valueRank = rank;
        std::vector<UA_StatusCode> results;
        const UA_StatusCode status = arguments.Check({declared}, &input, 1, results);
        EXPECT_EQ(results.size(), 1U);
        EXPECT_EQ(status == UA_STATUSCODE_GOOD, results.front() == UA_STATUSCODE_GOOD);
        return results.front();
    }

    template <typename T>
    UA_StatusCode CheckNumber(const Core::NodeId& type, T number, std::size_t wireType)
    {
        UA_Variant input{};
        UA_Variant_setScalar(&input, &number, &UA_TYPES[wireType]);
        return Check(type, input);
    }

    const InformationModel model = LoadModel();
    const std::unique_ptr<UA_Server, decltype(&UA_Server_delete)> server{UA_Server_new(),
                                                                         &UA_Server_delete};
    const Namespaces namespaces{*server};
    const StructureTypes types{model, namespaces};
    const Arguments arguments{model, types};
    const Core::NodeId openMode{Core::NamespaceMap::GetNamespaceIndex("urn:Talvensor:FileSystem"),
                                openModeEnum};
};

TEST_F(AnArgument, TakesIntegersOfAnyWidthThatFit)
{
    EXPECT_EQ(CheckNumber<UA_Int64>({0, byteType}, 255, UA_TYPES_INT64), UA_STATUSCODE_GOOD);
    EXPECT_EQ(CheckNumber<UA_SByte>({0, uInt64Type}, 1, UA_TYPES_SBYTE), UA_STATUSCODE_GOOD);
    EXPECT_EQ(CheckNumber<UA_UInt64>(openMode, 5, UA_TYPES_UINT64), UA_STATUSCODE_GOOD);
}

TEST_F(AnArgument, RefusesIntegersThatDoNotFit)
{
    constexpr auto refused = UA_STATUSCODE_BADOUTOFRANGE;
    EXPECT_EQ(CheckNumber<UA_Int64>({0, byteType}, 256, UA_TYPES_INT64), refused);
    EXPECT_EQ(CheckNumber<UA_Int16>({0, byteType}, -1, UA_TYPES_INT16), refused);
    EXPECT_EQ(CheckNumber<UA_SByte>({0, uInt64Type}, -1, UA_TYPES_SBYTE), refused);
    EXPECT_EQ(CheckNumber<UA_Int32>(openMode, -1, UA_TYPES_INT32), refused);
    EXPECT_EQ(CheckNumber<UA_UInt32>(openMode, 0x8000'0000U, UA_TYPES_UINT32), refused);
}

TEST_F(AnArgument, RefusesATextWithANulAnywhere)
{
    std::string cut("keep\0x", 6);
    std::array<UA_String, 3> texts{ViewOf("a"), ViewOf("b"), ViewOf(cut)};
    UA_Variant input{};
    UA_Variant_setScalar(&input, &texts[2], &UA_TYPES[UA_TYPES_STRING]);
    EXPECT_EQ(Check({0, stringType}, input), UA_STATUSCODE_BADOUTOFRANGE);
    UA_Variant_setScalar(&input, texts.data(), &UA_TYPES[UA_TYPES_STRING]);
    EXPECT_EQ(Check({0, stringType}, input), UA_STATUSCODE_GOOD);
    UA_Variant_setArray(&input, texts.data(), 2, &UA_TYPES[UA_TYPES_STRING]);
    EXPECT_EQ(Check({0, stringType}, input, 1), UA_STATUSCODE_GOOD);
    UA_Variant_setArray(&input, texts.data(), 3, &UA_TYPES[UA_TYPES_STRING]);
    EXPECT_EQ(Check({0, stringType}, input, 1), UA_STATUSCODE_BADOUTOFRANGE);
}

TEST_F(AnArgument, MayBeAnEmptyList)
{
    UA_Variant input{};
    UA_Variant_setArray(&input, UA_EMPTY_ARRAY_SENTINEL, 0, &UA_TYPES[UA_TYPES_STRING]);
    EXPECT_EQ(Check({0, stringType}, input, 1), UA_STATUSCODE_GOOD);
}

TEST(TheWeightOfInputs, CountsListsOfTextsByWhatTheyTake)
{
    constexpr std::size_t count = 1'000;
    std::vector<UA_String> texts(count, ViewOf("12345678"));
    std::array<UA_Variant, 2> inputs{};
    UA_Variant_setArray(inputs.data(), texts.data(), count, &UA_TYPES[UA_TYPES_STRING]);
    EXPECT_GE(Weigh(inputs.data(), 1), count * (8 + sizeof(UA_String)));
    texts.assign(count, UA_STRING_NULL);
    EXPECT_GE(Weigh(inputs.data(), 1), count * sizeof(UA_String));
    UA_Variant_setScalar(&inputs[1], texts.data(), &UA_TYPES[UA_TYPES_STRING]);
    EXPECT_GT(Weigh(inputs.data(), 2), Weigh(inputs.data(), 1));
}

TEST(TheWeightOfInputs, CountsABlockToWriteOnce)
{
    std::vector<UA_Byte> block(1'000'000);
    UA_ByteString view{block.size(), block.data()};
    UA_Variant input{};
    UA_Variant_setScalar(&input, &view, &UA_TYPES[UA_TYPES_BYTESTRING]);
    EXPECT_GE(Weigh(&input, 1), block.size());
    EXPECT_LT(Weigh(&input, 1), block.size() + 100);
}

} // namespace
} // namespace Host
