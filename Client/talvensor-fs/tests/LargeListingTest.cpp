// Listings that are larger than the host puts into one answer.

#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace CliTest {
namespace {

using testing::HasSubstr;

class AHostOfSmallAnswers : public testing::Test
{
protected:
    AHostOfSmallAnswers()
    {
        for (const char* directory : {"one", "two"}) {
            std::filesystem::create_directory(desk.GetRemote(directory));
            AddFiles(directory, 2'000);
        }
    }

    void AddFiles(const std::string& directory, int count)
    {
        for (int i = 0; i < count; ++i)
            WriteFile(desk.GetRemote(directory) / (std::string(200, 'n') + std::to_string(i)), "");
    }

    [[nodiscard]] Result List()
    {
        return desk.Run({"--security", "plain", "ls", "-R", desk.GetRemote("").string()});
    }

    static std::ptrdiff_t CountLines(const std::string& text)
    {
        return std::count(text.begin(), text.end(), '\n');
    }

    Desk desk{{"--max-queued-output", "700kB", "--pause-at-queued-output", "50kB"}};
};

TEST_F(AHostOfSmallAnswers, IsListedDirectoryByDirectory)
{
    const Result result = List();
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(CountLines(result.output), 2 + 2 * 2'000);
}

TEST_F(AHostOfSmallAnswers, IsListedButForADirectoryThatIsTooLargeByItself)
{
    AddFiles("two", 5'000);
    const Result result = List();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("two"));
    EXPECT_EQ(CountLines(result.output), 2 + 2'000);
}

} // namespace
} // namespace CliTest
