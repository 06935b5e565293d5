#include "Core/Exception.h"
#include "Core/Guid.h"
#include "Core/NamespaceMap.h"
#include "Core/NodeId.h"
#include "Core/QualifiedName.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <exception>
#include <string>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Core {
namespace {

using testing::HasSubstr;

TEST(AnException, SaysWhatItIsAboutInNumberMessageAndDetails)
{
    const NotFoundException exception("no such thing", "looked everywhere");
    EXPECT_EQ(exception.GetErrorCode(), 4U);
    EXPECT_EQ(exception.GetMessage(), "no such thing");
    EXPECT_STREQ(exception.what(), "no such thing");
    EXPECT_EQ(exception.GetDetails(), "looked everywhere");
}

TEST(AnException, HasNoDetailsUnlessGivenSome)
{
    EXPECT_EQ(SystemException("refused").GetDetails(), "");
}

TEST(AnException, KeepsItsTextsInACopy)
{
    Exception copy(ErrorCode::System, "replaced");
    {
        const Exception original(ErrorCode::OutOfRange, "message", "details");
        copy = original;
    }
    EXPECT_EQ(copy.GetErrorCode(), 2U);
    EXPECT_EQ(copy.GetMessage(), "message");
    EXPECT_EQ(copy.GetDetails(), "details");
}

TEST(AnException, IsCaughtByWhatItIsAboutAndByItsBases)
{
    const auto fail = [] {
        throw SessionClosedException("gone");
    };
    EXPECT_THROW(fail(), SessionClosedException);
    EXPECT_THROW(fail(), Exception);
    EXPECT_THROW(fail(), std::exception);
}

TEST(AnException, HasThePublishedNumber)
{
    EXPECT_EQ(TypeMismatchException("").GetErrorCode(), 1U);
    EXPECT_EQ(OutOfRangeException("").GetErrorCode(), 2U);
    EXPECT_EQ(InvalidArgumentException("").GetErrorCode(), 3U);
    EXPECT_EQ(NotFoundException("").GetErrorCode(), 4U);
    EXPECT_EQ(AlreadyExistsException("").GetErrorCode(), 5U);
    EXPECT_EQ(InvalidStateException("").GetErrorCode(), 6U);
    EXPECT_EQ(InvalidModelException("").GetErrorCode(), 7U);
    EXPECT_EQ(ModuleNotLoadableException("").GetErrorCode(), 8U);
    EXPECT_EQ(ModuleEntryMissingException("").GetErrorCode(), 9U);
    EXPECT_EQ(ModuleRefusedException("").GetErrorCode(), 10U);
    EXPECT_EQ(ModuleFailedException("").GetErrorCode(), 11U);
    EXPECT_EQ(SessionClosedException("").GetErrorCode(), 12U);
    EXPECT_EQ(NotExecutableException("").GetErrorCode(), 13U);
    EXPECT_EQ(SystemException("").GetErrorCode(), 14U);
}

TEST(AGuid, IsAllZeroByDefault)
{
    EXPECT_EQ(Guid().ToString(), std::string(32, '0'));
}

TEST(AGuid, KeepsTheOrderOfItsDigits)
{
    const Guid guid("0123456789abcdef0011223344556677");
    EXPECT_EQ(guid.GetBytes()[0], 0x01);
    EXPECT_EQ(guid.GetBytes()[7], 0xEF);
    EXPECT_EQ(guid.GetBytes()[15], 0x77);
    EXPECT_EQ(guid.ToString(), "0123456789abcdef0011223344556677");
    EXPECT_EQ(Guid(guid.GetBytes()), guid);
}

TEST(AGuid, TakesDigitsOfEitherCaseAndWritesLowerCase)
{
    EXPECT_EQ(Guid("F3FFF72D2665419DB0820FE66246027F").ToString(),
              "f3fff72d2665419db0820fe66246027f");
}

class WhatIsNoGuid : public testing::TestWithParam<const char*>
{};

TEST_P(WhatIsNoGuid, IsRefused)
{
    EXPECT_THROW(Guid{GetParam()}, InvalidArgumentException);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, WhatIsNoGuid,
    testing::Values(nullptr, "", "f3fff72d2665419db0820fe66246027",
                    "f3fff72d2665419db0820fe66246027f0", "g3fff72d2665419db0820fe66246027f",
                    "f3fff72d2665419db0820fe66246027G", "/3fff72d2665419db0820fe66246027f",
                    ":3fff72d2665419db0820fe66246027f", "@3fff72d2665419db0820fe66246027f",
                    "`3fff72d2665419db0820fe66246027f", "f3fff72d-2665-419d-b082-0fe66246027f",
                    "{3fff72d2665419db0820fe66246027}", " 3fff72d2665419db0820fe66246027f",
                    "\xC3\xBC"
                    "fff72d2665419db0820fe66246027f"));

TEST(ARefusedGuid, NamesTheTextThatWasGiven)
{
    try {
        const Guid guid("nonsense");
        FAIL() << guid.ToString();
    } catch (const InvalidArgumentException& exception) {
        EXPECT_THAT(exception.GetMessage(), HasSubstr("nonsense"));
    }
}

TEST(ARandomGuid, IsOfVersionFourAndNeverTheSame)
{
    std::unordered_set<Guid, HashGuid> drawn;
    for (int i = 0; i < 1000; ++i) {
        const auto guid = Guid::Random();
        EXPECT_EQ(guid.GetBytes()[6] & 0xF0, 0x40);
        EXPECT_EQ(guid.GetBytes()[8] & 0xC0, 0x80);
        EXPECT_TRUE(drawn.insert(guid).second);
    }
}

TEST(ARandomGuid, IsRandomInEveryOtherBit)
{
    std::array<unsigned char, 16> everSet{};
    std::array<unsigned char, 16> alwaysSet{};
    alwaysSet.fill(0xFF);
    for (int draw = 0; draw < 200; ++draw) {
        const auto guid = Guid::Random();
        for (std::size_t i = 0; i < everSet.size(); ++i) {
            everSet.at(i) = static_cast<unsigned char>(everSet.at(i) | guid.GetBytes().at(i));
            alwaysSet.at(i) = static_cast<unsigned char>(alwaysSet.at(i) & guid.GetBytes().at(i));
        }
    }
    EXPECT_EQ(Guid(everSet).ToString(), "ffffffffffff4fffbfffffffffffffff");
    EXPECT_EQ(Guid(alwaysSet).ToString(), "00000000000040008000000000000000");
}

TEST(Guids, AreOrderedByTheirDigits)
{
    EXPECT_LT(Guid("00000000000000000000000000000001"), Guid("00000000000000000000000000000100"));
    EXPECT_LT(Guid("00ffffffffffffffffffffffffffffff"), Guid("01000000000000000000000000000000"));
}

TEST(AQualifiedName, KeepsItsPartsAndShowsBoth)
{
    const QualifiedName name(3, "Result");
    EXPECT_EQ(name.GetNamespaceIndex(), 3);
    EXPECT_EQ(name.GetName(), "Result");
    EXPECT_EQ(name.ToString(), "3:Result");
}

TEST(AQualifiedName, ShowsTheNameAloneInTheBaseNamespace)
{
    EXPECT_EQ(QualifiedName(0, "Severity").ToString(), "Severity");
    EXPECT_EQ(QualifiedName().ToString(), "");
}

TEST(QualifiedNames, DifferInNamespaceOrName)
{
    EXPECT_EQ(QualifiedName(1, "a"), QualifiedName(1, "a"));
    EXPECT_NE(QualifiedName(1, "a"), QualifiedName(2, "a"));
    EXPECT_NE(QualifiedName(1, "a"), QualifiedName(1, "A"));
    EXPECT_LT(QualifiedName(1, "b"), QualifiedName(2, "a"));
}

TEST(TheNamespaceMap, KnowsTheBaseTypesAndTheHost)
{
    EXPECT_EQ(NamespaceMap::GetNamespaceIndex(NamespaceMap::baseUri), 0);
    EXPECT_EQ(NamespaceMap::GetNamespaceIndex(NamespaceMap::hostUri), 1);
    EXPECT_EQ(NamespaceMap::GetUri(0), NamespaceMap::baseUri);
    EXPECT_EQ(NamespaceMap::GetUri(1), NamespaceMap::hostUri);
}

TEST(TheNamespaceMap, GivesAnIndexOnceAndKeepsIt)
{
    const auto index = NamespaceMap::Register("urn:test:kept");
    EXPECT_GT(index, 1);
    EXPECT_EQ(NamespaceMap::Register("urn:test:kept"), index);
    EXPECT_NE(NamespaceMap::Register("urn:test:another"), index);
    EXPECT_EQ(NamespaceMap::GetNamespaceIndex("urn:test:kept"), index);
    EXPECT_EQ(NamespaceMap::GetUri(index), "urn:test:kept");
    EXPECT_EQ(NamespaceMap::GetUris().at(static_cast<std::size_t>(index)), "urn:test:kept");
}

TEST(TheNamespaceMap, RefusesAnUnknownUriAndNamesIt)
{
    try {
        const auto index = NamespaceMap::GetNamespaceIndex("urn:test:unknown");
        FAIL() << index;
    } catch (const NotFoundException& exception) {
        EXPECT_THAT(exception.GetMessage(), HasSubstr("urn:test:unknown"));
    }
}

TEST(TheNamespaceMap, RefusesAnIndexThatNoNamespaceHas)
{
    EXPECT_THROW((void)NamespaceMap::GetUri(-1), NotFoundException);
    EXPECT_THROW((void)NamespaceMap::GetUri(1'000'000), NotFoundException);
    EXPECT_THROW((void)NamespaceMap::GetUri(static_cast<int>(NamespaceMap::GetUris().size())),
                 NotFoundException);
}

TEST(TheNamespaceMap, RefusesAnEmptyUri)
{
    EXPECT_THROW(NamespaceMap::Register(""), InvalidArgumentException);
}

TEST(TheNamespaceMap, GivesTheSameIndicesToThreadsThatRegisterTheSame)
{
    constexpr int uriCount = 50;
    std::vector<std::vector<int>> indices(4);
    std::vector<std::thread> threads;
    threads.reserve(indices.size());
    for (auto& own : indices)
        threads.emplace_back([&own] {
            for (int i = 0; i < uriCount; ++i) {
                const auto uri = "urn:test:raced:" + std::to_string(i);
                own.push_back(NamespaceMap::Register(uri));
                EXPECT_EQ(NamespaceMap::GetUri(own.back()), uri);
            }
        });
    for (auto& thread : threads)
        thread.join();
    for (const auto& own : indices)
        EXPECT_EQ(own, indices.front());
    EXPECT_EQ(std::unordered_set<int>(indices[0].begin(), indices[0].end()).size(), uriCount);
}

TEST(ANodeId, IsEmptyByDefault)
{
    EXPECT_TRUE(NodeId().IsEmpty());
    EXPECT_TRUE(NodeId::Empty().IsEmpty());
    EXPECT_EQ(NodeId(), NodeId::Empty());
    EXPECT_EQ(NodeId(0, 0), NodeId::Empty());
    EXPECT_EQ(NodeId().ToString(), "i=0");
}

TEST(ANodeId, IsNotEmptyWithAnyPartOfItsOwn)
{
    EXPECT_FALSE(NodeId(1, 0).IsEmpty());
    EXPECT_FALSE(NodeId(0, 1).IsEmpty());
    EXPECT_FALSE(NodeId(0, "").IsEmpty());
    EXPECT_FALSE(NodeId(0, Guid()).IsEmpty());
}

TEST(ANodeId, OfANumberHasThatFormAlone)
{
    const NodeId nodeId(2, 4'294'967'295U);
    ASSERT_NE(nodeId.GetNumeric(), nullptr);
    EXPECT_EQ(*nodeId.GetNumeric(), 4'294'967'295U);
    EXPECT_EQ(nodeId.GetText(), nullptr);
    EXPECT_EQ(nodeId.GetGuid(), nullptr);
    EXPECT_EQ(nodeId.GetNamespaceIndex(), 2);
    EXPECT_EQ(nodeId.ToString(), "ns=2;i=4294967295");
}

TEST(ANodeId, OfATextHasThatFormAlone)
{
    const NodeId nodeId(1, "name");
    ASSERT_NE(nodeId.GetText(), nullptr);
    EXPECT_EQ(*nodeId.GetText(), "name");
    EXPECT_EQ(nodeId.GetNumeric(), nullptr);
    EXPECT_EQ(nodeId.GetGuid(), nullptr);
    EXPECT_EQ(nodeId.ToString(), "ns=1;s=name");
}

TEST(ANodeId, OfAGuidHasThatFormAlone)
{
    const Guid guid("0123456789abcdef0011223344556677");
    const NodeId nodeId(1, guid);
    ASSERT_NE(nodeId.GetGuid(), nullptr);
    EXPECT_EQ(*nodeId.GetGuid(), guid);
    EXPECT_EQ(nodeId.GetNumeric(), nullptr);
    EXPECT_EQ(nodeId.GetText(), nullptr);
    EXPECT_EQ(nodeId.ToString(), "ns=1;g=0123456789abcdef0011223344556677");
}

TEST(ANodeId, SharesItsTextWithItsCopies)
{
    const NodeId nodeId(1, std::string(1000, 'x'));
    const NodeId copy = nodeId; // NOLINT(performance-unnecessary-copy-initialization): the subject
    EXPECT_EQ(copy, nodeId);
    EXPECT_EQ(copy.GetText(), nodeId.GetText());
}

TEST(ANodeId, IsEmptyOnceMovedFrom)
{
    NodeId source(1, "name");
    NodeId target(std::move(source));
    EXPECT_TRUE(source.IsEmpty()); // NOLINT(bugprone-use-after-move): the subject
    EXPECT_EQ(source, NodeId());
    source = std::move(target);
    EXPECT_TRUE(target.IsEmpty()); // NOLINT(bugprone-use-after-move): the subject
    EXPECT_EQ(source, NodeId(1, "name"));
}

TEST(NodeIds, OfDifferentFormNamespaceOrIdentifierDiffer)
{
    const std::vector<NodeId> all{
        NodeId(),          NodeId(0, 1),
        NodeId(1, 1),      NodeId(1, 2),
        NodeId(1, ""),     NodeId(1, "1"),
        NodeId(2, "1"),    NodeId(1, Guid()),
        NodeId(2, Guid()), NodeId(1, Guid("00000000000000000000000000000001")),
    };
    for (std::size_t i = 0; i < all.size(); ++i)
        for (std::size_t j = 0; j < all.size(); ++j)
            EXPECT_EQ(all[i] == all[j], i == j) << all[i].ToString() << ' ' << all[j].ToString();
}

TEST(NodeIds, ThatAreEqualHaveTheSameHash)
{
    const HashNodeId hash;
    EXPECT_EQ(hash(NodeId(3, 7)), hash(NodeId(3, 7)));
    EXPECT_EQ(hash(NodeId(3, "text")), hash(NodeId(3, "text")));
    EXPECT_EQ(hash(NodeId(3, Guid("0123456789abcdef0011223344556677"))),
              hash(NodeId(3, Guid("0123456789ABCDEF0011223344556677"))));
}

TEST(NodeIds, OfSeveralNamespacesSpreadInAHashTable)
{
    std::unordered_set<std::size_t> hashes;
    for (int namespaceIndex = 0; namespaceIndex < 10; ++namespaceIndex)
        for (unsigned int number = 0; number < 1000; ++number)
            hashes.insert(HashNodeId{}(NodeId(namespaceIndex, number)));
    EXPECT_EQ(hashes.size(), 10'000U);
}

} // namespace
} // namespace Core
