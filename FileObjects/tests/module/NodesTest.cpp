#include "FileObjectsFixture.h"

#include <algorithm>
#include <atomic>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace FileObjectsTests;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class ATreeOfNodes : public AFileTree
{
protected:
    static int GetNamespace()
    {
        return Core::NamespaceMap::GetNamespaceIndex("urn:Talvensor:FileObjects");
    }

    /// Lets a directory look as if nobody had changed it for a while.
    static void MakeOld(const std::string& directory)
    {
        const timespec times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, directory.c_str(), times, 0), 0);
    }
};

TEST_F(ATreeOfNodes, BeginsWithTheFoldersOfTheHost)
{
    EXPECT_THAT(List(""), ElementsAre("d/files", "d/fixed", "d/missing"));
    EXPECT_THAT(provider->GetMembers(""), ElementsAre("t"));
    EXPECT_TRUE(provider->Exists("d/files"));
    EXPECT_TRUE(provider->Exists("d/missing")) << "it may be mounted later";
    EXPECT_THROW(static_cast<void>(List("d/missing")), Core::StatusException);
    EXPECT_EQ(client.Call("d/missing", "CreateDirectory", {"a"}), Code::Bad_NotFound);
    std::filesystem::create_directory(outside / "missing");
    EXPECT_EQ(client.Call("d/missing", "CreateDirectory", {"a"}), Code::Good);
    EXPECT_THAT(List("d/missing"), ElementsAre("d/missing/a"));
}

TEST_F(ATreeOfNodes, ShowsDirectoriesAndFilesAndNothingElse)
{
    std::filesystem::create_directory(folder / "directory");
    folder.MakeFile("file", "content");
    folder.MakeFile("\xFF name", "not UTF-8");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0666), 0);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    (folder / "socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ::close(socket);
    std::filesystem::create_symlink("file", folder / "link");
    std::filesystem::create_symlink("directory", folder / "directory link");
    std::filesystem::create_symlink("no such file", folder / "broken");
    std::filesystem::create_symlink("circle", folder / "circle");
    std::filesystem::create_symlink("pipe", folder / "pipe link");
    EXPECT_THAT(List("d/files"),
                UnorderedElementsAre("d/files/directory", "f/files/file", "f/files/%FF name",
                                     "f/files/link", "d/files/directory link"));
    for (const auto& key : List("d/files"))
        EXPECT_TRUE(provider->Exists(key)) << key;
    for (const auto* key : {"f/files/pipe", "f/files/socket", "f/files/broken", "f/files/circle",
                            "f/files/pipe link", "f/files/directory", "d/files/file",
                            "d/files/link", "f/files/no such file", "f/files/file/below"})
        EXPECT_FALSE(provider->Exists(key)) << key;
}

TEST_F(ATreeOfNodes, DescribesEachNodeByItsKeyAlone)
{
    const auto file = provider->Describe("f/files/no/such \xC3\xA4%FF");
    ASSERT_TRUE(file);
    EXPECT_EQ(file->kind, Core::ProvidedNode::Kind::Object);
    EXPECT_EQ(file->browseName, Core::QualifiedName(GetNamespace(), "such \xC3\xA4\xFF"));
    EXPECT_EQ(file->type, Core::NodeId(GetNamespace(), 2));
    EXPECT_EQ(file->parent, "d/files/no");
    const auto directory = provider->Describe("d/files");
    ASSERT_TRUE(directory);
    EXPECT_EQ(directory->browseName, Core::QualifiedName(GetNamespace(), "files"));
    EXPECT_EQ(directory->type, Core::NodeId(GetNamespace(), 1));
    EXPECT_EQ(directory->parent, "");
    EXPECT_EQ(directory->lane, file->lane);
    EXPECT_NE(directory->lane, provider->Describe("d/fixed")->lane);
    const auto size = provider->Describe("f.Size/files/a/b");
    ASSERT_TRUE(size);
    EXPECT_EQ(size->kind, Core::ProvidedNode::Kind::Property);
    EXPECT_EQ(size->browseName, Core::QualifiedName(0, "Size"));
    EXPECT_EQ(size->type, Core::NodeId(0, 9));
    EXPECT_EQ(size->parent, "f/files/a/b");
    EXPECT_EQ(provider->Describe("t")->type, Core::NodeId(GetNamespace(), 3));
    folder.MakeFile("a");
    for (const std::string key :
         {"", "f.Nothing/files/a", "d.Size/files", "t.Size", "f/files", "f/other/a"}) {
        EXPECT_FALSE(provider->Describe(key)) << key;
        EXPECT_EQ(provider->Exists(key), key.empty()) << key;
    }
}

