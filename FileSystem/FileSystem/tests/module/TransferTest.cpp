#include "ModuleTest.h"

#include "LogCapture.h"

#include <limits>

namespace {

using namespace FileSystemTests;

constexpr unsigned int block = 61440;

class AFileOfSize : public AFileSystem, public testing::WithParamInterface<std::size_t>
{
protected:
    /// Reads the content in Reads of one block each.
    Bytes ReadBack(const std::string& file)
    {
        const unsigned int handle = Open(file, 1);
        Bytes all;
        while (true) {
            const auto part = client.Read(handle, block);
            EXPECT_TRUE(part.has_value());
            if (!part || part->empty())
                break;
            all.insert(all.end(), part->begin(), part->end());
        }
        client.Close(handle);
        EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
        return all;
    }

    const Bytes content = MakePattern(GetParam());
};

TEST_P(AFileOfSize, TravelsUpInBlocksAndDownInReads)
{
    const std::string file = folder / "file";
    const auto sendBlock = [this](std::size_t from) {
        const std::size_t to = std::min(from + block, content.size());
        return Bytes(content.begin() + static_cast<std::ptrdiff_t>(from),
                     content.begin() + static_cast<std::ptrdiff_t>(to));
    };
    const unsigned int handle = client.OpenWrite(file, sendBlock(0));
    for (std::size_t from = block; from < content.size(); from += block)
        client.Write(handle, sendBlock(from));
    client.WriteClose(handle, {});
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
    EXPECT_EQ(std::filesystem::file_size(file), content.size());
    EXPECT_TRUE(ReadBack(file) == content);
}

TEST_P(AFileOfSize, TravelsUpInOneCall)
{
    const std::string file = folder / "file";
    const auto time = Core::DateTime::FromUnixEpochTime(1'000'000'000);
    const unsigned int handle = client.UploadFile(file, content, time);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
    EXPECT_TRUE(ReadBack(file) == content);
    EXPECT_EQ(client.GetDateTime(file), time);
    EXPECT_TRUE(IsNothingOpen());
}

INSTANTIATE_TEST_SUITE_P(Bytes, AFileOfSize,
                         testing::Values(0, 1, 61439, 61440, 61441, 122880, 5'000'003),
                         testing::PrintToStringParamName());

class AFile : public AFileSystem
{
protected:
    /// Writes to the open file, and waits.
    void Write(unsigned int handle, const std::string& text)
    {
        client.Write(handle, ToBytes(text));
        ExpectSilence();
    }

    void Close(unsigned int handle)
    {
        client.Close(handle);
        EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
    }

    /// Returns the result of an attempt to open: one other than 0 at once, or 0.
    unsigned int TryToOpen(const std::string& path, unsigned int mode)
    {
        const unsigned int handle = client.Open(path, mode);
        const auto acks = TakeAcks();
        if (acks.empty()) {
            Close(handle);
            return 0;
        }
        EXPECT_EQ(acks, std::vector<Ack>({{handle, 1}}));
        return 1;
    }

    std::string file = folder / "file";
};

TEST_F(AFile, IsMadeOrEmptiedAndOnlyWrittenInMode0)
{
    EXPECT_EQ(TryToOpen(file, 0), 0U);
    EXPECT_EQ(ReadWholeFile(file), "");
    static_cast<void>(folder.MakeFile("file", "old content"));
    const unsigned int handle = Open(file, 0);
    Write(handle, "new");
    EXPECT_EQ(client.Read(handle, 10), Bytes());
    Close(handle);
    EXPECT_EQ(ReadWholeFile(file), "new");
}

TEST_F(AFile, MustExistAndIsOnlyReadInMode1)
{
    EXPECT_EQ(TryToOpen(file, 1), 1U);
    EXPECT_FALSE(std::filesystem::exists(file));
    static_cast<void>(folder.MakeFile("file", "content"));
    const unsigned int handle = Open(file, 1);
    EXPECT_EQ(client.Read(handle, 10), ToBytes("content"));
    client.Write(handle, ToBytes("more"));
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 2}}));
    EXPECT_EQ(ReadWholeFile(file), "content");
    EXPECT_TRUE(IsNothingOpen());
}

