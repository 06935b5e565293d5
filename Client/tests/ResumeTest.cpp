// Carrying on where a transfer was broken off, and starting over where something speaks against it.

#include "Fixture.h"

#include "Client/FileSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>

using namespace Client;
using namespace ClientTest;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20U;
constexpr std::size_t size = 16 * mebibyte;

/// In place: the size stays.
void ChangeByte(const fs::path& file, std::streamoff position)
{
    std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekg(position);
    const int before = stream.get();
    stream.seekp(position);
    stream.put(static_cast<char>(before + 1));
    ASSERT_TRUE(stream.flush());
}

void SetOldTime(const fs::path& file)
{
    const std::array<timespec, 2> times{timespec{oldTime, 0}, timespec{oldTime, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times.data(), 0), 0);
}

enum class Direction
{
    Up,
    Down,
};

class WithTransfer : public WithHost
{
protected:
    /// Moves the file until some of it has been moved, and is cancelled then.
    TransferResult Break(Direction direction)
    {
        Cancellation cancellation;
        TransferOptions options;
        options.cancellation = &cancellation;
        options.progress = [&](const Progress& progress) {
            if (progress.bytes >= 2 * mebibyte)
                cancellation.Cancel();
        };
        auto result = Move(MakeOptions(host), direction, options);
        EXPECT_TRUE(result.isCancelled) << Describe(result);
        return result;
    }

    TransferResult Continue(Direction direction)
    {
        TransferOptions options;
        options.resumes = true;
        auto result = Move(MakeOptions(host), direction, options);
        EXPECT_TRUE(result.IsComplete()) << Describe(result);
        EXPECT_TRUE(ReadFile(here) == ReadFile(there));
        EXPECT_EQ(GetSeconds(here), GetSeconds(there));
        EXPECT_EQ(CountRecords(), 0U) << "nothing is left to carry on";
        return result;
    }

    TransferResult Move(const ConnectionOptions& connecting, Direction direction,
                        const TransferOptions& options) const
    {
        Connection connection(connecting);
        FileSystem fileSystem(connection);
        const std::vector<TransferItem> items{{here.string(), there.string()}};
        return direction == Direction::Up ? fileSystem.Upload(items, options)
                                          : fileSystem.Download(items, options);
    }

    [[nodiscard]] std::size_t CountRecords() const
    {
        std::error_code error;
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(records, error), fs::directory_iterator()));
    }

    const fs::path here = local.GetPath() / "file";
    const fs::path there = root.GetPath() / "file";
    const fs::path part = GetPartName(here.string()); // of a download
    const fs::path records = state.GetPath() / "client" / "transfers";
};

class ABrokenTransfer : public WithTransfer, public testing::WithParamInterface<Direction>
{
protected:
    ABrokenTransfer() { MakeFile(source, size); }
    void Break() { WithTransfer::Break(GetParam()); }
    TransferResult Continue() { return WithTransfer::Continue(GetParam()); }

    const bool isUpload = GetParam() == Direction::Up;
    const fs::path source = isUpload ? here : there;
    const fs::path target = isUpload ? there : part; // until it is whole
};

INSTANTIATE_TEST_SUITE_P(BothWays, ABrokenTransfer, testing::Values(Direction::Up, Direction::Down),
                         [](const auto& each) {
                             return each.param == Direction::Up ? "Up" : "Down";
                         });

TEST_P(ABrokenTransfer, IsCarriedOn)
{
    Break();
    const auto kept = fs::file_size(target);
    const auto result = Continue();
    EXPECT_GT(kept, 0U);
    EXPECT_EQ(result.resumedBytes, kept);
    EXPECT_EQ(result.bytes, size - kept);
}

TEST_P(ABrokenTransfer, StartsOverWhenTheSourceHasChangedInItsFirstMegabyteAndGrown)
{
    Break();
    ChangeByte(source, 1000);
    std::ofstream(source, std::ios::app | std::ios::binary) << MakeContent(mebibyte);
    if (isUpload)
        SetOldTime(source); // a download learns of changes from the time alone
    EXPECT_EQ(Continue().resumedBytes, 0U);
}

TEST_P(ABrokenTransfer, StartsOverWhenTheSourceIsNewerThoughItsSizeIsTheSame)
{
    Break();
    ChangeByte(source, 1000);
    EXPECT_EQ(Continue().resumedBytes, 0U);
}