TEST_F(ATreeOfNodes, GivesEachMemberADescriptionAndAValue)
{
    folder.MakeFile("file", "content");
    for (const auto* key : {"f/files/file", "d/files", "t"}) {
        const auto members = provider->GetMembers(key);
        EXPECT_FALSE(members.empty());
        for (const auto& member : members) {
            const auto description = provider->Describe(member);
            ASSERT_TRUE(description) << member;
            EXPECT_EQ(description->parent, key);
            EXPECT_TRUE(provider->Exists(member)) << member;
            EXPECT_FALSE(provider->Read(member).IsEmpty()) << member;
            EXPECT_THAT(provider->GetMembers(member), IsEmpty());
        }
    }
}

TEST_F(ATreeOfNodes, ListsLargeDirectoriesInSmallChunks)
{
    std::set<std::string> expected;
    for (int i = 0; i < 600; ++i) {
        folder.MakeFile(std::to_string(i));
        expected.insert("f/files/" + std::to_string(i));
    }
    Entries entries;
    provider->List("d/files", entries);
    EXPECT_EQ(entries.largestChunk, 256U);
    EXPECT_EQ(std::set<std::string>(entries.keys.begin(), entries.keys.end()), expected);
    EXPECT_EQ(entries.keys.size(), expected.size());
    EXPECT_EQ(List("d/files"), entries.keys) << "the order stays";
}

TEST_F(ATreeOfNodes, IsListedAgainOnlyWhenADirectoryHasChanged)
{
    folder.MakeFile("file");
    MakeOld(folder.GetPath());
    Entries first;
    provider->List("d/files", first);
    EXPECT_EQ(first.keys.size(), 1U);
    Entries unchanged(first.version);
    provider->List("d/files", unchanged);
    EXPECT_THAT(unchanged.keys, IsEmpty());
    folder.MakeFile("another");
    Entries changed(first.version);
    provider->List("d/files", changed);
    EXPECT_EQ(changed.keys.size(), 2U);
    // Changed just now: a further change could leave the same time.
    Entries again(changed.version);
    provider->List("d/files", again);
    EXPECT_EQ(again.keys.size(), 2U);
}

TEST_F(ATreeOfNodes, EndsAtLinksThatLeadOut)
{
    outside.MakeFile("secret", "content");
    std::filesystem::create_symlink(outside.GetPath(), folder / "out");
    std::filesystem::create_symlink(outside / "secret", folder / "secret");
    std::filesystem::create_directory(folder / "below");
    std::filesystem::create_symlink("../../" + outside.GetPath().filename().string() + "/secret",
                                    folder / "below/up");
    // A link to an open directory: it would lead there if the kernel followed it.
    const int opened = open(outside.GetPath().c_str(), O_PATH | O_DIRECTORY);
    std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(opened), folder / "magic");
    EXPECT_THAT(List("d/files"), ElementsAre("d/files/below"));
    EXPECT_THAT(List("d/files/below"), IsEmpty());
    for (const std::string key : {"f/files/secret", "f/files/out/secret", "f/files/below/up",
                                  "d/files/out", "d/files/magic", "f/files/magic/secret"}) {
        EXPECT_FALSE(provider->Exists(key)) << key;
        EXPECT_EQ(client.Call(key, "SetPermissions", {0600U}), Code::Bad_NotFound) << key;
        if (key.front() == 'f') {
            EXPECT_EQ(client.Open(key, 1), 0U) << key;
        }
    }
    EXPECT_EQ(client.Call("d/files/out", "CreateFile", {"new", false}), Code::Bad_NotFound);
    EXPECT_FALSE(std::filesystem::exists(outside / "new"));
    close(opened);
}

