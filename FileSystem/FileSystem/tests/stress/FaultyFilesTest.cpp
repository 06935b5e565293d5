#include "FaultyFiles.h"
#include "LoadedModule.h"
#include "TemporaryFolder.h"

#include <cstdio>

namespace {

using namespace FileSystemTests;

constexpr unsigned int always = 1'000'000;

/// The module, loaded after everything else, above file calls that fail.
class TheModuleAboveFaultyFiles : public testing::Test
{
protected:
    ~TheModuleAboveFaultyFiles() override { FaultyFiles::SetRates({}); }

    /// Returns the result of the one acknowledgement.
    unsigned int TakeResult(unsigned int handle)
    {
        const Events events = WaitForBarrier(client, recorder);
        EXPECT_EQ(events.size(), 1U);
        if (events.size() != 1)
            return 999;
        EXPECT_EQ(OwnField(*events.front(), "FileHandle").Get<unsigned int>(), handle);
        return OwnField(*events.front(), "Result").Get<unsigned int>();
    }

    /// Returns an open file, without an event about it.
    unsigned int OpenFile(const std::string& name, unsigned int mode)
    {
        const unsigned int handle = client.Open(folder / name, mode);
        EXPECT_TRUE(WaitForBarrier(client, recorder).empty());
        return handle;
    }

    TemporaryFolder folder;
    LoadedModule module;
    Core::NodeId object = module.MakeFileSystem();
    Client client{module.GetRuntime(), object};
    EventRecorder recorder{module.GetRuntime(), object};
};

TEST_F(TheModuleAboveFaultyFiles, MeetsFailingOpens)
{
    FaultyFiles::SetRates({.openFails = always});
    const auto before = FaultyFiles::GetCounts();
    const unsigned int handle = client.Open(folder / "file", 0);
    EXPECT_EQ(TakeResult(handle), 1U);
    EXPECT_EQ(FaultyFiles::GetCounts().opens, before.opens + 1);
    EXPECT_EQ(FaultyFiles::GetCounts().openFailures, before.openFailures + 1);
    EXPECT_FALSE(std::filesystem::exists(folder / "file"));
}

TEST_F(TheModuleAboveFaultyFiles, MeetsFailingWrites)
{
    const unsigned int handle = OpenFile("file", 0);
    FaultyFiles::SetRates({.writeFails = always});
    const auto before = FaultyFiles::GetCounts();
    client.Write(handle, ToBytes("0123456789"));
    EXPECT_EQ(TakeResult(handle), 2U);
    EXPECT_EQ(FaultyFiles::GetCounts().writes, before.writes + 1);
    EXPECT_EQ(FaultyFiles::GetCounts().writeFailures, before.writeFailures + 1);
    EXPECT_EQ(ReadWholeFile(folder / "file"), "01234");
}

TEST_F(TheModuleAboveFaultyFiles, MeetsFailingReads)
{
    const unsigned int handle = OpenFile(folder.MakeFile("file", "0123456789"), 1);
    FaultyFiles::SetRates({.readFails = always});
    const auto before = FaultyFiles::GetCounts();
    EXPECT_EQ(client.Read(handle, 10), Bytes());
    EXPECT_EQ(FaultyFiles::GetCounts().reads, before.reads + 1);
    EXPECT_EQ(FaultyFiles::GetCounts().readFailures, before.readFailures + 1);
}

TEST_F(TheModuleAboveFaultyFiles, MeetsFailingClosesWhichCloseAllTheSame)
{
    const unsigned int handle = OpenFile("file", 0);
    FaultyFiles::SetRates({.closeFails = always});
    const auto before = FaultyFiles::GetCounts();
    client.Close(handle);
    EXPECT_EQ(TakeResult(handle), 3U);
    EXPECT_EQ(FaultyFiles::GetCounts().closes, before.closes + 1);
    EXPECT_EQ(FaultyFiles::GetCounts().closeFailures, before.closeFailures + 1);
    EXPECT_EQ(FaultyFiles::GetCounts().streamsOpen, before.streamsOpen - 1);
    EXPECT_TRUE(FindDescriptorsBelow(folder.GetPath()).empty());
}

TEST_F(TheModuleAboveFaultyFiles, MeetsSlowCalls)
{
    FaultyFiles::SetRates({.slowed = always});
    const auto before = FaultyFiles::GetCounts();
    const unsigned int handle = client.UploadFile(folder / "file", ToBytes("text"));
    EXPECT_EQ(TakeResult(handle), 0U);
    EXPECT_EQ(FaultyFiles::GetCounts().slowed, before.slowed + 3); // open, write, close
}

TEST(FaultyFilesWatch, SeesTheUseOfAStreamThatIsNotOpen)
{
    alignas(FILE) char memory[sizeof(FILE)] = {};
    const auto before = FaultyFiles::GetCounts();
    EXPECT_EQ(std::ftell(reinterpret_cast<FILE*>(memory)), -1);
    EXPECT_EQ(FaultyFiles::GetCounts().usesOfClosed, before.usesOfClosed + 1);
}

} // namespace
