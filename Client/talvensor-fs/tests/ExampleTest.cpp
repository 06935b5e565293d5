#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace CliTest {
namespace {

using testing::HasSubstr;

class TheExample : public testing::Test
{
protected:
    [[nodiscard]] Result Run(const std::string& url, const std::string& local) const
    {
        return desk.RunOther(TALVENSOR_CLIENT_EXAMPLE,
                             {url, (desk.GetHome() / "state").string(), local, "there"});
    }
    const Desk desk;
};

TEST_F(TheExample, SendsAFileAndFetchesItAgain)
{
    const std::string content(1'000'000, 'x');
    WriteFile(desk.GetLocal("a"), content);
    const auto result = Run(desk.host.GetUrl(), "a");
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(ReadFile(desk.GetRemote("there")), content);
    EXPECT_EQ(ReadFile(desk.GetLocal("a.back")), content);
    EXPECT_THAT(result.output, HasSubstr("there: 1000000 bytes, finished"));
    EXPECT_THAT(result.output, HasSubstr("file       there"));
}

TEST_F(TheExample, SaysWhatFails)
{
    const auto missing = Run(desk.host.GetUrl(), "missing");
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.error, HasSubstr("missing: "));
    const auto unreachable = Run("opc.tcp://127.0.0.1:1", "a");
    EXPECT_EQ(unreachable.status, 1);
    EXPECT_THAT(unreachable.error, HasSubstr("opc.tcp://127.0.0.1:1"));
}

} // namespace
} // namespace CliTest