TEST_F(ATreeOfNodes, FollowsLinksThatStayInside)
{
    std::filesystem::create_directories(folder / "a/b");
    folder.MakeFile("a/file", "content");
    std::filesystem::create_symlink("../file", folder / "a/b/link");
    EXPECT_EQ(ReadProperty<unsigned long>("f.Size/files/a/b/link"), 7U);
    const auto handle = client.Open("f/files/a/b/link", 1);
    EXPECT_EQ(client.Read("f/files/a/b/link", handle), "content");
}

TEST_F(ATreeOfNodes, StaysInsideWhileOthersSwapDirectoriesForLinks)
{
    outside.MakeFile("file", "outside");
    std::filesystem::create_directory(folder / "swapped");
    folder.MakeFile("swapped/file", "inside");
    std::atomic<bool> isDone{false};
    std::thread swapper([&] {
        while (!isDone) {
            std::filesystem::rename(folder / "swapped", folder / "away");
            std::filesystem::create_symlink(outside.GetPath(), folder / "swapped");
            std::filesystem::remove(folder / "swapped");
            std::filesystem::rename(folder / "away", folder / "swapped");
        }
    });
    std::size_t seen = 0;
    for (int round = 0; round < 3000 || (seen == 0 && round < 1'000'000); ++round) {
        const auto handle = client.Open("f/files/swapped/file", 1);
        if (handle == 0)
            continue;
        ++seen;
        EXPECT_EQ(client.Read("f/files/swapped/file", handle), "inside");
        client.Close("f/files/swapped/file", handle);
    }
    isDone = true;
    swapper.join();
    EXPECT_GT(seen, 0U);
}

TEST_F(ATreeOfNodes, RefusesKeysOfAnyBytesWithoutHarm)
{
    folder.MakeFile("a", "content");
    std::mt19937 random(2); // NOLINT(cert-msc51-cpp): the same bytes each time
    const std::string alphabet("dfxt./%.2Fa\xFF\0", 13);
    for (int round = 0; round < 20'000; ++round) {
        std::string key = round % 2 == 0 ? "f/files/" : "";
        for (auto length = random() % 8; length > 0; --length)
            key += alphabet[random() % alphabet.size()];
        const bool exists = provider->Exists(key);
        EXPECT_TRUE(!exists || key.empty() || provider->Describe(key)) << key;
        static_cast<void>(StatusOfRead(key));
        if (!key.empty()) {
            EXPECT_NE(client.Call(key, "NoSuchMethod"), Code::Good);
        }
    }
}

TEST_F(ATreeOfNodes, IsStoppedWhileItIsUsed)
{
    for (int i = 0; i < 50; ++i)
        folder.MakeFile(std::to_string(i));
    std::atomic<bool> isDone{false};
    std::vector<std::thread> users;
    for (int i = 0; i < 3; ++i)
        users.emplace_back([&, i] {
            Session session(runtime, "user");
            while (!isDone) {
                const std::string key = "f/files/" + std::to_string(i);
                const auto handle = session.Open(key, 1);
                session.Read(key, handle);
                session.Close(key, handle);
                static_cast<void>(List("d/files"));
            }
        });
    for (int i = 0; i < 20; ++i) {
        runtime.StopBehaviour(ToNode(""));
        runtime.StartBehaviour(ToNode(""));
    }
    isDone = true;
    for (auto& user : users)
        user.join();
    EXPECT_NE(client.Open("f/files/7", 1), 0U);
}

} // namespace
