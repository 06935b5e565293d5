#include "OpcUa/Certificates.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <span>
#include <string>
#include <tuple>

namespace {

using OpcUa::FindApplicationUri;
using OpcUa::MakeKeyAndCertificate;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

std::string ToText(const OpcUa::Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

TEST(ACertificate, NamesItsRoleAndTheHostNames)
{
    const auto made = MakeKeyAndCertificate("tester", {"files.example.org"});
    EXPECT_THAT(ToText(made.certificate), HasSubstr("Talvensor tester on "));
    EXPECT_THAT(ToText(made.certificate), HasSubstr("files.example.org"));
    const auto uri = FindApplicationUri(made.certificate);
    EXPECT_THAT(uri, StartsWith("urn:"));
    EXPECT_THAT(uri, HasSubstr(":talvensor-tester:"));
}

TEST(ACertificate, HasAKeyAndAUriOfItsOwn)
{
    const auto one = MakeKeyAndCertificate("tester");
    const auto other = MakeKeyAndCertificate("tester");
    EXPECT_NE(one.key, other.key);
    EXPECT_NE(FindApplicationUri(one.certificate), FindApplicationUri(other.certificate));
}

TEST(ACertificate, IsReadToItsEndAndNotBeyond)
{
    const auto whole = MakeKeyAndCertificate("tester").certificate;
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_EQ(FindApplicationUri({whole.data(), length}), "");
    for (std::size_t index = 0; index < whole.size(); ++index) {
        auto damaged = whole;
        damaged[index] ^= 0xFFU;
        std::ignore = FindApplicationUri(damaged); // a sanitizer would complain
    }
    EXPECT_NE(FindApplicationUri(whole), "");
}

TEST(ACertificate, IsTheFirstOfItsChain)
{
    const auto first = MakeKeyAndCertificate("tester").certificate;
    auto chain = first;
    const auto second = MakeKeyAndCertificate("issuer").certificate;
    chain.insert(chain.end(), second.begin(), second.end());
    const auto found = OpcUa::GetFirstCertificate(chain);
    EXPECT_EQ(OpcUa::Bytes(found.begin(), found.end()), first);
    EXPECT_TRUE(OpcUa::GetFirstCertificate(std::span(chain).first(100)).empty());
    EXPECT_TRUE(OpcUa::GetFirstCertificate({}).empty());
}

TEST(ACertificate, TellsHowLongItIsValid)
{
    const auto certificate = MakeKeyAndCertificate("tester").certificate;
    EXPECT_THAT(OpcUa::DescribeValidity(certificate),
                MatchesRegex("20..-..-..T..:..:..Z until 20..-..-..T..:..:..Z"));
    EXPECT_EQ(OpcUa::DescribeValidity({}), "");
}

TEST(ACertificate, HasNoUriWhenItIsNone)
{
    EXPECT_EQ(FindApplicationUri({}), "");
    const std::string text = "-----BEGIN CERTIFICATE-----";
    EXPECT_EQ(
        FindApplicationUri({reinterpret_cast<const unsigned char*>(text.data()), text.size()}), "");
}

} // namespace
