#include "FileObjectsFixture.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

/// The calls that delete an entry, in place of those of the C library.
struct Deletions
{
    static constexpr int tooMany = 1000; ///< ends a deletion that would go on for ever

    bool areRefilled = false; ///< another process makes a new file for each entry that is deleted
    int ofRefilled = 0;
    std::string kept; ///< must not be deleted

    int Make(int directory, const char* name, int flags)
    {
        if (areRefilled && ++ofRefilled > tooMany)
            return Fail(EIO);
        if (name == kept)
            return Fail(EACCES);
        const auto result = static_cast<int>(syscall(SYS_unlinkat, directory, name, flags));
        if (areRefilled && result == 0) {
            const auto newName = "new" + std::to_string(ofRefilled);
            close(openat(directory, newName.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        }
        return result;
    }

private:
    static int Fail(int error)
    {
        errno = error;
        return -1;
    }
};

Deletions deletions;

} // namespace

__attribute__((visibility("default"))) int unlinkat(int directory, const char* name,
                                                    int flags) noexcept
{
    return deletions.Make(directory, name, flags);
}

namespace {

using namespace FileObjectsTests;

class ADeletion : public AFileTree
{
protected:
    ~ADeletion() override { deletions = {}; }
};

TEST_F(ADeletion, EndsWhileAnotherProcessMakesFiles)
{
    std::filesystem::create_directory(folder / "tree");
    folder.MakeFile("tree/file");
    deletions.areRefilled = true;
    EXPECT_EQ(client.Call("d/files", "Delete", {ToNode("d/files/tree")}), Code::Bad_InvalidState);
    EXPECT_EQ(client.GetMessage(), "files/tree: Directory not empty");
    EXPECT_LT(deletions.ofRefilled, Deletions::tooMany);
}

TEST_F(ADeletion, OfAnUnfinishedCopyEndsWhileAnotherProcessMakesFiles)
{
    folder.MakeDeepFolder("deep");
    deletions.areRefilled = true;
    EXPECT_EQ(client.Call("d/files", "MoveOrCopy",
                          {ToNode("d/files/deep"), ToNode("d/files"), true, "copy"}),
              Code::Bad_NotSupported);
    EXPECT_GT(deletions.ofRefilled, 0);
    EXPECT_LT(deletions.ofRefilled, Deletions::tooMany);
}

TEST_F(ADeletion, NamesWhatItCannotDeleteByItsPathHoweverDeep)
{
    folder.MakeDeepFolder("deep");
    std::string path = "deep";
    for (int level = 0; level < 300; ++level)
        path += "/d";
    path += "/kept";
    folder.MakeFile(path);
    deletions.kept = "kept";
    EXPECT_EQ(client.Call("d/files", "Delete", {ToNode("d/files/deep")}),
              Code::Bad_UserAccessDenied);
    EXPECT_EQ(client.GetMessage(), "files/" + path + ": Permission denied");
}

} // namespace
