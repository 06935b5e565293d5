// Every command against a real host, plain without a name and encrypted with a user.

#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <sstream>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSubsetOf;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

enum class Way
{
    Plain,
    Encrypted,
};

std::vector<std::string> MakeHostFlags(Way way, const fs::path& folder)
{
    if (way == Way::Plain)
        return {};
    return {"--users", Desk::MakeUserFile(folder).string(), "--trust-any-client"};
}

std::vector<json> ParseLines(const std::string& output)
{
    std::vector<json> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(json::parse(line));
    return lines;
}

/// Returns true if there are minutes to spend.
bool IsLong()
{
    return std::getenv("TALVENSOR_LONG") != nullptr;
}

class TheCommands : public testing::TestWithParam<Way>
{
protected:
    TheCommands()
    {
        if (GetParam() == Way::Encrypted) {
            desk.environment["TALVENSOR_USER"] = userName;
            desk.environment["TALVENSOR_PASSWORD"] = password;
            EXPECT_EQ(desk.Run({"--accept-new", "info"}).status, 0);
        }
    }

    [[nodiscard]] Result Run(std::vector<std::string> arguments, const std::string& input = "")
    {
        if (GetParam() == Way::Plain)
            arguments.insert(arguments.begin(), {"--security", "plain"});
        return desk.Run(arguments, input);
    }

    void ExpectDone(const Result& result) { EXPECT_EQ(result.status, 0) << result.error; }

    /// One line that names the file.
    void ExpectFailed(const Result& result, const std::string& file)
    {
        EXPECT_EQ(result.status, 1) << result.error;
        EXPECT_THAT(result.error, HasSubstr(file));
    }

    ClientTest::TemporaryFolder users;
    Desk desk{MakeHostFlags(GetParam(), users.GetPath())};
};

INSTANTIATE_TEST_SUITE_P(BothWays, TheCommands, testing::Values(Way::Plain, Way::Encrypted),
                         [](const auto& way) {
                             return way.param == Way::Plain ? "Plain" : "Encrypted";
                         });

TEST_P(TheCommands, TellOfTheServer)
{
    const auto text = Run({"info"});
    ExpectDone(text);
    EXPECT_THAT(text.output, HasSubstr(desk.host.GetUrl()));
    const auto result = Run({"info", "--json"});
    ExpectDone(result);
    const auto info = json::parse(result.output);
    EXPECT_EQ(info["endpoint"], desk.host.GetUrl());
    EXPECT_EQ(info["sharedNodes"], json::array({"FileSystem"}));
    EXPECT_EQ(info["modules"], json::array({"urn:Talvensor:FileSystem"}));
    EXPECT_EQ(info["user"], GetParam() == Way::Plain ? json(nullptr) : json(userName));
    EXPECT_EQ(info["securityMode"], GetParam() == Way::Plain ? "None" : "SignAndEncrypt");
}

TEST_P(TheCommands, MoveATreeThereAndBack)
{
    fs::create_directories(desk.GetLocal("tree/sub"));
    WriteFile(desk.GetLocal("tree/a b"), "first");
    WriteFile(desk.GetLocal("tree/sub/\xFF\n"), "second");
    WriteFile(desk.GetLocal("tree/[x,y]"), "");
    const auto put = Run({"put", "-r", "--verify", "tree", "there"});
    ExpectDone(put);
    EXPECT_THAT(put.error, HasSubstr("3 files"));
    EXPECT_EQ(ReadFile(desk.GetRemote("there/sub/\xFF\n")), "second");
    ExpectDone(Run({"get", "-r", "there", "back"}));
    EXPECT_EQ(ReadFile(desk.GetLocal("back/a b")), "first");
    EXPECT_EQ(ReadFile(desk.GetLocal("back/sub/\xFF\n")), "second");
    EXPECT_TRUE(fs::exists(desk.GetLocal("back/[x,y]")));
}

