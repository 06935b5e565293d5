#include "Endpoint/NodeKeys.h"

#include "Endpoint/Ua.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace Host {
namespace {

std::optional<std::string> ToKeyOfText(const std::string& text)
{
    UA_NodeId id{2, UA_NODEIDTYPE_STRING, {}};
    id.identifier.string = ViewOf(text);
    return ToKey(id);
}

TEST(AKey, IsItsOwnIdentifierIfItIsUtf8)
{
    EXPECT_EQ(ToIdentifier("folder/\xC3\xA9"), "folder/\xC3\xA9");
    EXPECT_EQ(ToKeyOfText("folder/\xC3\xA9"), "folder/\xC3\xA9");
}

TEST(AKey, ComesBackFromItsIdentifierWhateverItsBytesAre)
{
    for (const std::string key : {"\xFF", "a\x80z", "\xC3", "\xF4\x8F\x9F\xBF"}) {
        const auto id = ToIdentifier(key);
        ASSERT_TRUE(id);
        EXPECT_EQ(ToKeyOfText(*id), key);
    }
}

TEST(AKey, HasOneIdentifier)
{
    const std::string escaped = EscapeToUtf8("\xC3") + EscapeToUtf8("\xA9");
    EXPECT_EQ(UnescapeFromUtf8(escaped), "\xC3\xA9");
    EXPECT_EQ(ToKeyOfText(escaped), std::nullopt);
    EXPECT_EQ(ToKeyOfText("\xFF"), std::nullopt); // no UTF-8
}

TEST(AKey, IsNeitherEmptyNorLongAndHasNoNul)
{
    const std::string longest(4'096, 'x');
    EXPECT_EQ(ToIdentifier(longest), longest);
    EXPECT_EQ(ToKeyOfText(longest), longest);
    for (const auto& wrong : {std::string(), longest + 'x', std::string("a\0b", 3)}) {
        EXPECT_EQ(ToIdentifier(wrong), std::nullopt);
        EXPECT_EQ(ToKeyOfText(wrong), std::nullopt);
    }
    EXPECT_TRUE(ToKeyOfText(*ToIdentifier(std::string(4'096, '\xFF'))));
}

TEST(AKey, IsNoNumber)
{
    EXPECT_EQ(ToKey(UA_NODEID_NUMERIC(2, 7)), std::nullopt);
}

} // namespace
} // namespace Host
