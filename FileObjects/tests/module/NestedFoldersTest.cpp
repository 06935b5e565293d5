#include "FileObjectsFixture.h"

#include <filesystem>
#include <fstream>

namespace {

using namespace FileObjectsTests;

/// Folders inside others, with other rules than these, where no sandbox helps: "kept" in "files",
/// which clients cannot change, and "open" in "fixed", which they can.
class AFolderInAnother : public testing::Test, public FileTree
{
protected:
    AFolderInAnother()
        : FileTree([](const FileTree& tree) {
            std::filesystem::create_directories(tree.folder / "directory/kept");
            std::filesystem::create_directories(tree.fixed / "open");
            std::ofstream(tree.folder / "directory/kept/file") << "kept";
            std::ofstream(tree.folder / "directory/file") << "free";
            std::ofstream(tree.fixed / "open/file") << "open";
            return std::vector<Core::Folder>{{"kept", tree.folder / "directory/kept", true},
                                             {"open", tree.fixed / "open", false}};
        })
    {}

    std::uint32_t Move(const std::string& parent, const std::string& name)
    {
        return client.Call(parent, "MoveOrCopy", {ToNode(name), ToNode("d/files"), false, "moved"});
    }

    [[nodiscard]] std::string ReadKept() const
    {
        return ReadWholeFile(folder / "directory/kept/file");
    }
};

TEST_F(AFolderInAnother, KeepsItsLinksWhereverTheyLead)
{
    folder.MakeFile("source", "source");
    folder.MakeFile("new", "elsewhere");
    std::filesystem::create_symlink("directory/kept", folder / "alias");
    std::filesystem::create_symlink("../../new", folder / "directory/kept/link");
    for (const bool isCopied : {false, true}) {
        if (isCopied)
            EXPECT_EQ(client.Call("", "CopyPath", {"source", "alias/link", true}),
                      Code::Bad_NotWritable);
        else
            EXPECT_EQ(
                client.Call("", "MovePaths",
                            {Core::Value::MakeArray(std::vector<std::string>{"source"}, {1}),
                             Core::Value::MakeArray(std::vector<std::string>{"alias/link"}, {1}),
                             true}),
                Code::Good);
        EXPECT_TRUE(std::filesystem::is_symlink(folder / "directory/kept/link"));
        EXPECT_TRUE(std::filesystem::exists(folder / "source"));
    }
}

TEST_F(AFolderInAnother, HasItsOwnRuleFromThereToo)
{
    for (const std::string place : {"files/directory/kept", "kept"}) {
        const std::string directory = "d/" + place;
        const std::string file = "f/" + place + "/file";
        EXPECT_FALSE(ReadProperty<bool>("f.Writable/" + place + "/file"));
        EXPECT_EQ(client.Call(file, "Open", {static_cast<unsigned char>(2)}),
                  Code::Bad_NotWritable);
        EXPECT_NE(client.Open(file, 1), 0U) << client.GetMessage();
        EXPECT_EQ(client.Call(file, "SetPermissions", {0600U}), Code::Bad_NotWritable);
        EXPECT_EQ(client.Call(directory, "SetPermissions", {0700U}), Code::Bad_NotWritable);
        EXPECT_EQ(client.Call(directory, "CreateFile", {"new", false}), Code::Bad_NotWritable);
        EXPECT_EQ(client.Call(directory, "CreateDirectory", {"new"}), Code::Bad_NotWritable);
        EXPECT_EQ(other.Call(directory, "Delete", {ToNode(file)}), Code::Bad_NotWritable);
        EXPECT_EQ(Move(directory, file), Code::Bad_NotWritable);
        EXPECT_EQ(client.Call("t", "GenerateFileForWrite", {place + "/file"}),
                  Code::Bad_NotWritable);
        EXPECT_EQ(client.Call("t", "GenerateFileForWrite", {place + "/new"}),
                  Code::Bad_NotWritable);
    }
    EXPECT_EQ(ReadKept(), "kept");
}

TEST_F(AFolderInAnother, HasItsOwnRuleBehindALink)
{
    std::filesystem::create_symlink("directory/kept", folder / "link");
    std::filesystem::create_symlink("directory/kept/file", folder / "file");
    EXPECT_EQ(client.Call("f/files/link/file", "Open", {static_cast<unsigned char>(2)}),
              Code::Bad_NotWritable);
    EXPECT_EQ(client.Call("f/files/file", "Open", {static_cast<unsigned char>(2)}),
              Code::Bad_NotWritable);
    EXPECT_EQ(client.Call("d/files/link", "CreateFile", {"new", false}), Code::Bad_NotWritable);
    // The link itself is in the other folder.
    EXPECT_EQ(client.Call("d/files", "Delete", {ToNode("d/files/link")}), Code::Good);
    EXPECT_EQ(ReadKept(), "kept");
}

TEST_F(AFolderInAnother, IsNeitherDeletedNorMovedWithWhatIsAroundIt)
{
    for (const std::string name : {"directory", "directory/kept"}) {
        const std::string parent = name == "directory" ? "d/files" : "d/files/directory";
        EXPECT_EQ(client.Call(parent, "Delete", {ToNode("d/files/" + name)}),
                  Code::Bad_NotWritable);
        EXPECT_EQ(Move(parent, "d/files/" + name), Code::Bad_NotWritable);
    }
    EXPECT_EQ(ReadKept(), "kept");
    EXPECT_EQ(client.Call("d/files/directory", "Delete", {ToNode("f/files/directory/file")}),
              Code::Good);
}

TEST_F(AFolderInAnother, CanBeChangedInOneThatCannot)
{
    EXPECT_TRUE(ReadProperty<bool>("f.Writable/fixed/open/file"));
    EXPECT_EQ(client.Call("d/fixed/open", "CreateFile", {"new", false}), Code::Good)
        << client.GetMessage();
    EXPECT_EQ(client.Call("d/fixed", "CreateFile", {"new", false}), Code::Bad_NotWritable);
}

} // namespace