TEST_F(AFile, IsMadeOrContinuedInMode2)
{
    EXPECT_EQ(TryToOpen(file, 2), 0U);
    static_cast<void>(folder.MakeFile("file", "old "));
    const unsigned int handle = Open(file, 2);
    client.SetPosition(handle, 0);
    Write(handle, "new");
    EXPECT_EQ(client.Read(handle, 10), Bytes());
    Close(handle);
    EXPECT_EQ(ReadWholeFile(file), "old new");
}

TEST_F(AFile, IsMadeOrEmptiedAndWrittenAndReadInMode3)
{
    static_cast<void>(folder.MakeFile("file", "old content"));
    const unsigned int handle = Open(file, 3);
    Write(handle, "written");
    EXPECT_EQ(client.Read(handle, 10), Bytes()); // at its end, and without a reposition between
    client.SetPosition(handle, 0);
    EXPECT_EQ(client.Read(handle, 4), ToBytes("writ"));
    Write(handle, "ING");
    EXPECT_EQ(client.GetPosition(handle), 7UL);
    Close(handle);
    EXPECT_EQ(ReadWholeFile(file), "writING");
}

TEST_F(AFile, MustExistAndIsWrittenAndReadInMode4)
{
    EXPECT_EQ(TryToOpen(file, 4), 1U);
    EXPECT_FALSE(std::filesystem::exists(file));
    static_cast<void>(folder.MakeFile("file", "old content"));
    const unsigned int handle = Open(file, 4);
    EXPECT_EQ(client.Read(handle, 4), ToBytes("old "));
    Write(handle, "CON");
    EXPECT_EQ(client.Read(handle, 10), ToBytes("tent"));
    Close(handle);
    EXPECT_EQ(ReadWholeFile(file), "old CONtent");
}

TEST_F(AFile, IsMadeOrContinuedAndReadInMode5)
{
    EXPECT_EQ(TryToOpen(file, 5), 0U);
    static_cast<void>(folder.MakeFile("file", "old "));
    const unsigned int handle = Open(file, 5);
    EXPECT_EQ(client.Read(handle, 10), ToBytes("old "));
    client.SetPosition(handle, 0);
    Write(handle, "new");
    client.SetPosition(handle, 0);
    EXPECT_EQ(client.Read(handle, 10), ToBytes("old new"));
    Close(handle);
    EXPECT_EQ(ReadWholeFile(file), "old new");
}

TEST_F(AFile, IsOpenedInEveryOtherModeAsInMode0)
{
    for (const unsigned int mode : {6U, 7U, 256U, 4294967295U}) {
        static_cast<void>(folder.MakeFile("file", "old content"));
        EXPECT_EQ(TryToOpen(file, mode), 0U);
        EXPECT_EQ(ReadWholeFile(file), "") << mode;
    }
}

TEST_F(AFile, CannotBeOpenedWithoutANameOrInAMissingFolderOrAsADirectory)
{
    for (const std::string& path :
         {std::string(), folder / "missing/file", folder.GetPath().string()})
        EXPECT_EQ(TryToOpen(path, 0), 1U) << path;
    EXPECT_EQ(TryToOpen(file + "/", 0), 1U);
}

TEST_F(AFile, HasPositions)
{
    const std::string text = "0123456789";
    const unsigned int handle = Open(folder.MakeFile("file", text), 4);
    EXPECT_EQ(client.GetPosition(handle), 0UL);
    client.SetPosition(handle, 4);
    EXPECT_EQ(client.GetPosition(handle), 4UL);
    EXPECT_EQ(client.Read(handle, 3), ToBytes("456"));
    EXPECT_EQ(client.GetPosition(handle), 7UL);
    client.SetPosition(handle, 20); // beyond the end
    EXPECT_EQ(client.GetPosition(handle), 20UL);
    EXPECT_EQ(client.Read(handle, 3), Bytes());
    client.SetPosition(handle, 12);
    Write(handle, "X");
    Close(handle);
    EXPECT_EQ(ReadWholeFile(file), text + std::string(2, '\0') + "X");
}

TEST_F(AFile, KeepsItsPositionWhenOneBeyondAnyFileIsAskedFor)
{
    const unsigned int handle = Open(folder.MakeFile("file", "0123456789"), 1);
    client.SetPosition(handle, 4);
    client.SetPosition(handle, std::numeric_limits<unsigned long>::max());
    client.SetPosition(handle, 1UL << 63U);
    EXPECT_EQ(client.GetPosition(handle), 4UL);
}

