#include "FileObjectsFixture.h"
#include "Waiting.h"

#include <filesystem>
#include <openssl/sha.h>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <tuple>

namespace {

using namespace FileObjectsTests;

Bytes Sha256(const std::string& text)
{
    Bytes bytes(SHA256_DIGEST_LENGTH);
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), bytes.data());
    return bytes;
}

/// Returns the number of this process's descriptors that are open on a path.
std::size_t CountDescriptors(const std::string& path)
{
    std::size_t count = 0;
    std::error_code gone;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        if (std::filesystem::read_symlink(entry.path(), gone) == path)
            ++count;
    return count;
}

std::string ToText(const Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

class AListing : public AFileTree
{
protected:
    struct Page
    {
        std::vector<std::string> names;
        Bytes kinds;
        std::vector<unsigned long> sizes;
        std::vector<Core::DateTime> times;
        unsigned long next = 0;
    };

    Page Take(const std::string& key, unsigned long start = 0, unsigned int maximum = 0)
    {
        EXPECT_EQ(client.Call(key, "List", {start, maximum}), Code::Good) << client.GetMessage();
        const auto& outputs = client.GetOutputs();
        if (outputs.size() != 5)
            return {};
        Page page{outputs[0].Get<std::vector<std::string>>(), outputs[1].Get<Bytes>(),
                  outputs[2].Get<std::vector<unsigned long>>(),
                  outputs[3].Get<std::vector<Core::DateTime>>(), outputs[4].Get<unsigned long>()};
        EXPECT_EQ(page.kinds.size(), page.names.size());
        EXPECT_EQ(page.sizes.size(), page.names.size());
        EXPECT_EQ(page.times.size(), page.names.size());
        return page;
    }
};

TEST_F(AListing, ShowsNamesKindsSizesAndTimes)
{
    folder.MakeFile("file", "content");
    std::filesystem::create_directory(folder / "directory");
    std::filesystem::create_symlink("file", folder / "link");
    std::filesystem::create_symlink(outside.GetPath(), folder / "out");
    mkfifo((folder / "pipe").c_str(), 0666);
    const Page page = Take("d/files");
    EXPECT_EQ(page.next, 0U);
    std::set<std::tuple<std::string, int, unsigned long>> entries;
    for (std::size_t i = 0; i < page.names.size(); ++i) {
        entries.insert({page.names[i], page.kinds[i], page.sizes[i]});
        EXPECT_FALSE(page.times[i].IsEmpty());
    }
    EXPECT_EQ(entries, (std::set<std::tuple<std::string, int, unsigned long>>{
                           {"file", 1, 7}, {"directory", 2, 0}, {"link", 1, 7}}));
}

TEST_F(AListing, ComesInPagesWithEachEntryOnceWhileOthersComeAndGo)
{
    std::set<std::string> expected;
    for (int i = 0; i < 200; ++i) {
        expected.insert("stays " + std::to_string(i));
        folder.MakeFile("stays " + std::to_string(i));
        folder.MakeFile("goes " + std::to_string(i));
    }
    std::multiset<std::string> found;
    unsigned long start = 0;
    int pages = 0;
    do {
        const Page page = Take("d/files", start, 32);
        EXPECT_LE(page.names.size(), 32U);
        found.insert(page.names.begin(), page.names.end());
        start = page.next;
        ASSERT_LT(++pages, 100);
        for (int i = 0; i < 20; ++i)
            std::filesystem::remove(folder / ("goes " + std::to_string(pages * 20 + i)));
        folder.MakeFile("comes " + std::to_string(pages));
    } while (start != 0);
    for (const auto& name : expected)
        EXPECT_EQ(found.count(name), 1U) << name;
    EXPECT_GT(pages, 8);
}

TEST_F(AListing, OfTheRootShowsTheFolders)
{
    const Page page = Take("");
    EXPECT_EQ(page.names, (std::vector<std::string>{"files", "fixed", "missing"}));
    EXPECT_EQ(page.kinds, Bytes({2, 2, 2}));
}

TEST_F(AListing, OfAnEmptyDirectoryIsEmpty)
{
    const Page page = Take("d/files");
    EXPECT_TRUE(page.names.empty());
    EXPECT_EQ(page.next, 0U);
}

TEST_F(AListing, RefusesPositionsThatNoDirectoryHas)
{
    EXPECT_EQ(client.Call("d/files", "List", {~0UL, 0U}), Code::Bad_InvalidArgument);
    EXPECT_EQ(client.Call("d/files/none", "List", {0UL, 0U}), Code::Bad_NotFound);
}

class AnAddition : public AFileTree
{
protected:
    AnAddition() { folder.MakeFile("file", "content"); }
};

TEST_F(AnAddition, TellsTheSpaceOfADirectory)
{
    EXPECT_EQ(client.Call("d/files", "GetSpace"), Code::Good);
    const auto space = std::filesystem::space(folder.GetPath());
    EXPECT_EQ(client.GetOutputs().at(0).Get<unsigned long>(), space.capacity);
    EXPECT_GT(client.GetOutputs().at(1).Get<unsigned long>(), 0U);
    EXPECT_LE(client.GetOutputs().at(1).Get<unsigned long>(), space.capacity);
    EXPECT_EQ(client.Call("d/missing", "GetSpace"), Code::Bad_NotFound);
    EXPECT_EQ(client.Call("", "GetSpace"), Code::Bad_NotSupported);
}

TEST_F(AnAddition, ComputesTheChecksumOfAFileAndOfItsParts)
{
    const std::string large(1'000'000, 'x');
    folder.MakeFile("large", large + "y");
    const auto expect = [this](const std::string& key, unsigned long start, unsigned long length,
                               const std::string& part) {
        EXPECT_EQ(client.Call(key, "GetChecksum", {start, length}), Code::Good);
        EXPECT_EQ(client.GetOutputs().at(0).Get<Bytes>(), Sha256(part));
        EXPECT_EQ(client.GetOutputs().at(1).Get<unsigned long>(), part.size());
    };
    expect("f/files/file", 0, 0, "content");
    expect("f/files/file", 3, 2, "te");
    expect("f/files/file", 3, 100, "tent");
    expect("f/files/file", 7, 0, "");
    expect("f/files/file", ~0UL, 0, "");
    expect("f/files/large", 0, 0, large + "y");
    expect("f/files/large", 1, 999'999, large.substr(1));
    EXPECT_EQ(client.Call("f/files/none", "GetChecksum", {0UL, 0UL}), Code::Bad_NotFound);
    other.Open("f/files/file", 2);
    EXPECT_EQ(client.Call("f/files/file", "GetChecksum", {0UL, 0UL}), Code::Bad_NotReadable);
}

TEST_F(AnAddition, ComputesNoChecksumForASessionThatHasEnded)
{
    constexpr std::uintmax_t hoursOfWork = std::uintmax_t{1} << 42U;
    std::filesystem::resize_file(folder / "file", hoursOfWork);
    std::filesystem::create_directory(folder / "directory");
    std::filesystem::create_hard_link(folder / "file", folder / "directory/file");
    std::uint32_t ofFile = Code::Good;
    std::uint32_t ofDirectory = Code::Good;
    {
        std::jthread first([&] {
            ofFile = client.Call("f/files/file", "GetChecksum", {0UL, 0UL});
        });
        std::jthread second([&] { ofDirectory = other.Call("d/files/directory", "GetChecksum"); });
        EXPECT_TRUE(FileSystemTests::WaitUntil([this] {
            return CountDescriptors(folder / "file") > 0 &&
                   CountDescriptors(folder / "directory/file") > 0;
        }));
        client.End();
        other.Get()->RefuseCalls();
    }
    EXPECT_EQ(ofFile, Code::Bad_SessionClosed);
    EXPECT_EQ(ofDirectory, Code::Bad_SessionClosed);
}

TEST_F(AnAddition, ComputesTheChecksumOfADirectory)
{
    std::filesystem::create_directory(folder / "directory");
    folder.MakeFile("directory/b", "b");
    folder.MakeFile("directory/a", "a");
    std::filesystem::create_symlink("a", folder / "directory/link");
    const std::string zero(1, '\0');
    const auto directory =
        Sha256("fa" + zero + ToText(Sha256("a")) + "fb" + zero + ToText(Sha256("b")));
    EXPECT_EQ(client.Call("d/files/directory", "GetChecksum"), Code::Good);
    EXPECT_EQ(client.GetOutputs().at(0).Get<Bytes>(), directory);
    EXPECT_EQ(client.Call("d/files", "GetChecksum"), Code::Good);
    EXPECT_EQ(client.GetOutputs().at(0).Get<Bytes>(),
              Sha256("ddirectory" + zero + ToText(directory) + "ffile" + zero +
                     ToText(Sha256("content"))));
}

TEST_F(AnAddition, SetsPermissions)
{
    EXPECT_EQ(client.Call("f/files/file", "SetPermissions", {0640U}), Code::Good);
    EXPECT_EQ(ReadProperty<unsigned int>("f.Permissions/files/file"), 0640U);
    EXPECT_EQ(client.Call("d/files", "SetPermissions", {0750U}), Code::Good);
    EXPECT_EQ(ReadProperty<unsigned int>("d.Permissions/files"), 0750U);
    // Programs that run with the rights of their owner are not for clients to make.
    for (const unsigned int permissions : {04755U, 02755U, 01777U, 010000U, ~0U})
        EXPECT_EQ(client.Call("f/files/file", "SetPermissions", {permissions}),
                  Code::Bad_InvalidArgument);
    EXPECT_EQ(client.Call("d/fixed", "SetPermissions", {0700U}), Code::Bad_NotWritable);
    EXPECT_EQ(client.Call("", "SetPermissions", {0700U}), Code::Bad_UserAccessDenied);
}

TEST_F(AnAddition, SetsTimes)
{
    const auto time = Core::DateTime::FromTicks(Core::DateTime::unixEpochTicks - 12345);
    for (const std::string key : {"f/files/file", "d/files"}) {
        EXPECT_EQ(client.Call(key, "SetLastModifiedTime", {time}), Code::Good);
        const std::string property = key.substr(0, 1) + ".LastModifiedTime" + key.substr(1);
        EXPECT_EQ(ReadProperty<Core::DateTime>(property), time);
    }
    EXPECT_EQ(client.Call("f/files/file", "SetLastModifiedTime", {Core::DateTime()}),
              Code::Bad_InvalidArgument);
    EXPECT_EQ(client.Call("d/fixed", "SetLastModifiedTime", {time}), Code::Bad_NotWritable);
}

} // namespace
