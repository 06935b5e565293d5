#include "ModuleTest.h"

#include "Core/Exception.h"
#include "LogCapture.h"

#include <future>

namespace {

using namespace FileSystemTests;

class ASessionThatEnds : public AFileSystem
{
protected:
    void ExpectGone(unsigned int handle)
    {
        ExpectSilence();
        EXPECT_EQ(owner.GetPosition(handle), std::nullopt);
        owner.Close(handle);
        EXPECT_EQ(ToAcks(FileSystemTests::WaitForBarrier(owner, recorder)),
                  std::vector<Ack>({{handle, 3}}));
    }

    /// Calls for the session that stays; `client` has the one that ends.
    Client owner{runtime, object, "other"};

    Events WaitForBarrier() { return FileSystemTests::WaitForBarrier(owner, recorder); }
    void ExpectSilence() { EXPECT_EQ(WaitForBarrier().size(), 0U); }
    void ExpectNothingOpen()
    {
        ExpectSilence();
        EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), std::vector<std::string>());
    }
};

TEST_F(ASessionThatEnds, TakesNoFurtherCalls)
{
    client.EndSession();
    EXPECT_THROW(static_cast<void>(client.Call("Exists", {"/"})), Core::SessionClosedException);
}

TEST_F(ASessionThatEnds, LeavesNoFileOpen)
{
    const unsigned int read = client.Open(folder.MakeFile("read", "content"), 1);
    const unsigned int written = client.Open(folder / "written", 0);
    client.Write(written, ToBytes("text"));
    ExpectSilence();
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()).size(), 2U);
    client.EndSession();
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), std::vector<std::string>());
    EXPECT_EQ(ReadWholeFile(folder / "written"), "text");
    ExpectGone(read);
    ExpectGone(written);
}

TEST_F(ASessionThatEnds, LeavesTheFilesOfOtherSessionsAlone)
{
    const unsigned int handle = owner.Open(folder.MakeFile("file", "content"), 1);
    client.Open(folder / "file", 1);
    ExpectSilence();
    client.EndSession();
    EXPECT_EQ(owner.Read(handle, 7), ToBytes("content"));
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()).size(), 1U);
}

TEST_F(ASessionThatEnds, LeavesFilesUntouchedThatItHadOnlyAskedToOpen)
{
    const std::string file = folder.MakeFile("file", "content");
    HeldWorker held(runtime, object, folder / "pipe");
    const unsigned int opened = client.Open(file, 0);
    const unsigned int written = client.OpenWrite(file, ToBytes("new"));
    const unsigned int uploaded = client.UploadFile(file, ToBytes("newer"));
    const unsigned int created = client.Open(folder / "created", 2);
    client.EndSession();
    held.Release();
    EXPECT_EQ(ToAcks(WaitForBarrier()),
              std::vector<Ack>({{opened, 1}, {written, 1}, {uploaded, 1}, {created, 1}}));
    EXPECT_EQ(ReadWholeFile(file), "content");
    EXPECT_FALSE(std::filesystem::exists(folder / "created"));
    const std::vector<std::string> bothEndsOfTheHold(2, folder / "pipe");
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), bothEndsOfTheHold);
}