TEST_P(ABrokenTransfer, StartsOverWhenSomebodyElseHasChangedTheTarget)
{
    Break();
    ChangeByte(target, 1000);
    EXPECT_EQ(Continue().resumedBytes, 0U);
}

TEST_P(ABrokenTransfer, StartsOverWithoutARecord)
{
    Break();
    EXPECT_EQ(CountRecords(), 1U);
    fs::remove_all(records);
    EXPECT_EQ(Continue().resumedBytes, 0U);
}

TEST_P(ABrokenTransfer, StartsOverAtAnotherServer)
{
    Break();
    const HostProcess other(root.GetPath()); // with a key of its own
    TransferOptions options;
    options.resumes = true;
    const auto result = Move(MakeOptions(other), GetParam(), options);
    EXPECT_TRUE(result.IsComplete()) << Describe(result);
    EXPECT_EQ(result.resumedBytes, 0U);
    EXPECT_TRUE(ReadFile(here) == ReadFile(there));
}

class ABrokenUpload : public WithTransfer
{
protected:
    ABrokenUpload() { MakeFile(here, size); }
    void Break() { WithTransfer::Break(Direction::Up); }
    TransferResult Continue() { return WithTransfer::Continue(Direction::Up); }
};

TEST_F(ABrokenUpload, StartsOverWhenTheSourceHasOtherContentThoughSizeAndTimeAreTheSame)
{
    Break();
    ChangeByte(here, 1000);
    SetOldTime(here);
    EXPECT_EQ(Continue().resumedBytes, 0U);
}

TEST_F(ABrokenUpload, StartsOverWithARecordThatIsDamaged)
{
    Break();
    const auto record = fs::directory_iterator(records)->path();
    WriteFile(record, ReadFile(record).substr(0, 60));
    EXPECT_EQ(Continue().resumedBytes, 0U);
}

TEST_F(ABrokenUpload, IsForgottenAfterSomeWeeks)
{
    Break();
    const auto record = fs::directory_iterator(records)->path();
    EXPECT_EQ(fs::status(record).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(fs::status(records).permissions(), fs::perms::owner_all);
    fs::last_write_time(record, fs::last_write_time(record) - std::chrono::hours(24 * 40));
    fs::copy_file(record, records / "other");
    fs::last_write_time(records / "other",
                        fs::last_write_time(record) - std::chrono::hours(24 * 40));
    Break();
    EXPECT_FALSE(fs::exists(records / "other")) << "of a transfer that nobody carries on";
    fs::last_write_time(record, fs::last_write_time(record) - std::chrono::hours(24 * 40));
    EXPECT_EQ(Continue().resumedBytes, 0U);
}

/// The host is gone before it can say what it has of the file.
class AnUploadThatLostItsHost : public WithTransfer
{
protected:
    AnUploadThatLostItsHost()
    {
        MakeFile(here, size);
        auto connecting = MakeOptions(host);
        connecting.reconnectTime = std::chrono::milliseconds(1);
        TransferOptions options;
        options.progress = [&](const Progress& progress) {
            if (progress.bytes >= 2 * mebibyte)
                host.Kill();
        };
        const auto result = Move(connecting, Direction::Up, options);
        EXPECT_TRUE(result.isConnectionLost) << Describe(result);
        host.Restart();
    }
};

TEST_F(AnUploadThatLostItsHost, IsCarriedOnWhenAllThatIsThereIsTheSame)
{
    const auto part = fs::file_size(there);
    const auto result = Continue(Direction::Up);
    EXPECT_GT(part, 0U);
    EXPECT_EQ(result.resumedBytes, part);
}

TEST_F(AnUploadThatLostItsHost, StartsOverWhenSomebodyElseHasChangedTheTarget)
{
    ChangeByte(there, 1000);
    EXPECT_EQ(Continue(Direction::Up).resumedBytes, 0U);
}

class ABrokenDownload : public WithTransfer
{};

TEST_F(ABrokenDownload, StartsOverWhenTheSourceWasJustWritten)
{
    MakeFile(there, size);
    // Its time, in whole seconds, would not tell of a change that comes now.
    fs::last_write_time(there, fs::file_time_type::clock::now());
    Break(Direction::Down);
    EXPECT_EQ(CountRecords(), 0U);
    EXPECT_EQ(Continue(Direction::Down).resumedBytes, 0U);
}

} // namespace
