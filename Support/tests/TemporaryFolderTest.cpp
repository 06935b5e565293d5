#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace {

using Support::TemporaryFolder;
namespace fs = std::filesystem;

TEST(ATemporaryFolder, IsRemovedWithEverythingInIt)
{
    fs::path path;
    {
        const TemporaryFolder folder;
        path = folder.GetPath();
        folder.MakeFolder("a/b");
        folder.MakeFile("a/b/c", "content");
        EXPECT_TRUE(fs::is_regular_file(path / "a" / "b" / "c"));
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST(ATemporaryFolder, StaysWhenItIsKept)
{
    const TemporaryFolder parent;
    fs::path path;
    {
        TemporaryFolder folder(parent.GetPath());
        path = folder.GetPath();
        folder.Keep();
    }
    EXPECT_TRUE(fs::is_directory(path));
    EXPECT_EQ(path.parent_path(), parent.GetPath());
}

TEST(ATemporaryFolder, IsAnotherEachTime)
{
    const TemporaryFolder one;
    const TemporaryFolder other;
    EXPECT_NE(one.GetPath(), other.GetPath());
}

TEST(ATemporaryFolder, HasFilesWithTheContentThatTheyWereGiven)
{
    const TemporaryFolder folder;
    std::ifstream stream(folder.MakeFile("file", "a\nb"), std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    EXPECT_EQ(content, "a\nb");
    EXPECT_THROW(folder.MakeFile("missing/file"), std::system_error);
}

TEST(ATemporaryFolder, CannotBeMadeInAFolderThatIsNotThere)
{
    EXPECT_THROW(TemporaryFolder("/nowhere/at/all"), std::system_error);
}

} // namespace