TEST_F(AFile, HasNoPositionAndNoContentUntilItIsOpen)
{
    HeldWorker held(runtime, object, folder / "pipe");
    const unsigned int handle = client.Open(folder.MakeFile("file", "content"), 1);
    EXPECT_EQ(client.GetPosition(handle), std::nullopt);
    EXPECT_EQ(client.Read(handle, 10), std::nullopt);
    held.Release();
    ExpectSilence();
    EXPECT_EQ(client.GetPosition(handle), 0UL);
}

TEST_F(AFile, GivesAtMostOneBlockPerRead)
{
    const Bytes content = MakePattern(200'000);
    const unsigned int handle = Open(folder.MakeFile("file", ToText(content)), 1);
    const LogCapture log;
    EXPECT_EQ(client.Read(handle, 0), Bytes());
    EXPECT_TRUE(log.GetEntries().empty());
    const auto read = client.Read(handle, 100'000);
    ASSERT_TRUE(read.has_value());
    EXPECT_TRUE(*read == Bytes(content.begin(), content.begin() + block));
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries().front().message, "Read data length exceeded (Max 61440 bytes)");
    EXPECT_EQ(client.GetPosition(handle), static_cast<unsigned long>(block));
}

TEST_F(AFile, CanBeClosedOnce)
{
    const unsigned int handle = Open(folder.MakeFile("file"), 1);
    client.Close(handle);
    client.Close(handle);
    client.WriteClose(handle, ToBytes("late"));
    client.Write(handle, ToBytes("late"));
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}, {handle, 3}}));
}

TEST_F(AFile, IsAcknowledgedWithoutALogEntryWhenItsHandleIsUnknown)
{
    const LogCapture log;
    client.Close(4711);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{4711, 3}}));
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(AFile, IsOpenForSeveralHandlesAtOnce)
{
    const unsigned int first = Open(folder.MakeFile("file", "content"), 1);
    const unsigned int second = Open(file, 1);
    EXPECT_NE(first, second);
    EXPECT_EQ(client.Read(first, 3), ToBytes("con"));
    EXPECT_EQ(client.Read(second, 10), ToBytes("content"));
    EXPECT_EQ(client.Read(first, 10), ToBytes("tent"));
}

TEST_F(AFile, MayHaveAnyNameThatTheSystemTakes)
{
    for (const std::string& name : {std::string("with blank"), std::string("\xff\xfe not text"),
                                    std::string("line\nend"), std::string(255, 'n'),
                                    std::string("Gr\xc3\xb6\xc3\x9f"
                                                "e")}) {
        const unsigned int handle = client.UploadFile(folder / name, ToBytes("content"));
        EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}})) << name;
        EXPECT_EQ(ReadWholeFile(folder / name), "content") << name;
    }
}

class ATime : public AFileSystem, public testing::WithParamInterface<long>
{
protected:
    const Core::DateTime time = Core::DateTime::FromUnixEpochTime(GetParam());
    const std::string file = folder.MakeFile("file", "content");

    /// Returns the system's answer in seconds since 1970.
    [[nodiscard]] long GetSystemTime() const
    {
        struct stat status = {};
        EXPECT_EQ(::stat(file.c_str(), &status), 0);
        return status.st_mtim.tv_sec;
    }
};

TEST_P(ATime, IsSetAndReadBack)
{
    client.SetDateTime(file, time);
    EXPECT_EQ(GetSystemTime(), GetParam());
    EXPECT_EQ(client.GetDateTime(file), time);
}

TEST_P(ATime, IsSetBehindAnUpload)
{
    const unsigned int handle = client.UploadFile(file, ToBytes("x"), time);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
    EXPECT_EQ(GetSystemTime(), GetParam());
}

TEST_P(ATime, IsSetBehindTheLastBlock)
{
    const unsigned int handle = client.OpenWrite(file, ToBytes("x"));
    client.WriteClose(handle, ToBytes("y"), time);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
    EXPECT_EQ(GetSystemTime(), GetParam());
}

