#include "OpcUa/LibraryAssumptions.h"

#include <gtest/gtest.h>

#include <open62541/types_generated.h>

#include <algorithm>
#include <string>
#include <vector>

namespace OpcUa {
namespace {

TEST(AVersionOfTheLibrary, FitsIfItIsA14ThatIsNotTooOld)
{
    for (const char* version : {"1.4.18", "1.4.18-undefined", "1.4.19", "1.4.100-1"})
        EXPECT_NO_THROW(RequireVersion(version)) << version;
}

TEST(AVersionOfTheLibrary, IsRefusedIfItIsOlderOrOfAnotherSeriesOrNoVersion)
{
    for (const char* version : {"1.4.17", "1.4.11-undefined", "1.3.18", "1.5.0", "2.4.18", "1.4",
                                "1.4.", "1.4.x", "", "v1.4.18", "1-4-18"})
        EXPECT_THROW(RequireVersion(version), LibraryException) << version;
}

TEST(AVersionOfTheLibrary, IsNamedWithTheAssumptionThatItBreaks)
{
    NoteLibraryVersion("1.4.17-undefined");
    try {
        RequireVersion(GetLibraryVersion());
        FAIL() << "1.4.17 is taken";
    } catch (const LibraryException& exception) {
        EXPECT_EQ(exception.GetAssumption(), "its version");
        EXPECT_NE(std::string(exception.what()).find("open62541 1.4.17-undefined does not fit"),
                  std::string::npos)
            << exception.what();
    }
    NoteLibraryVersion({});
}

class TheTypesOfTheLibrary : public testing::Test
{
protected:
    std::vector<UA_DataType> types{UA_TYPES, UA_TYPES + UA_TYPES_COUNT};
};

TEST_F(TheTypesOfTheLibrary, AreThoseOfThisProgram)
{
    EXPECT_NO_THROW(RequireTypes(types.data()));
}

TEST_F(TheTypesOfTheLibrary, AreRefusedIfOneIsMissingBeforeOthers)
{
    types.erase(types.begin() + UA_TYPES_EVENTFILTER - 1);
    types.push_back(types.back());
    EXPECT_THROW(RequireTypes(types.data()), LibraryException);
}

TEST_F(TheTypesOfTheLibrary, AreRefusedIfOneHasAnotherSize)
{
    types[UA_TYPES_MONITORINGPARAMETERS].memSize += sizeof(void*);
    EXPECT_THROW(RequireTypes(types.data()), LibraryException);
}

TEST_F(TheTypesOfTheLibrary, AreRefusedIfTheyHaveNoNames)
{
    for (UA_DataType& type : types)
        type.typeName = nullptr;
    EXPECT_THROW(RequireTypes(types.data()), LibraryException);
}

} // namespace
} // namespace OpcUa
