#include "Transfers.h"
#include "Core/Embedding/Runtime.h"
#include "Core/Exception.h"
#include "LogCapture.h"
#include "TemporaryFolder.h"
#include "Waiting.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using namespace FileObjects;
using namespace std::chrono_literals;

/// Temporary files that end when they are not used for a tenth of a second.
class AnUnusedTemporaryFile : public testing::Test
{
protected:
    AnUnusedTemporaryFile()
    {
        transfers.Start([this](const OpenFile& file) { dropped = file.handle; });
    }
    ~AnUnusedTemporaryFile() override { transfers.Stop(); }

    [[nodiscard]] std::size_t CountFiles() const
    {
        const std::filesystem::directory_iterator entries(folder.GetPath());
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }

    FileSystemTests::TemporaryFolder folder;
    Core::Embedding::Runtime runtime;
    std::shared_ptr<Core::Embedding::Session> session = runtime.OpenSession("client");
    std::atomic<bool> isStopping{false};
    std::atomic<unsigned int> dropped{0}; // the handle of the last one
    Folders folders{{{"files", folder.GetPath().string(), false}}};
    Keys keys{folders.GetNames()};
    NodeIds nodeIds{keys, {0, 16314}, 1};
    OpenFiles openFiles;
    Files files{folders, openFiles};
    Transfers transfers{folders, nodeIds, openFiles, files, 100ms};
    Caller caller{session, isStopping};
};

TEST_F(AnUnusedTemporaryFile, EndsByItself)
{
    const FileSystemTests::LogCapture log(Core::LogLevel::Notice, "FileObjects");
    const auto file = transfers.GenerateForWrite(Core::Value("files/target"), caller);
    EXPECT_EQ(CountFiles(), 1U);
    EXPECT_TRUE(FileSystemTests::WaitUntil([this] { return CountFiles() == 0; }));
    const auto entries = log.GetEntries();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries.front().message,
              "files/target: dropped what was written for it: no call came for 100 ms");
    EXPECT_EQ(dropped, file.handle);
    EXPECT_THROW(transfers.CloseAndCommit(file.handle, caller), Core::StatusException);
}

TEST_F(AnUnusedTemporaryFile, IsKeptWhileItIsUsed)
{
    const auto file = transfers.GenerateForWrite(Core::Value("files/target"), caller);
    const auto node = nodeIds.FromNodeId(file.id);
    ASSERT_TRUE(node);
    // Used for several times the limit: another one that is not used ends meanwhile.
    for (int round = 0; round < 3; ++round) {
        const auto unused = transfers.GenerateForWrite(Core::Value("files/other"), caller);
        EXPECT_TRUE(FileSystemTests::WaitUntil([&] {
            files.Write(*node, file.handle, {'x'}, caller);
            return openFiles.FindNode(*nodeIds.FromNodeId(unused.id)) == nullptr;
        }));
    }
    transfers.CloseAndCommit(file.handle, caller);
    EXPECT_TRUE(std::filesystem::exists(folder / "target"));
}

TEST_F(AnUnusedTemporaryFile, LeavesOtherFilesAlone)
{
    folder.MakeFile("file", "content");
    const Key node{NodeKind::File, {0, "file"}, {}};
    const auto handle = files.Open(node, Files::modeRead, caller);
    static_cast<void>(transfers.GenerateForWrite(Core::Value("files/target"), caller));
    EXPECT_TRUE(FileSystemTests::WaitUntil([this] { return CountFiles() == 1; }));
    EXPECT_EQ(files.Read(node, handle, 7, caller).size(), 7U);
}

TEST_F(AnUnusedTemporaryFile, CountsAsLongAsItIsThere)
{
    for (std::size_t i = 0; i < Transfers::maximumFiles; ++i)
        static_cast<void>(transfers.GenerateForWrite(Core::Value("files/target"), caller));
    // All of them end at some time, and none is left behind.
    EXPECT_TRUE(FileSystemTests::WaitUntil([this] { return CountFiles() == 0; }));
    EXPECT_NO_THROW(
        static_cast<void>(transfers.GenerateForWrite(Core::Value("files/target"), caller)));
}

class WorkForACallerThatHasGone : public AnUnusedTemporaryFile
{};

TEST_F(WorkForACallerThatHasGone, Ends)
{
    EXPECT_NO_THROW(caller.CheckGoesOn());
    session->Close();
    EXPECT_THROW(caller.CheckGoesOn(), Core::StatusException);
}

TEST_F(WorkForACallerThatHasGone, EndsWhenTheFileSystemStops)
{
    isStopping = true;
    EXPECT_THROW(caller.CheckGoesOn(), Core::StatusException);
}

} // namespace
