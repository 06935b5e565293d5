#include "Network/Admission.h"

#include "Network/Addresses.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Host {
namespace {

using testing::AllOf;
using testing::HasSubstr;

const std::vector<ListenAddress> loopback = {{"127.0.0.1", true}, {"::1", true}};
const std::vector<ListenAddress> anywhere = {{"127.0.0.1", true}, {"192.0.2.1", false}};

std::string GetComplaint(bool hasUsers)
{
    try {
        std::ignore = DecideAdmission(anywhere, hasUsers);
        return {};
    } catch (const OpenDoorsException& error) {
        return error.GetMessage();
    }
}

TEST(OnLoopback, AnybodyGetsInWithoutUsers)
{
    const auto admission = DecideAdmission(loopback, false);
    EXPECT_TRUE(admission.allowsAnonymous);
    EXPECT_TRUE(admission.allowsUnencrypted);
}

TEST(OnLoopback, NobodyGetsInWithoutANameWhereThereAreUsers)
{
    const auto admission = DecideAdmission(loopback, true);
    EXPECT_FALSE(admission.allowsAnonymous);
    EXPECT_TRUE(admission.allowsUnencrypted);
}

TEST(OnOtherAddresses, UsersAreRequired)
{
    EXPECT_THAT(GetComplaint(false), AllOf(HasSubstr("192.0.2.1"), HasSubstr("--users")));
}

TEST(OnOtherAddresses, NobodyGetsInWithoutANameOrUnencrypted)
{
    const auto admission = DecideAdmission(anywhere, true);
    EXPECT_FALSE(admission.allowsAnonymous);
    EXPECT_FALSE(admission.allowsUnencrypted);
}

bool IsLoopback(const std::string& host)
{
    const auto addresses = ResolveListenUrl({.host = host, .port = 0});
    EXPECT_FALSE(addresses.empty());
    return std::all_of(addresses.begin(), addresses.end(),
                       [](const ListenAddress& address) { return address.isLoopback; });
}

TEST(AnAddressToListenOn, IsKnownForLoopback)
{
    for (const auto* const host :
         {"localhost", "127.0.0.1", "127.9.8.7", "::1", "::ffff:127.0.0.1"})
        EXPECT_TRUE(IsLoopback(host)) << host;
    for (const auto* const host : {"0.0.0.0", "::", "192.0.2.1", "128.0.0.1", "126.255.255.255",
                                   "2001:db8::1", "::ffff:192.0.2.1", "fe80::1"})
        EXPECT_FALSE(IsLoopback(host)) << host;
}

TEST(AnAddressToListenOn, HasToExist)
{
    EXPECT_THROW(std::ignore = ResolveListenUrl({.host = "nowhere.invalid", .port = 0}),
                 Core::SystemException);
}

} // namespace
} // namespace Host
