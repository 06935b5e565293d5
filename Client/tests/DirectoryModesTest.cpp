// Directories that are closed to others stay so on the other side, while they are filled too. Their
// owner may do everything there.

#include "Fixture.h"

#include "Client/FileSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace Client;
using namespace ClientTest;

namespace fs = std::filesystem;

namespace {

constexpr std::size_t smallSize = 1000;
constexpr std::size_t largeSize = std::size_t{2} << 20U;

/// Directories below the top of a tree and their modes; the empty name is the top.
using Modes = std::map<std::string, unsigned int>;

unsigned int GetMode(const fs::path& path)
{
    return static_cast<unsigned int>(fs::status(path).permissions());
}

void MakeTree(const fs::path& top, const Modes& modes)
{
    for (const auto& [name, mode] : modes) {
        MakeFile(top / name / "small", smallSize);
        MakeFile(top / name / "large", largeSize);
    }
    for (auto each = modes.rbegin(); each != modes.rend(); ++each)
        fs::permissions(top / each->first, fs::perms(each->second));
}

Modes ReadModes(const fs::path& top)
{
    Modes modes{{"", GetMode(top)}};
    for (const auto& entry : fs::recursive_directory_iterator(top))
        if (entry.is_directory())
            modes.emplace(fs::relative(entry.path(), top).string(), GetMode(entry.path()));
    return modes;
}

/// Looks at the directories of the target whenever something has come.
TransferOptions MakeOptions(const fs::path& target, const Modes& modes)
{
    TransferOptions options;
    options.isRecursive = true;
    options.progress = [target, modes](const Progress&) {
        for (const auto& [name, mode] : modes)
            EXPECT_EQ(GetMode(target / name) & 0077U & ~mode, 0U) << name;
    };
    return options;
}

const Modes closedTree{{"", 0755},      {"a", 0700},    {"a/b", 0700}, {"a/open", 0755},
                       {"group", 0750}, {"x", 0711},    {"x/y", 0700}, {"read", 0555},
                       {"one", 0500},   {"one/1", 0511}};

/// The modes on the other side: the owner may do everything, so that later transfers can.
Modes ForOwner(Modes modes)
{
    for (auto& [name, mode] : modes)
        mode |= 0700U;
    return modes;
}

class ADirectory : public WithObjects
{
protected:
    ADirectory()
        : mask(umask(022))
    {}
    ~ADirectory() override { umask(mask); }

    [[nodiscard]] fs::path Here() const { return local.GetPath() / "tree"; }
    [[nodiscard]] fs::path There() const { return root.GetPath() / "tree"; }