TEST_P(TheCommands, MoveFilesOfEverySize)
{
    std::vector<std::uintmax_t> sizes{0, 1, 61'439, 61'440, 61'441, 20'000'001};
    if (IsLong())
        sizes.push_back(std::uintmax_t{1} << 30U);
    fs::create_directory(desk.GetLocal("sizes"));
    for (const auto size : sizes)
        MakeMarkedFile(desk.GetLocal("sizes/" + std::to_string(size)), size);
    ExpectDone(Run({"put", "-r", "sizes", "there"}));
    ExpectDone(Run({"get", "-r", "there", "back"}));
    for (const auto size : sizes)
        for (const auto& copy : {desk.GetRemote("there"), desk.GetLocal("back")}) {
            const auto name = std::to_string(size);
            EXPECT_TRUE(AreSame(desk.GetLocal("sizes") / name, copy / name)) << copy / name;
        }
}

TEST_P(TheCommands, MoveManySmallFiles)
{
    const int count = IsLong() ? 20'000 : 500;
    fs::create_directory(desk.GetLocal("many"));
    for (int i = 0; i < count; ++i)
        WriteFile(desk.GetLocal("many/" + std::to_string(i)),
                  std::string(static_cast<std::size_t>(i % 4'097), static_cast<char>(i)));
    ExpectDone(Run({"put", "-r", "many", "there"}));
    const auto got = Run({"get", "-r", "--json", "there", "back"});
    ExpectDone(got);
    EXPECT_EQ(json::parse(got.output)["files"], count);
    for (int i = 0; i < count; ++i) {
        const auto name = std::to_string(i);
        ASSERT_TRUE(ReadFile(desk.GetLocal("many") / name) ==
                    ReadFile(desk.GetLocal("back") / name))
            << name;
    }
}

TEST_P(TheCommands, PutSeveralFilesIntoADirectoryAndGoOnAfterAFailure)
{
    WriteFile(desk.GetLocal("a"), "1");
    WriteFile(desk.GetLocal("c"), "3");
    fs::create_directory(desk.GetRemote("to"));
    ExpectFailed(Run({"put", "a", "missing", "c", "to"}), "missing");
    EXPECT_EQ(ReadFile(desk.GetRemote("to/a")), "1");
    EXPECT_EQ(ReadFile(desk.GetRemote("to/c")), "3");
    ExpectFailed(Run({"put", "a", "c", "nowhere"}), "nowhere");
    ExpectFailed(Run({"put", "a", "nowhere/"}), "nowhere/");
    ExpectFailed(Run({"put", "a", "nowhere/a"}), "nowhere/a");
    fs::create_directory(desk.GetLocal("folder"));
    ExpectFailed(Run({"put", "folder", "to"}), "folder");
}

TEST_P(TheCommands, GetSeveralFilesIntoADirectoryAndGoOnAfterAFailure)
{
    WriteFile(desk.GetRemote("a"), "1");
    WriteFile(desk.GetRemote("c"), "3");
    fs::create_directory(desk.GetLocal("to"));
    ExpectFailed(Run({"get", "a", "missing", "c", "to"}), "missing");
    EXPECT_EQ(ReadFile(desk.GetLocal("to/a")), "1");
    EXPECT_EQ(ReadFile(desk.GetLocal("to/c")), "3");
    ExpectFailed(Run({"get", "a", "c", "nowhere"}), "nowhere");
    ExpectFailed(Run({"get", "a", "nowhere/a"}), "nowhere/a");
}

TEST_P(TheCommands, SetTimesAndWhatPermissionsTheyCan)
{
    WriteFile(desk.GetLocal("run"), "x");
    fs::permissions(desk.GetLocal("run"), fs::perms::owner_all);
    ExpectDone(Run({"put", "run", "."}));
    EXPECT_EQ(fs::status(desk.GetRemote("run")).permissions() & fs::perms::owner_exec,
              fs::perms::owner_exec);
    ExpectDone(Run({"touch", "-d", "2020-01-02 03:04:05Z", "run"}));
    EXPECT_THAT(Run({"ls", "-l", "run"}).output, "-  2020-01-02 03:04:05  run\n");
    ExpectFailed(Run({"touch", "nothing"}), "nothing");
    EXPECT_FALSE(fs::exists(desk.GetRemote("nothing")));
    ExpectDone(Run({"chmod", "+x,readonly", "run"}));
    EXPECT_EQ(fs::status(desk.GetRemote("run")).permissions(), fs::perms(0555));
    ExpectFailed(Run({"chmod", "+x", "nothing"}), "nothing");
}

TEST_P(TheCommands, ListNamesAsTheyAreInPipes)
{
    fs::create_directories(desk.GetRemote("d/e"));
    WriteFile(desk.GetRemote("d-x"), "12345");
    WriteFile(desk.GetRemote("d/\xFF\x1b"), "");
    EXPECT_EQ(Run({"ls"}).output, "d\nd-x\n");
    EXPECT_EQ(Run({"ls", "-R"}).output, "d\nd/e\nd/\xFF\x1b\nd-x\n");
    EXPECT_EQ(Run({"ls", "-R0"}).output, std::string("d\0d/e\0d/\xFF\x1b\0d-x\0", 15));
    EXPECT_EQ(Run({"ls", "-s"}).output, "-  d\n5  d-x\n");
    EXPECT_THAT(Run({"ls", "-l"}).output, StartsWith("d  20"));
    ExpectFailed(Run({"ls", "missing"}), "missing");
}

TEST_P(TheCommands, ListAsJsonThatKeepsEveryName)
{
    fs::create_directories(desk.GetRemote("d"));
    WriteFile(desk.GetRemote("\xFFz"), "123");
    ExpectDone(Run({"touch", "-d", "@60", "\xFFz"}));
    const auto result = Run({"ls", "--json", "-s"});
    ExpectDone(result);
    const auto lines = ParseLines(result.output);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0]["path"], "d");
    EXPECT_EQ(lines[0]["kind"], "directory");
    EXPECT_EQ(lines[0]["size"], nullptr);
    EXPECT_EQ(lines[1]["pathHex"], "ff7a");
    EXPECT_EQ(lines[1]["kind"], "file");
    EXPECT_EQ(lines[1]["time"], "1970-01-01T00:01:00Z");
    EXPECT_EQ(lines[1]["size"], 3);
}

TEST_P(TheCommands, SayInJsonWhatCameOfATransfer)
{
    WriteFile(desk.GetLocal("a"), "12345");
    const auto good = Run({"put", "--json", "a", "b"});
    ExpectDone(good);
    EXPECT_THAT(good.error, IsEmpty());
    const auto done = json::parse(good.output);
    EXPECT_EQ(done["complete"], true);
    EXPECT_EQ(done["files"], 1);
    EXPECT_EQ(done["bytes"], 5);
    const auto bad = Run({"get", "--json", "missing", "c"});
    ExpectFailed(bad, "missing");
    const auto failed = json::parse(bad.output);
    EXPECT_EQ(failed["complete"], false);
    EXPECT_EQ(failed["failures"][0]["path"], "missing");
    EXPECT_EQ(failed["failures"][0]["side"], "remote");
}

TEST_P(TheCommands, TakeAndGiveStandardStreams)
{
    const std::string content(200'000, 'x');
    ExpectDone(Run({"put", "-", "from-input"}, content));
    EXPECT_EQ(ReadFile(desk.GetRemote("from-input")), content);
    const auto get = Run({"get", "from-input", "-"});
    ExpectDone(get);
    EXPECT_EQ(get.output, content);
    WriteFile(desk.GetRemote("b"), "tail");
    EXPECT_EQ(Run({"cat", "from-input", "b"}).output, content + "tail");
    const auto cat = Run({"cat", "missing", "b"});
    ExpectFailed(cat, "missing");
    EXPECT_EQ(cat.output, "tail");
    ExpectFailed(Run({"get", "missing", "-"}), "missing");
    ExpectFailed(Run({"put", "-", "nowhere/x"}, content), "nowhere/x");
    fs::create_directory(desk.GetRemote("folder"));
    ExpectFailed(Run({"put", "-", "folder"}, content), "folder: is a directory");
    EXPECT_EQ(Run({"put", "-", "b", "c"}).status, 2);
    EXPECT_EQ(Run({"get", "--json", "b", "-"}).status, 2);
    EXPECT_EQ(Run({"put", "-c", "-", "c"}).status, 2);
}

TEST_P(TheCommands, DeleteWhatTheyAreToldAndNoMore)
{
    fs::create_directories(desk.GetRemote("d/e"));
    WriteFile(desk.GetRemote("a"), "");
    ExpectFailed(Run({"rm", "a", "d", "missing"}),
                 "d (remote): cannot delete: is a directory (use -r)");
    EXPECT_FALSE(fs::exists(desk.GetRemote("a")));
    EXPECT_TRUE(fs::exists(desk.GetRemote("d/e")));
    ExpectDone(Run({"rm", "-r", "d"}));
    EXPECT_FALSE(fs::exists(desk.GetRemote("d")));
    ExpectFailed(Run({"rm", "missing"}), "missing");
    ExpectDone(Run({"rm", "-f", "missing"}));
    EXPECT_EQ(Run({"rm", "-r", "."}).status, 2);
    EXPECT_EQ(Run({"rm", "-r", "/"}).status, 2);
    EXPECT_EQ(Run({"rm", "-r", "d/.."}).status, 2);
    EXPECT_EQ(Run({"rm", ""}).status, 2);
}

TEST_P(TheCommands, DeleteNothingUnderANameThatANulCuts)
{
    WriteFile(desk.GetRemote("keep"), "x");
    const auto result = Run({"shell"}, "rm keep\\x00x\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error, HasSubstr("'keep\\x00x' contains a NUL"));
    EXPECT_TRUE(fs::exists(desk.GetRemote("keep")));
}

TEST_P(TheCommands, MakeDirectoriesAndSayWhatExists)
{
    ExpectDone(Run({"mkdir", "a/b", "c"}));
    EXPECT_TRUE(fs::is_directory(desk.GetRemote("a/b")));
    WriteFile(desk.GetRemote("f"), "");
    ExpectFailed(Run({"mkdir", "f/g", "h"}), "f/g");
    EXPECT_TRUE(fs::is_directory(desk.GetRemote("h")));
    const auto there = Run({"exists", "a/b", "f"});
    ExpectDone(there);
    EXPECT_EQ(there.output, "directory  a/b\nfile  f\n");
    const auto partly = Run({"exists", "a", "x"});
    EXPECT_EQ(partly.status, 1);
    EXPECT_EQ(partly.output, "directory  a\nmissing  x\n");
    EXPECT_EQ(Run({"exists", "-q", "x"}).output, "");
}

TEST_P(TheCommands, StartOverWhereNothingProvesThatAPartIsOfTheSource)
{
    std::string content(300'000, 'a');
    content.replace(150'000, 4, "half");
    WriteFile(desk.GetLocal("whole"), content);
    WriteFile(desk.GetRemote("part"), content.substr(0, 100'000));
    const auto put = Run({"put", "--continue", "--json", "whole", "part"});
    ExpectDone(put);
    EXPECT_EQ(json::parse(put.output)["resumedBytes"], 0);
    EXPECT_EQ(ReadFile(desk.GetRemote("part")), content);
    const auto again = Run({"put", "-c", "--json", "whole", "part"});
    EXPECT_EQ(json::parse(again.output)["skippedFiles"], 1);
}

TEST_P(TheCommands, AreQuietWhenTold)
{
    WriteFile(desk.GetLocal("a"), "12345");
    const auto result = Run({"put", "-q", "a", "."});
    ExpectDone(result);
    EXPECT_THAT(result.output + result.error, IsEmpty());
}

TEST_P(TheCommands, ReportEachFailureOnALineOfItsOwn)
{
    const auto result = Run({"-q", "get", "a\nb\x1b[2J", "missing", "."});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("a\\nb\\x1B[2J"));
    EXPECT_EQ(std::count(result.error.begin(), result.error.end(), '\n'), 2) << result.error;
    std::istringstream lines(result.error);
    for (std::string line; std::getline(lines, line);)
        EXPECT_THAT(line, StartsWith("talvensor-fs: "));
}

TEST_P(TheCommands, RunFromAScript)
{
    WriteFile(desk.GetLocal("a b"), "12345");
    const auto result = Run({"-q", "shell"}, "# moves a file\nmkdir d/e\ncd d\ncd e\npwd\n"
                                             "put 'a b'\nls -s\ncd ..\nls\nget \"e/a b\" copy\n"
                                             "lcd /\nlpwd\n");
    ExpectDone(result);
    EXPECT_EQ(result.output, "d/e\n5  a b\ne\n/\n");
    EXPECT_EQ(ReadFile(desk.GetLocal("copy")), "12345");
}

TEST_P(TheCommands, KnowNoNodeThatIsNotShared)
{
    ExpectFailed(Run({"watch", "Nothing"}), "Nothing");
}

} // namespace
} // namespace CliTest
