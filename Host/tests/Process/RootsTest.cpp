#include "Process/Roots.h"

#include "TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Host {
namespace {

using testing::ElementsAre;

class NamesOfRoots : public testing::Test
{
protected:
    /// Makes a folder and returns its path.
    std::filesystem::path Make(const std::string& name) const
    {
        std::filesystem::create_directories(folder.GetPath() / name);
        return folder.GetPath() / name;
    }

    static std::vector<std::string> GetNames(const std::vector<std::filesystem::path>& paths)
    {
        std::vector<Root> roots;
        for (const auto& path : paths)
            roots.push_back(MakeRoot(path, false));
        std::vector<std::string> names;
        for (const auto& each : NameRoots(roots))
            names.push_back(each.name);
        return names;
    }

    TemporaryFolder folder;
};

TEST_F(NamesOfRoots, AreTheLastPartsOfTheirPaths)
{
    EXPECT_THAT(GetNames({Make("data"), Make("a/archive") / "", Make("b") / "." / "../b"}),
                ElementsAre("data", "archive", "b"));
}

TEST_F(NamesOfRoots, GetANumberWhenTheyAreTaken)
{
    EXPECT_THAT(GetNames({Make("a/data"), Make("data-2"), Make("b/data"), Make("c/data")}),
                ElementsAre("data", "data-2", "data-3", "data-4"));
}

TEST_F(NamesOfRoots, AreThoseOfLinksByWhichTheyWereGiven)
{
    std::filesystem::create_symlink(Make("real"), folder.GetPath() / "link");
    const Root root = MakeRoot(folder.GetPath() / "link", true);
    const auto folders = NameRoots({root});
    ASSERT_EQ(folders.size(), 1U);
    EXPECT_EQ(folders.front().name, "link");
    EXPECT_EQ(folders.front().path, std::filesystem::canonical(Make("real")).string());
    EXPECT_TRUE(folders.front().isReadOnly);
}

TEST_F(NamesOfRoots, AreThereOnceForAFolderThatWasGivenTwice)
{
    std::filesystem::create_symlink(Make("data"), folder.GetPath() / "link");
    EXPECT_THAT(GetNames({Make("data"), folder.GetPath() / "link", Make("data"), Make("other")}),
                ElementsAre("data", "other"));
}

} // namespace
} // namespace Host
