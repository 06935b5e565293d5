#include "Output/Progress.h"
#include "Output/Text.h"

#include <clocale>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Cli {
namespace {

using testing::HasSubstr;
using testing::Not;

Client::Progress MakeProgress()
{
    Client::Progress progress;
    progress.path = "folder/\xE4\xB8\xAD\x1b.bin";
    progress.fileBytes = 250'000;
    progress.fileSize = 1'000'000;
    progress.files = 1;
    progress.allFiles = 3;
    progress.bytes = 2'250'000;
    progress.allBytes = 9'000'000;
    return progress;
}

TEST(ProgressOnATerminal, TellsOfTheFileAndOfAll)
{
    const auto lines = RenderProgress(MakeProgress(), 1'000'000.0, 79);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0], HasSubstr(".bin"));
    EXPECT_THAT(lines[0], HasSubstr(" 25%  250.0 kB of 1.0 MB"));
    EXPECT_THAT(lines[1], HasSubstr("1 of 3 files   25%  2.2 MB of 9.0 MB  1.0 MB/s  0:07 left"));
}

TEST(ProgressOnATerminal, ShowsThatAFileIsVerifiedWithoutATimeLeft)
{
    auto progress = MakeProgress();
    progress.isVerifying = true;
    const auto lines = RenderProgress(progress, 1'000'000.0, 79);
    EXPECT_THAT(lines[0], HasSubstr("verifying   25%  250.0 kB of 1.0 MB"));
    EXPECT_THAT(lines[1], Not(HasSubstr("left")));
}

TEST(ProgressOnATerminal, FitsEveryWidth)
{
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    for (std::size_t columns = 1; columns < 120; ++columns) {
        for (const auto& line : RenderProgress(MakeProgress(), 1'000'000.0, columns)) {
            EXPECT_LE(CountColumns(line), columns) << line;
            EXPECT_THAT(line, Not(HasSubstr("\x1b")));
        }
    }
}

TEST(ProgressOnATerminal, ClaimsNothingThatIsNotKnown)
{
    auto progress = MakeProgress();
    progress.fileSize.reset();
    progress.allBytes.reset();
    for (const auto& line : RenderProgress(progress, std::nullopt, 79)) {
        EXPECT_THAT(line, Not(HasSubstr("%")));
        EXPECT_THAT(line, Not(HasSubstr("left")));
        EXPECT_THAT(line, Not(HasSubstr("/s")));
    }
}

TEST(ProgressOnATerminal, TakesTheSizeOfASingleFileForAll)
{
    auto progress = MakeProgress();
    progress.allBytes.reset();
    progress.allFiles = 1;
    progress.bytes = progress.fileBytes;
    EXPECT_THAT(DescribeProgress(progress, 250'000.0), HasSubstr("0:03 left"));
}

TEST(ARateMeter, TellsHowFastItWasLately)
{
    RateMeter meter;
    const RateMeter::Time start{};
    EXPECT_FALSE(meter.GetRate());
    for (unsigned second = 0; second <= 20; ++second)
        meter.Add(start + std::chrono::seconds(second), second <= 10 ? 0 : (second - 10) * 500);
    EXPECT_DOUBLE_EQ(meter.GetRate().value_or(0), 500.0);
}

TEST(ARateMeter, WaitsForASecond)
{
    RateMeter meter;
    const RateMeter::Time start{};
    meter.Add(start, 0);
    meter.Add(start + std::chrono::milliseconds(900), 900);
    EXPECT_FALSE(meter.GetRate());
    meter.Add(start + std::chrono::milliseconds(1'000), 1'000);
    EXPECT_DOUBLE_EQ(meter.GetRate().value_or(0), 1'000.0);
}

} // namespace
} // namespace Cli