TEST_F(ASessionThatEnds, LeavesNothingOpenWhenItsOpenIsAtWork)
{
    const LogCapture log;
    const NamedPipe pipe(folder / "pipe");
    const unsigned int handle = client.Open(pipe.GetPath(), 1);
    // The open ends only once the pipe has a writer.
    ASSERT_TRUE(WaitUntil([&] {
        const int writer = ::open(pipe.GetPath().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (writer < 0)
            return false;
        client.EndSession(); // between the open and the record of its stream, or right after
        ::close(writer);
        return true;
    }));
    const auto acks = ToAcks(WaitForBarrier());
    if (!acks.empty()) { // the session ended during the open
        EXPECT_EQ(acks, std::vector<Ack>({{handle, 1}}));
    }
    EXPECT_EQ(FindDescriptorsBelow(folder.GetPath()), std::vector<std::string>());
}

TEST_F(ASessionThatEnds, KeepsWhatWasWrittenAndDropsBlocksThatCameLater)
{
    const unsigned int handle = client.OpenWrite(folder / "file", ToBytes("first "));
    client.Write(handle, ToBytes("second"));
    ExpectSilence();
    HeldWorker held(runtime, object, folder / "pipe");
    client.Write(handle, ToBytes(" never"));
    client.WriteClose(handle, ToBytes(" either"));
    client.EndSession();
    EXPECT_EQ(ReadWholeFile(folder / "file"), "first second");
    held.Release();
    EXPECT_EQ(WaitForBarrier().size(), 0U);
    EXPECT_EQ(ReadWholeFile(folder / "file"), "first second");
}

TEST_F(ASessionThatEnds, LetsAWriteAtWorkFinishAndClosesBehindIt)
{
    const NamedPipe pipe(folder / "pipe");
    constexpr std::size_t size = 1'000'000; // more than a pipe holds
    unsigned int handle = 0;
    {
        const Descriptor reader(pipe.GetPath(), O_RDONLY | O_NONBLOCK);
        handle = client.Open(pipe.GetPath(), 0);
        client.Write(handle, MakePattern(size));
        ASSERT_TRUE(WaitUntil([&] { return CountWaiting(reader) > 0; }));
        client.EndSession(); // returns although the write is stuck
        EXPECT_EQ(owner.GetPosition(handle), std::nullopt);

        Bytes received;
        Bytes block(65536);
        ASSERT_TRUE(WaitUntil([&] {
            const ssize_t count = ::read(reader.Get(), block.data(), block.size());
            if (count > 0)
                received.insert(received.end(), block.begin(), block.begin() + count);
            return count == 0; // the writer has closed
        }));
        EXPECT_TRUE(received == MakePattern(size)) << received.size();
    }
    ExpectNothingOpen();
    ExpectGone(handle);
}

TEST_F(ASessionThatEnds, LetsAReadAtWorkFinishAndClosesBehindIt)
{
    const NamedPipe pipe(folder / "pipe");
    const unsigned int handle = client.Open(pipe.GetPath(), 4);
    ExpectSilence();
    std::optional<Descriptor> other(std::in_place, pipe.GetPath(), O_RDWR | O_NONBLOCK);
    WriteTo(*other, "0123456789");
    auto reading = std::async(std::launch::async, [&] { return owner.Read(handle, 20); });
    // The read has taken the bytes that were there and waits for more.
    ASSERT_TRUE(WaitUntil([&] { return CountWaiting(*other) == 0; }));
    client.EndSession();
    EXPECT_EQ(owner.GetPosition(handle), std::nullopt); // gone for all other calls
    WriteTo(*other, "abcdefghij");
    EXPECT_EQ(reading.get(), ToBytes("0123456789abcdefghij"));
    other.reset();
    ExpectNothingOpen();
    ExpectGone(handle);
}

TEST_F(ASessionThatEnds, DoesSoAfterItsOwnLastRead)
{
    const NamedPipe pipe(folder / "pipe");
    const unsigned int handle = client.Open(pipe.GetPath(), 4);
    ExpectSilence();
    std::optional<Descriptor> other(std::in_place, pipe.GetPath(), O_RDWR | O_NONBLOCK);
    WriteTo(*other, "0123456789");
    auto reading = std::async(std::launch::async, [&] { return client.Read(handle, 20); });
    ASSERT_TRUE(WaitUntil([&] { return CountWaiting(*other) == 0; }));
    client.EndSession();
    WriteTo(*other, "abcdefghij");
    EXPECT_EQ(reading.get(), ToBytes("0123456789abcdefghij"));
    other.reset();
    ExpectNothingOpen();
}

TEST_F(ASessionThatEnds, EndsQuietlyWhileManyOfItsRequestsWait)
{
    HeldWorker held(runtime, object, folder / "pipe");
    std::vector<unsigned int> handles;
    for (int i = 0; i < 50; ++i) {
        handles.push_back(client.OpenWrite(folder / std::to_string(i), ToBytes("x")));
        client.WriteClose(handles.back(), ToBytes("y"));
    }
    client.EndSession();
    held.Release();
    EXPECT_EQ(WaitForBarrier().size(), handles.size()); // each open is refused
    for (int i = 0; i < 50; ++i)
        EXPECT_FALSE(std::filesystem::exists(folder / std::to_string(i)));
}

using AHandle = AFileSystem;

TEST_F(AHandle, WorksForWhoeverKnowsIt)
{
    const Client other(runtime, object, "other");
    const unsigned int handle = client.Open(folder / "file", 3);
    other.Write(handle, ToBytes("from elsewhere"));
    ExpectSilence();
    EXPECT_EQ(other.GetPosition(handle), 14UL);
    other.SetPosition(handle, 5);
    EXPECT_EQ(other.Read(handle, 9), ToBytes("elsewhere"));
    other.Close(handle);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
    EXPECT_EQ(client.GetPosition(handle), std::nullopt);
}

TEST_F(AHandle, OutlivesOtherSessionsThatUsedIt)
{
    const unsigned int handle = Open(folder.MakeFile("file", "content"), 1);
    const Client other(runtime, object, "other");
    EXPECT_EQ(other.Read(handle, 4), ToBytes("cont"));
    other.EndSession();
    EXPECT_EQ(client.Read(handle, 4), ToBytes("ent"));
}

TEST_F(AHandle, IsClosedByAClientOnlyAfterAReadAtWork)
{
    const NamedPipe pipe(folder / "pipe");
    const Client other(runtime, object, "other");
    const unsigned int handle = Open(pipe.GetPath(), 4);
    const Descriptor writer(pipe.GetPath(), O_RDWR | O_NONBLOCK);
    WriteTo(writer, "0123456789");
    auto reading = std::async(std::launch::async, [&] { return other.Read(handle, 20); });
    ASSERT_TRUE(WaitUntil([&] { return CountWaiting(writer) == 0; }));
    client.Close(handle);
    WriteTo(writer, "abcdefghij");
    EXPECT_EQ(reading.get(), ToBytes("0123456789abcdefghij"));
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
}

} // namespace
