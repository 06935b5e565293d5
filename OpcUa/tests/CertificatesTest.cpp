#include "OpcUa/Certificates.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace {

using OpcUa::FindApplicationUri;
using OpcUa::MakeKeyAndCertificate;
using testing::HasSubstr;
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

TEST(ACertificate, HasNoUriWhenItIsNone)
{
    EXPECT_EQ(FindApplicationUri({}), "");
    const std::string text = "-----BEGIN CERTIFICATE-----";
    EXPECT_EQ(
        FindApplicationUri({reinterpret_cast<const unsigned char*>(text.data()), text.size()}), "");
}

} // namespace
