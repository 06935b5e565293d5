// Certificates of clients and servers, as their owners see them.

#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST(TheOwnCertificate, IsShownWithItsPlaceAndMadeWhereThereIsNone)
{
    const Desk desk;
    const auto file = desk.GetHome() / ".local/state/talvensor/client/own/certificate.der";
    fs::remove_all(file.parent_path());
    const auto text = desk.Run({"certificate"});
    EXPECT_EQ(text.status, 0) << text.error;
    EXPECT_TRUE(fs::exists(file));
    EXPECT_THAT(text.output, HasSubstr(file.string()));
    const auto own = json::parse(desk.Run({"certificate", "--json"}).output);
    EXPECT_EQ(own["path"], file.string());
    EXPECT_THAT(text.output,
                HasSubstr("talvensor-host trust " + own["fingerprint"].get<std::string>()));
}

TEST(AClientThatIsNotTrusted, LearnsWhatItsOperatorHasToDo)
{
    const ClientTest::TemporaryFolder users;
    Desk desk({"--users", Desk::MakeUserFile(users.GetPath()).string()}, {.address = "0.0.0.0"});
    desk.environment["TALVENSOR_PASSWORD"] = password;
    const auto result = desk.Run({"--accept-new", "-u", userName, "info"});
    EXPECT_EQ(result.status, 4);
    const auto own = json::parse(desk.Run({"certificate", "--json"}).output);
    EXPECT_THAT(result.error, HasSubstr(own["path"].get<std::string>()));
    EXPECT_THAT(result.error,
                HasSubstr("talvensor-host trust " + own["fingerprint"].get<std::string>()));
}

TEST(TheKnownServers, AreListedAndForgotten)
{
    const Desk desk;
    EXPECT_THAT(desk.Run({"known"}).output, IsEmpty());
    ASSERT_EQ(desk.Run({"--accept-new", "info"}).status, 0);
    const auto known = json::parse(desk.Run({"known", "--json"}).output);
    const auto server = known["server"].get<std::string>();
    EXPECT_EQ("opc.tcp://" + server, desk.host.GetUrl());
    EXPECT_EQ(desk.Run({"known"}).output,
              server + "  " + known["fingerprint"].get<std::string>() + "\n");
    const auto unknown = desk.Run({"known", "--forget", "elsewhere"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_THAT(unknown.error, HasSubstr("elsewhere: is not a known server"));
    const auto forgotten = desk.Run({"--json", "known", "--forget", "127.0.0.1"});
    EXPECT_EQ(forgotten.status, 0);
    EXPECT_EQ(forgotten.output, "{\"server\":\"127.0.0.1\",\"forgotten\":1}\n");
    EXPECT_THAT(desk.Run({"known"}).output, IsEmpty());
    EXPECT_EQ(desk.Run({"info"}).status, 4);
}

TEST(TheHost, ShowsTheFingerprintThatItsClientsSee)
{
    const ClientTest::TemporaryFolder pki;
    const Desk desk({}, {.pki = pki.GetPath() / "pki"});
    ASSERT_EQ(desk.Run({"--accept-new", "info"}).status, 0);
    const auto known = json::parse(desk.Run({"known", "--json"}).output);
    const auto shown =
        desk.RunOther(TALVENSOR_HOST, {"fingerprint", "--pki", (pki.GetPath() / "pki").string()});
    EXPECT_EQ(shown.status, 0) << shown.error;
    EXPECT_THAT(shown.output, StartsWith(known["fingerprint"].get<std::string>() + "\n"));
    const auto missing =
        desk.RunOther(TALVENSOR_HOST, {"fingerprint", "--pki", pki.GetPath().string()});
    EXPECT_NE(missing.status, 0);
    EXPECT_THAT(missing.error, HasSubstr("own/certificate.der"));
}

} // namespace
} // namespace CliTest
