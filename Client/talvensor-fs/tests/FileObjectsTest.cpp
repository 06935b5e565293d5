// Commands that ask the file objects of a server.

#include "Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <sstream>

namespace CliTest {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

std::vector<json> ReadObjects(const std::string& output)
{
    std::vector<json> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(json::parse(line));
    return lines;
}

class AServerWithFileObjects : public testing::Test
{
protected:
    AServerWithFileObjects()
    {
        fs::create_directories(desk.GetRemote("d/e"));
        WriteFile(desk.GetRemote("d/five"), "12345");
        WriteFile(desk.GetRemote("d/e/two"), "12");
        MakeSparseFile(desk.GetRemote("large"), 20'000'000);
        EXPECT_EQ(chmod(desk.GetRemote("d/five").c_str(), 0640), 0);
        EXPECT_EQ(chmod(desk.GetRemote("d/e").c_str(), 0755), 0);
    }

    [[nodiscard]] Result Run(std::vector<std::string> arguments, const std::string& input = "")
    {
        arguments.insert(arguments.begin(), {"--security", "plain"});
        return desk.Run(arguments, input);
    }

    /// Returns the output of a command that succeeds.
    [[nodiscard]] std::string Get(const std::vector<std::string>& arguments)
    {
        const auto result = Run(arguments);
        EXPECT_EQ(result.status, 0) << result.error;
        return result.output;
    }

    ClientTest::TemporaryFolder fixed;
    Desk desk{{"--read-only", fixed.GetPath().string(), "--module", TALVENSOR_OBJECTS_MODULE,
               "--model", TALVENSOR_OBJECTS_MODEL}};
};

TEST_F(AServerWithFileObjects, TellsSizesAndPermissionsInALongListing)
{
    EXPECT_EQ(Run({"touch", "-d", "2020-01-02 03:04:05Z", "d/five", "d/e"}).status, 0);
    EXPECT_EQ(Get({"ls", "-la", "d"}), "drwxr-xr-x  -  2020-01-02 03:04:05  e\n"
                                       "-rw-r-----  5  2020-01-02 03:04:05  five\n");
    EXPECT_THAT(Get({"ls", "-lh", "large"}), HasSubstr(" 19M "));
    EXPECT_EQ(Get({"ls", "-1", "d/five"}), "d/five\n");
    const auto lines = ReadObjects(Get({"ls", "--json", "d"}));
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[1]["size"], 5);
    EXPECT_EQ(lines[1]["permissions"], "0640");
}

TEST_F(AServerWithFileObjects, TellsTheStateOfPaths)
{
    const auto text = Get({"stat", "d/f*"});
    EXPECT_THAT(text, HasSubstr("d/five\n"));
    EXPECT_THAT(text, HasSubstr("5 bytes\n"));
    EXPECT_THAT(text, HasSubstr("-rw-r----- (0640)\n"));
    EXPECT_THAT(text, HasSubstr("readable, writable\n"));
    const auto partly = Run({"stat", "--json", "missing", "d"});
    EXPECT_EQ(partly.status, 1);
    EXPECT_THAT(partly.error, HasSubstr("missing: No such file or directory"));
    EXPECT_EQ(json::parse(partly.output)["kind"], "directory");
    const auto readOnly = json::parse(Get({"stat", "--json", fixed.GetPath().string()}));
    EXPECT_EQ(readOnly["inReadOnlyFolder"], true);
}

TEST_F(AServerWithFileObjects, SumsUpSizes)
{
    EXPECT_EQ(Get({"du", "d"}), "2\td/e\n7\td\n");
    EXPECT_EQ(Get({"du", "-s", "d", "large"}), "7\td\n20000000\tlarge\n");
    EXPECT_EQ(Get({"du", "-sh"}), "19M\t.\n");
    const auto total = json::parse(Get({"du", "-s", "--json", "d"}));
    EXPECT_EQ(total["size"], 7);
    EXPECT_EQ(total["files"], 2);
}

