#include "TreeRemoval.h"

#include "TemporaryFolder.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

/// The calls that remove an entry, in place of those of the C library.
struct Removals
{
    static constexpr int tooMany = 1000; ///< ends a removal that would go on for ever

    bool isWatched = false; // by a test of this file; the others of the program are let through
    int count = 0;
    std::string unknown;     ///< is listed, but cannot be looked up
    bool isRefilled = false; ///< another process makes a new file for each that is removed

    int Make(int directory, const char* name, int flags)
    {
        if (isWatched && ++count > tooMany) {
            errno = EIO;
            return -1;
        }
        if (name == unknown) {
            errno = ENOENT;
            return -1;
        }
        const auto result = static_cast<int>(syscall(SYS_unlinkat, directory, name, flags));
        if (isRefilled && result == 0 && flags == 0) {
            const auto newName = "new" + std::to_string(count);
            close(openat(directory, newName.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        }
        return result;
    }
};

Removals removals;

} // namespace

__attribute__((visibility("default"))) int unlinkat(int directory, const char* name,
                                                    int flags) noexcept
{
    return removals.Make(directory, name, flags);
}

namespace {

using FileSystemTests::TemporaryFolder;

class ATreeRemoval : public testing::Test
{
protected:
    ATreeRemoval()
    {
        std::filesystem::create_directory(tree);
        std::ofstream(tree / "file") << "content";
        removals = {};
        removals.isWatched = true;
    }

    ~ATreeRemoval() override { removals = {}; }

    const TemporaryFolder folder;
    const std::filesystem::path tree = folder.GetPath() / "tree";
};

TEST_F(ATreeRemoval, EndsWithANameThatIsListedButCannotBeLookedUp)
{
    std::ofstream(tree / "blank ") << "content";
    removals.unknown = "blank ";
    FileSystem::RemoveTree(tree);
    EXPECT_LT(removals.count, Removals::tooMany);
    EXPECT_FALSE(std::filesystem::exists(tree / "file"));
    EXPECT_TRUE(std::filesystem::exists(tree / "blank "));
}

TEST_F(ATreeRemoval, EndsWhileAnotherProcessMakesFiles)
{
    removals.isRefilled = true;
    FileSystem::RemoveTree(tree);
    EXPECT_LT(removals.count, Removals::tooMany);
    EXPECT_TRUE(std::filesystem::exists(tree));
}

} // namespace