// From before 1970 to after 2106, as far as common file systems go.
INSTANTIATE_TEST_SUITE_P(Seconds, ATime,
                         testing::Values(0, 1, 1'000'000'000, -2, -1'000'000'000, 4'294'967'296),
                         [](const auto& each) {
                             return (each.param < 0 ? "Minus" : "Plus") +
                                    std::to_string(std::abs(each.param));
                         });

using Times = AFileSystem;

TEST_F(Times, CannotBeToldFromNoneOneSecondBefore1970)
{
    const std::string file = folder.MakeFile("file");
    client.SetDateTime(file, Core::DateTime::FromUnixEpochTime(-1));
    struct stat status = {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mtim.tv_sec, -1);
    EXPECT_EQ(client.GetDateTime(file), std::nullopt);
    const auto entries = TakeListing(folder.GetPath());
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_TRUE(entries.front().time.IsEmpty());
}

TEST_F(Times, StayAsTheyAreWhenNoneIsGiven)
{
    const std::string file = folder.MakeFile("file");
    client.SetDateTime(file, Core::DateTime::FromUnixEpochTime(1000));
    const unsigned int handle = Open(file, 4);
    client.WriteClose(handle, {}, {}, 0);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
    EXPECT_EQ(client.GetDateTime(file), Core::DateTime::FromUnixEpochTime(1000));
}

TEST_F(Times, OfAnEmptyValueAreSetAtOnceAsTheBeginningOfTime)
{
    const std::string file = folder.MakeFile("file");
    client.SetDateTime(file, {});
    // File systems that begin later keep their own beginning.
    const auto time = client.GetDateTime(file);
    ASSERT_TRUE(time.has_value());
    EXPECT_LT(time->ToUnixEpochTime(), 0);
}

TEST_F(Times, FarInTheFutureDoNoHarm)
{
    const std::string file = folder.MakeFile("file", "content");
    const auto time = Core::DateTime::FromTicks(std::numeric_limits<long>::max());
    client.SetDateTime(file, time);
    const auto read = client.GetDateTime(file);
    ASSERT_TRUE(read.has_value());
    EXPECT_GT(read->ToUnixEpochTime(), 4'000'000'000); // the latest time of the file system
    const unsigned int handle = client.UploadFile(file, ToBytes("x"), time);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
}

TEST_F(Times, OfDirectoriesAreSetToo)
{
    client.SetDateTime(folder.GetPath(), Core::DateTime::FromUnixEpochTime(1000));
    EXPECT_EQ(client.GetDateTime(folder.GetPath()), Core::DateTime::FromUnixEpochTime(1000));
}

class Permissions : public AFileSystem
{
protected:
    [[nodiscard]] unsigned int GetMode() const
    {
        struct stat status = {};
        EXPECT_EQ(::stat(file.c_str(), &status), 0);
        return status.st_mode & 0777U;
    }

    void Upload(unsigned char permissions)
    {
        static_cast<void>(::unlink(file.c_str()));
        static_cast<void>(folder.MakeFile("file"));
        ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
        const unsigned int handle = client.UploadFile(file, ToBytes("x"), {}, permissions);
        EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
    }

    std::string file = folder / "file";
};

TEST_F(Permissions, StayWithoutFlagsAndWithFlagsThatMeanNothing)
{
    for (const unsigned char flags : Bytes{0x00, 0x01, 0x08, 0xF1}) {
        Upload(flags);
        EXPECT_EQ(GetMode(), 0640U) << static_cast<int>(flags);
    }
}

TEST_F(Permissions, AreAddedAndTakenForEveryone)
{
    Upload(0x04);
    EXPECT_EQ(GetMode(), 0751U);
    Upload(0x02);
    EXPECT_EQ(GetMode(), 0444U);
    Upload(0x06);
    EXPECT_EQ(GetMode(), 0555U);
}

TEST_F(Permissions, AreSetBehindTheLastBlock)
{
    const unsigned int handle = client.OpenWrite(file, ToBytes("x"));
    client.WriteClose(handle, ToBytes("y"), Core::DateTime::FromUnixEpochTime(1000), 0x06);
    EXPECT_EQ(TakeAcks(), std::vector<Ack>({{handle, 0}}));
    EXPECT_EQ(GetMode(), 0555U);
    EXPECT_EQ(client.GetDateTime(file), Core::DateTime::FromUnixEpochTime(1000));
    EXPECT_EQ(ReadWholeFile(file), "xy");
}

} // namespace
