#include "ModuleTest.h"

#include <future>

namespace {

using namespace FileSystemTests;

using AStop = AFileSystem;

TEST_F(AStop, FinishesEverythingThatIsQueuedInOrder)
{
    std::vector<Ack> expected;
    HeldWorker held(runtime, object, folder / "pipe");
    for (unsigned int i = 0; i < 10; ++i) {
        const unsigned int handle = client.OpenWrite(folder / "file", ToBytes("text"));
        client.WriteClose(handle, ToBytes(std::to_string(i)));
        expected.emplace_back(handle, 0);
    }
    client.CreateDirectory(folder / "last");
    auto stopping = std::async(std::launch::async, [this] { runtime.StopBehaviour(object); });
    // The stop has begun once calls are refused.
    EXPECT_TRUE(WaitUntil([this] { return !client.Call("GetPosition", {1U}).taken; }));
    EXPECT_FALSE(client.Call("Exists", {"/"}).taken);
    EXPECT_TRUE(recorder.TakeAll().empty());
    held.Release();
    stopping.get();
    const Events events = recorder.TakeAll();
    ASSERT_EQ(events.size(), expected.size() + 1);
    EXPECT_EQ(ToAcks({events.begin(), events.end() - 1}), expected);
    EXPECT_EQ(TypeNumber(*events.back()), createDirectoryResultEvent);
    EXPECT_EQ(ReadWholeFile(folder / "file"), "text9");
    EXPECT_TRUE(std::filesystem::is_directory(folder / "last"));
}

TEST_F(AStop, ClosesEveryFileAndWritesWhatIsBuffered)
{
    const unsigned int written = client.OpenWrite(folder / "written", ToBytes("buffered"));
    const unsigned int read = client.Open(folder.MakeFile("read", "content"), 1);
    ExpectSilence();
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()).size(), 2U);
    runtime.StopBehaviour(object);
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), std::vector<std::string>());
    EXPECT_EQ(ReadWholeFile(folder / "written"), "buffered");

    runtime.StartBehaviour(object);
    EXPECT_EQ(client.Read(read, 10), std::nullopt);
    client.Close(written);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{written, 3}}));
}

TEST_F(AStop, LeavesAFileSystemThatWorksAgainAfterTheNextStart)
{
    for (int round = 0; round < 5; ++round) {
        runtime.StopBehaviour(object);
        EXPECT_FALSE(client.Call("Exists", {"/"}).taken);
        runtime.StartBehaviour(object);
        const unsigned int handle = client.UploadFile(folder / "file", ToBytes("text"));
        EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
        const unsigned int open = Open(folder / "file", 1);
        EXPECT_EQ(client.Read(open, 10), ToBytes("text"));
    }
}

TEST_F(AStop, LeavesAFileSystemThatHearsOfEndingSessionsAgain)
{
    runtime.StopBehaviour(object);
    runtime.StartBehaviour(object);
    const Client other(runtime, object, "other");
    other.Open(folder.MakeFile("file"), 1);
    ExpectSilence();
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()).size(), 1U);
    other.EndSession();
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), std::vector<std::string>());
}

TEST_F(AStop, MayComeTwiceAndSoMayAStart)
{
    runtime.StopBehaviour(object);
    runtime.StopBehaviour(object);
    EXPECT_FALSE(client.Call("Exists", {"/"}).taken);
    runtime.StartBehaviour(object);
    runtime.StartBehaviour(object);
    ExpectSilence();
}

TEST_F(AStop, MeetsSessionsThatEndedMeanwhile)
{
    client.Open(folder.MakeFile("file"), 1);
    ExpectSilence();
    const Client other(runtime, object, "other");
    runtime.StopBehaviour(object);
    client.EndSession();
    runtime.StartBehaviour(object);
    EXPECT_EQ(FileSystemTests::WaitForBarrier(other, recorder).size(), 0U);
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), std::vector<std::string>());
}

TEST_F(AStop, EndsTheWorker)
{
    const std::size_t threads = CountThreads();
    runtime.StopBehaviour(object);
    EXPECT_EQ(CountThreads(), threads - 1);
    runtime.StartBehaviour(object);
    EXPECT_EQ(CountThreads(), threads);
}

TEST_F(AStop, ComesWithTheRemovalOfTheObject)
{
    const unsigned int handle = client.OpenWrite(folder / "file", ToBytes("text"));
    const std::size_t threads = CountThreads();
    runtime.RemoveObject(object);
    EXPECT_EQ(CountThreads(), threads - 1);
    EXPECT_NE(handle, 0U);
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), std::vector<std::string>());
    EXPECT_EQ(ReadWholeFile(folder / "file"), "text");
}

TEST_F(AStop, LetsAReadAtWorkFinishAndItsStreamBeClosedBehindIt)
{
    const NamedPipe pipe(folder / "pipe");
    const unsigned int handle = Open(pipe.GetPath(), 4);
    std::optional<Descriptor> other(std::in_place, pipe.GetPath(), O_RDWR | O_NONBLOCK);
    WriteTo(*other, "0123456789");
    auto reading = std::async(std::launch::async, [&] { return client.Read(handle, 20); });
    ASSERT_TRUE(WaitUntil([&] { return CountWaiting(*other) == 0; }));
    runtime.StopBehaviour(object);
    WriteTo(*other, "abcdefghij");
    EXPECT_EQ(reading.get(), ToBytes("0123456789abcdefghij"));
    other.reset();
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), std::vector<std::string>());
}

class TwoFileSystems : public AFileSystem
{
protected:
    Core::NodeId otherObject = module.MakeFileSystem("Others");
    Client other{runtime, otherObject, "other"};
    EventRecorder otherRecorder{runtime, otherObject};
};

TEST_F(TwoFileSystems, KeepTheirHandlesAndEventsApart)
{
    const unsigned int handle = Open(folder.MakeFile("file", "content"), 1);
    EXPECT_EQ(other.Read(handle, 10), std::nullopt);
    other.Close(handle);
    EXPECT_EQ(ToAcks(FileSystemTests::WaitForBarrier(other, otherRecorder)),
              std::vector<Ack>({{handle, 3}}));
    ExpectSilence();
    EXPECT_EQ(client.Read(handle, 10), ToBytes("content"));
}

TEST_F(TwoFileSystems, DoNotWaitForEachOther)
{
    HeldWorker held(runtime, object, folder / "pipe");
    EXPECT_EQ(FileSystemTests::WaitForBarrier(other, otherRecorder).size(), 0U);
    held.Release();
    ExpectSilence();
}

TEST_F(TwoFileSystems, StopOneByOne)
{
    const unsigned int handle = other.Open(folder.MakeFile("file", "content"), 1);
    EXPECT_EQ(FileSystemTests::WaitForBarrier(other, otherRecorder).size(), 0U);
    runtime.StopBehaviour(object);
    EXPECT_FALSE(client.Call("Exists", {"/"}).taken);
    EXPECT_EQ(other.Read(handle, 10), ToBytes("content"));
}

TEST_F(TwoFileSystems, LoseTheFilesOfOneSessionTogether)
{
    const auto session = client.GetSession();
    const std::string file = folder.MakeFile("file");
    for (const auto& each : {object, otherObject})
        EXPECT_TRUE(runtime.Call(session, each, "Open", {file, 1U}).taken);
    ExpectSilence();
    EXPECT_EQ(FileSystemTests::WaitForBarrier(other, otherRecorder).size(), 0U);
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()).size(), 2U);
    session->Close();
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), std::vector<std::string>());
}

} // namespace