TEST_F(AServerWithFileObjects, FindsAndDrawsWhatIsBelowADirectory)
{
    EXPECT_EQ(Get({"find", "t*"}), "d/e/two\n");
    EXPECT_EQ(Get({"find", "[ef]*", "d"}), "d/e\nd/five\n");
    EXPECT_EQ(Get({"find", "d/*e*"}), "d/e\nd/e/two\nd/five\n");
    EXPECT_EQ(Get({"find", "e/*", "d"}), "") << "it is for the whole path";
    EXPECT_EQ(json::parse(Get({"find", "--json", "five"}))["size"], 5);
    EXPECT_EQ(Get({"tree"}), ".\n"
                             "|-- d\n"
                             "|   |-- e\n"
                             "|   |   `-- two\n"
                             "|   `-- five\n"
                             "`-- large\n"
                             "\n"
                             "2 directories, 3 files\n");
    EXPECT_EQ(ReadObjects(Get({"tree", "--json"})).size(), 5U);
    EXPECT_EQ(ReadObjects(Get({"tree", "--json", "d"}))[0]["path"], "d/e");
    EXPECT_EQ(ReadObjects(Get({"ls", "--json", "d", "d/e"}))[2]["path"], "d/e/two");
}

TEST_F(AServerWithFileObjects, NamesItsFoldersAndTheirSpace)
{
    const auto root = desk.GetRemote("").parent_path().string();
    EXPECT_EQ(Get({"ls", "/"}), std::min(root, fixed.GetPath().string()) + "\n" +
                                    std::max(root, fixed.GetPath().string()) + "\n");
    EXPECT_THAT(Get({"info"}), HasSubstr(fixed.GetPath().string() + ", read-only"));
    const auto folders = json::parse(Get({"info", "--json"}))["folders"];
    ASSERT_EQ(folders.size(), 2U);
    EXPECT_GT(folders[0]["totalBytes"], 0);
    EXPECT_THAT(Get({"df", "-h"}), HasSubstr(root + "\n"));
    EXPECT_EQ(ReadObjects(Get({"df", "--json", "d"})).front()["path"], "d");
}