    const mode_t mask;
    Connection connection{WithObjects::MakeOptions(host)};
    FileSystem fileSystem{connection};
};

TEST_F(ADirectory, IsNoMoreOpenWhereItIsSentThanWhereItIs)
{
    MakeTree(Here(), closedTree);
    const auto sent = fileSystem.Upload({{Here().string(), There().string()}},
                                        ::MakeOptions(There(), closedTree));
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(sent.directories, closedTree.size());
    EXPECT_EQ(ReadModes(There()), ForOwner(closedTree));
    ExpectSameTrees(Here(), There());
}

TEST_F(ADirectory, IsNoMoreOpenWhereItIsFetchedThanWhereItIs)
{
    MakeTree(There(), closedTree);
    const auto fetched = fileSystem.Download({{Here().string(), There().string()}},
                                             ::MakeOptions(Here(), closedTree));
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    EXPECT_EQ(ReadModes(Here()), ForOwner(closedTree));
    ExpectSameTrees(There(), Here());
}

TEST_F(ADirectory, IsClosedAtItsTopToo)
{
    const Modes modes{{"", 0700}, {"a", 0755}};
    MakeTree(Here(), modes);
    const auto sent =
        fileSystem.Upload({{Here().string(), There().string()}}, ::MakeOptions(There(), modes));
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(ReadModes(There()), modes);
    const auto back = local.GetPath() / "back";
    const auto fetched =
        fileSystem.Download({{back.string(), There().string()}}, ::MakeOptions(back, modes));
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    EXPECT_EQ(ReadModes(back), modes);
}

TEST_F(ADirectory, OfATreesPartIsNoMoreOpenEither)
{
    MakeTree(Here(), closedTree);
    fs::create_directory(There());
    TreePart part{Here().string(), There().string(), {}};
    for (const auto& [name, mode] : closedTree)
        if (!name.empty()) {
            part.entries.push_back({.path = name, .time = {}, .isDirectory = true});
            part.entries.push_back({.path = name + "/small", .time = {}, .isDirectory = false});
            part.entries.push_back({.path = name + "/large", .time = {}, .isDirectory = false});
        }
    const auto sent = fileSystem.UploadPart(part, ::MakeOptions(There(), closedTree));
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(ReadModes(There()), ForOwner(closedTree));
    part.local = (local.GetPath() / "back").string();
    const auto fetched = fileSystem.DownloadPart(part, ::MakeOptions(part.local, closedTree));
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    EXPECT_EQ(ReadModes(part.local), ForOwner(closedTree));
}

TEST_F(ADirectory, ThatIsThereKeepsItsModeWhichIsToldWhereItIsMoreOpen)
{
    const Modes modes{{"", 0755}, {"closed", 0700}, {"other", 0700}};
    const Modes there{{"", 0755}, {"closed", 0755}, {"other", 0750}};
    MakeTree(Here(), modes);
    MakeTree(There(), there);
    const std::vector<TransferItem> items{{Here().string(), There().string()}};
    TransferOptions options;
    options.isRecursive = true;
    const auto sent = fileSystem.Upload(items, options);
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(ReadModes(There()), there);
    ASSERT_EQ(sent.notes.size(), 1U);
    EXPECT_EQ(sent.notes[0].path, There() / "closed");
    EXPECT_EQ(sent.notes[0].cause, "others cannot list it here, but may on the server");

    fs::permissions(There() / "closed", fs::perms(0700));
    fs::permissions(Here() / "closed", fs::perms(0755));
    const auto fetched = fileSystem.Download(items, options);
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    EXPECT_EQ(GetMode(Here() / "closed"), 0755U);
    ASSERT_EQ(fetched.notes.size(), 1U);
    EXPECT_EQ(fetched.notes[0].path, Here() / "closed");
    EXPECT_EQ(fetched.notes[0].cause, "others cannot list it on the server, but may here");
}

TEST_F(ADirectory, IsFetchedWithoutWhatTheUmaskTakes)
{
    MakeTree(There(), {{"", 0777}, {"a", 0775}});
    umask(027);
    TransferOptions options;
    options.isRecursive = true;
    const auto fetched = fileSystem.Download({{Here().string(), There().string()}}, options);
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    EXPECT_EQ(ReadModes(Here()), (Modes{{"", 0750}, {"a", 0750}}));
}

TEST_F(ADirectory, InAFolderThatALinkLeadsToIsToldToBeOpen)
{
    TemporaryFolder second;
    HostProcess two(root.GetPath(), [&] {
        auto arguments = GetObjectArguments();
        arguments.insert(arguments.end(), {"--root", second.GetPath().string()});
        return arguments;
    }());
    Connection other(WithObjects::MakeOptions(two));
    FileSystem both(other);
    fs::create_directory_symlink(second.GetPath(), root.GetPath() / "link");
    MakeTree(Here(), {{"", 0700}});
    TransferOptions options;
    options.isRecursive = true;
    const auto sent =
        both.Upload({{Here().string(), (root.GetPath() / "link/tree").string()}}, options);
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    ExpectSameTrees(Here(), second.GetPath() / "tree");
    ASSERT_EQ(sent.notes.size(), 1U);
    EXPECT_EQ(sent.notes[0].cause, "others cannot list it here, but may on the server");
}

class ADirectoryOnAServerWithoutFileObjects : public WithHost
{};

TEST_F(ADirectoryOnAServerWithoutFileObjects, IsToldWhenItsModeIsLost)
{
    Connection connection{MakeOptions(host)};
    FileSystem fileSystem{connection};
    const auto tree = local.GetPath() / "tree";
    MakeTree(tree, {{"", 0755}, {"closed", 0700}});
    TransferOptions options;
    options.isRecursive = true;
    const auto sent =
        fileSystem.Upload({{tree.string(), (root.GetPath() / "tree").string()}}, options);
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    ASSERT_EQ(sent.notes.size(), 1U);
    EXPECT_EQ(sent.notes[0].path, tree / "closed");
    EXPECT_EQ(sent.notes[0].cause, "others cannot list it here, but may on the server");
}

} // namespace