TEST_F(AServerWithFileObjects, SetsPermissionsByNumber)
{
    EXPECT_EQ(Run({"chmod", "--glob", "600", "d/*"}).status, 0);
    EXPECT_EQ(fs::status(desk.GetRemote("d/five")).permissions(), fs::perms(0600));
    const auto result = Run({"chmod", "755", "d", "nothing"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("nothing (remote): cannot set the permissions: No such "
                                        "file or directory"));
    EXPECT_EQ(fs::status(desk.GetRemote("d")).permissions(), fs::perms(0755));
}

TEST_F(AServerWithFileObjects, TellsProgramsWhatItChanged)
{
    const auto run = [this](std::vector<std::string> command) {
        command.insert(command.begin(), "--json");
        return ReadObjects(Run(std::move(command)).output);
    };
    const auto done = [](const std::string& path) {
        return json{{"path", path}, {"done", true}, {"reason", nullptr}};
    };
    EXPECT_THAT(run({"mkdir", "m", "m/n"}), ElementsAre(done("m"), done("m/n")));
    EXPECT_THAT(run({"touch", "m"}), ElementsAre(done("m")));
    EXPECT_THAT(run({"chmod", "755", "m", "m/n"}), ElementsAre(done("m"), done("m/n")));
    EXPECT_THAT(run({"chmod", "+x", "large"}), ElementsAre(done("large")));
    EXPECT_THAT(run({"rm", "-rf", "m/n", "nothing"}), ElementsAre(done("m/n")));
    EXPECT_THAT(
        run({"cp", "large", "m"}),
        ElementsAre(
            json{{"path", "large"}, {"target", "m/large"}, {"done", true}, {"reason", nullptr}}));
    const auto moved = run({"mv", "nothing", "m/large", "d"});
    ASSERT_EQ(moved.size(), 2U);
    EXPECT_EQ(moved[0]["path"], "nothing");
    EXPECT_EQ(moved[0]["done"], false);
    EXPECT_EQ(moved[0]["reason"], "nothing (remote): cannot rename: No such file or directory");
    EXPECT_EQ(moved[1]["target"], "d/large");
    EXPECT_EQ(moved[1]["done"], true);
}

TEST_F(AServerWithFileObjects, TellsProgramsWhatItDidNotChange)
{
    const auto getReason = [this](std::vector<std::string> command) {
        command.insert(command.begin(), "--json");
        const auto result = Run(std::move(command));
        EXPECT_EQ(result.status, 1);
        const auto object = json::parse(result.output);
        EXPECT_EQ(object["done"], false);
        const auto reason = object["reason"].get<std::string>();
        EXPECT_EQ(result.error, "talvensor-fs: " + reason + "\n");
        return reason;
    };
    EXPECT_EQ(getReason({"rm", "d"}), "d (remote): cannot delete: is a directory (use -r)");
    EXPECT_EQ(getReason({"rm", "nothing"}),
              "nothing (remote): cannot delete: No such file or directory");
    EXPECT_EQ(getReason({"mkdir", "large"}),
              "large (remote): cannot create directory: File exists");
    EXPECT_EQ(getReason({"touch", "nothing"}),
              "nothing (remote): cannot set the time: No such file or directory");
    EXPECT_EQ(getReason({"chmod", "+x", "d"}),
              "d (remote): cannot set the permissions: is a directory");
    EXPECT_EQ(getReason({"cp", "d", "x"}), "d (remote): cannot copy: is a directory (use -r)");
    EXPECT_EQ(getReason({"cp", "nothing", "x"}),
              "nothing (remote): cannot copy: No such file or directory");
    EXPECT_THAT(getReason({"mv", "d", "d/e"}), StartsWith("d (remote): cannot rename to d/e/d: "));
}

TEST_F(AServerWithFileObjects, NamesATargetThatIsNoDirectory)
{
    const auto getError = [this](const std::string& command) {
        const auto result = Run({command, "d/five", "d/e", "large"});
        EXPECT_EQ(result.status, 1);
        return result.error;
    };
    EXPECT_EQ(getError("mv"),
              "talvensor-fs: large (remote): cannot rename into it: Not a directory\n");
    EXPECT_EQ(getError("cp"),
              "talvensor-fs: large (remote): cannot copy into it: Not a directory\n");
}

TEST_F(AServerWithFileObjects, TellsProgramsTheBytesOfNames)
{
    const auto result = Run({"--json", "mkdir", "x\xFF"});
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(json::parse(result.output)["pathHex"], "78ff");
}

TEST(AServerWithoutFileObjects, TellsWhatItCan)
{
    const Desk desk;
    WriteFile(desk.GetRemote("five"), "12345");
    const std::vector<std::string> plain{"--security", "plain"};
    const auto run = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), plain.begin(), plain.end());
        return desk.Run(arguments);
    };
    EXPECT_THAT(run({"stat", "five"}).output, HasSubstr("5 bytes"));
    EXPECT_EQ(run({"du"}).output, "5\t.\n");
    EXPECT_EQ(run({"df"}).status, 1);
    EXPECT_THAT(run({"chmod", "600", "five"}).error, HasSubstr("no file objects"));
    EXPECT_THAT(run({"touch", "nothing"}).error,
                StartsWith("talvensor-fs: nothing (remote): cannot set the time: No such file"));
    EXPECT_THAT(run({"chmod", "+x", "nothing"}).error,
                StartsWith("talvensor-fs: nothing (remote): cannot set the permissions: No such"));
}

} // namespace
} // namespace CliTest
