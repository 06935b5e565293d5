#include "Fixture.h"

#include "Client/FileSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Client;
using namespace ClientTest;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20U;

class ATransfer : public WithHost
{
protected:
    TransferResult Put(const fs::path& local, const fs::path& remote, TransferOptions options = {})
    {
        options.isRecursive = true;
        return fileSystem.Upload({{local.string(), remote.string()}}, options);
    }
    TransferResult Get(const fs::path& local, const fs::path& remote, TransferOptions options = {})
    {
        options.isRecursive = true;
        return fileSystem.Download({{local.string(), remote.string()}}, options);
    }

    Connection connection{MakeOptions(host)};
    FileSystem fileSystem{connection};
};

class ATransferOfSize : public ATransfer, public testing::WithParamInterface<std::size_t>
{};

TEST_P(ATransferOfSize, KeepsContentAndTimeBothWays)
{
    const auto source = local.GetPath() / "source";
    MakeFile(source, GetParam());
    const auto sent = Put(source, root.GetPath() / "file");
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(sent.bytes, GetParam());
    EXPECT_EQ(ReadFile(root.GetPath() / "file"), ReadFile(source));
    EXPECT_EQ(GetSeconds(root.GetPath() / "file"), oldTime);
    EXPECT_EQ(fileSystem.GetSize((root.GetPath() / "file").string()), GetParam());

    const auto fetched = Get(local.GetPath() / "fetched", root.GetPath() / "file");
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    EXPECT_EQ(ReadFile(local.GetPath() / "fetched"), ReadFile(source));
    EXPECT_EQ(GetSeconds(local.GetPath() / "fetched"), oldTime);
    EXPECT_FALSE(fs::exists(GetPartName((local.GetPath() / "fetched").string())));
}

INSTANTIATE_TEST_SUITE_P(Sizes, ATransferOfSize,
                         testing::Values(0, 1, 4096, 61439, 61440, 61441, mebibyte - 1, mebibyte,
                                         5 * mebibyte + 3));

TEST_F(ATransfer, KeepsTheLastSecondBefore1970)
{
    const auto tree = local.GetPath() / "tree";
    const auto target = root.GetPath() / "tree";
    MakeFile(tree / "small", 3);
    MakeFile(tree / "large", mebibyte);
    constexpr auto time = FileTime(std::chrono::seconds(-1));
    const std::array<timespec, 2> times{timespec{-1, 0}, timespec{-1, 0}};
    for (const auto* const name : {"small", "large", ""})
        ASSERT_EQ(utimensat(AT_FDCWD, (tree / name).c_str(), times.data(), 0), 0);
    const auto sent = Put(tree, target);
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    for (const auto* const name : {"small", "large", ""})
        EXPECT_EQ(GetSeconds(target / name), -1) << name;
    fileSystem.SetTime((target / "small").string(), time + std::chrono::hours(1));
    fileSystem.SetTime((target / "small").string(), time);
    EXPECT_EQ(GetSeconds(target / "small"), -1);
    EXPECT_THROW(fileSystem.SetTime((target / "none").string(), time), OperationFailedException);
}

TEST_F(ATransfer, FetchesNoCopiesThatTheHostHasNotFinished)
{
    const std::string copy = ".talvensor-0123456789abcdef0123456789abcdef.part";
    for (const auto& name : {std::string("a"), "b/" + copy, copy + "/c"})
        MakeFile(root.GetPath() / "tree" / name, 3);
    TransferOptions options;
    options.isRecursive = true;
    const auto fetched = fileSystem.Download(
        {{(local.GetPath() / "tree").string(), (root.GetPath() / "tree").string()}}, options);
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    EXPECT_EQ(fetched.files, 1U);
    EXPECT_EQ(fetched.directories, 2U);
}

TEST_F(ATransfer, KeepsATreeWithOddNames)
{
    const auto tree = local.GetPath() / "tree";
    const std::vector<std::string> names{"with space",
                                         "new\nline",
                                         "\xFF\xFE not text",
                                         "\xC3\xA4\xF4\x8F\x9E\x81",
                                         std::string(255, 'n'),
                                         "-dash",
                                         "*?[",
                                         "'\"\\"};
    for (const auto& name : names) {
        MakeFile(tree / name, 100);
        MakeFile(tree / ("d" + name.substr(1)) / "inside", 70'000);
    }
    fs::create_directories(tree / "empty" / "empty");
    const auto sent = Put(tree, root.GetPath() / "tree");
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    ExpectSameTrees(tree, root.GetPath() / "tree");
    const auto fetched = Get(local.GetPath() / "back", root.GetPath() / "tree");
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    ExpectSameTrees(tree, local.GetPath() / "back");
}

TEST_F(ATransfer, CarriesManySmallFiles)
{
    const bool isLong = std::getenv("TALVENSOR_LONG") != nullptr;
    const int count = isLong ? 20'000 : 2'000;
    const auto tree = local.GetPath() / "tree";
    for (int i = 0; i < count; ++i)
        MakeFile(tree / std::to_string(i), static_cast<std::size_t>(i % 4097));
    const auto sent = Put(tree, root.GetPath() / "tree");
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(sent.files, static_cast<std::uint64_t>(count));
    const auto fetched = Get(local.GetPath() / "back", root.GetPath() / "tree");
    EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
    ExpectSameTrees(tree, local.GetPath() / "back");
}

/// Small files with the times around now, one of which is that of writing them on the other side.
void MakeNewFiles(const fs::path& tree, std::size_t size)
{
    for (int i = 0; i < 10; ++i) {
        const auto file = tree / std::to_string(i);
        MakeFile(file, size);
        fs::last_write_time(file, fs::file_time_type::clock::now() + std::chrono::seconds(i - 1));
    }
}

TEST_F(ATransfer, KeepsTheTimesOfNewFiles)
{
    const auto tree = local.GetPath() / "tree";
    MakeNewFiles(tree, 1000);
    const auto sent = Put(tree, root.GetPath() / "tree");
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    ExpectSameTrees(tree, root.GetPath() / "tree");
}

TEST_F(ATransfer, SetsWhatThePermissionFlagsCanSay)
{
    const auto source = local.GetPath() / "program";
    MakeFile(source, 10);
    fs::permissions(source, fs::perms(0555));
    EXPECT_TRUE(Put(source, root.GetPath() / "program").IsComplete());
    const auto mode = fs::status(root.GetPath() / "program").permissions();
    EXPECT_EQ(mode & fs::perms(0333), fs::perms(0111));
}

TEST_F(ATransfer, GoesOnWithOtherFilesAndNamesThoseThatFailed)
{
    const auto tree = local.GetPath() / "tree";
    MakeFile(tree / "good", 10);
    MakeFile(tree / "blocked", 10);
    MakeFile(tree / "blocked too", 300'000);
    fs::create_directories(root.GetPath() / "tree" / "blocked");
    fs::create_directories(root.GetPath() / "tree" / "blocked too");
    const auto sent = Put(tree, root.GetPath() / "tree");
    EXPECT_EQ(sent.files, 1U);
    ASSERT_EQ(sent.failures.size(), 2U) << Describe(sent);
    for (const auto& failure : sent.failures) {
        EXPECT_EQ(failure.step, Step::Open);
        EXPECT_EQ(failure.kind, FailureKind::RemoteResult);
        EXPECT_EQ(failure.remoteResult, 1U);
        EXPECT_THAT(failure.path, testing::HasSubstr("blocked"));
    }
    EXPECT_EQ(ReadFile(root.GetPath() / "tree" / "good").size(), 10U);
}

TEST_F(ATransfer, TouchesNothingUnderANameThatANulCuts)
{
    MakeFile(local.GetPath() / "keep", 10);
    MakeFile(root.GetPath() / "keep", 20);
    const std::string cut("keep\0x", 6);
    for (const auto& result : {Put(local.GetPath() / "keep", root.GetPath() / cut),
                               Put(local.GetPath() / cut, root.GetPath() / "keep"),
                               Get(local.GetPath() / cut, root.GetPath() / "keep"),
                               Get(local.GetPath() / "keep", root.GetPath() / cut)}) {
        ASSERT_EQ(result.failures.size(), 1U);
        EXPECT_THAT(result.failures[0].cause, testing::HasSubstr("NUL"));
        EXPECT_EQ(result.files, 0U);
    }
    EXPECT_EQ(fs::file_size(local.GetPath() / "keep"), 10U);
    EXPECT_EQ(fs::file_size(root.GetPath() / "keep"), 20U);
    EXPECT_THROW((void)fileSystem.Delete({(root.GetPath() / cut).string()}),
                 InvalidArgumentException);
    EXPECT_TRUE(fs::exists(root.GetPath() / "keep"));
}

TEST_F(ATransfer, NamesWhatIsMissing)
{
    const auto sent = Put(local.GetPath() / "missing", root.GetPath() / "file");
    ASSERT_EQ(sent.failures.size(), 1U);
    EXPECT_EQ(sent.failures[0].side, Side::Local);
    EXPECT_EQ(sent.failures[0].systemError, ENOENT);
    const auto fetched = Get(local.GetPath() / "file", root.GetPath() / "missing");
    ASSERT_EQ(fetched.failures.size(), 1U);
    EXPECT_EQ(fetched.failures[0].side, Side::Remote);
    EXPECT_FALSE(fs::exists(local.GetPath() / "file"));
}

TEST_F(ATransfer, SendsOnlyTheFirstOfSourcesWithTheSameTarget)
{
    MakeFile(local.GetPath() / "first" / "file", 5 * mebibyte);
    MakeFile(local.GetPath() / "second" / "file", 6 * mebibyte);
    const auto target = root.GetPath().string();
    const auto sent =
        fileSystem.Upload({{(local.GetPath() / "first" / "file").string(), target + "/file"},
                           {(local.GetPath() / "second" / "file").string(), target + "//./file"}});
    ASSERT_EQ(sent.failures.size(), 1U) << Describe(sent);
    EXPECT_EQ(sent.failures[0].path, (local.GetPath() / "second" / "file").string());
    EXPECT_THAT(sent.failures[0].cause, testing::HasSubstr("same target"));
    EXPECT_EQ(sent.files, 1U);
    EXPECT_EQ(ReadFile(root.GetPath() / "file"), ReadFile(local.GetPath() / "first" / "file"));
}

TEST_F(ATransfer, FetchesOnlyTheFirstOfSourcesWithTheSameTarget)
{
    MakeFile(root.GetPath() / "first" / "file", 5 * mebibyte);
    MakeFile(root.GetPath() / "second" / "file", 6 * mebibyte);
    MakeFile(root.GetPath() / "second" / "other", 10);
    const auto target = local.GetPath().string();
    TransferOptions options;
    options.isRecursive = true;
    const auto fetched =
        fileSystem.Download({{target + "//file", (root.GetPath() / "first" / "file").string()},
                             {target, (root.GetPath() / "second").string()}},
                            options);
    ASSERT_EQ(fetched.failures.size(), 1U) << Describe(fetched);
    EXPECT_EQ(fetched.failures[0].path, (root.GetPath() / "second" / "file").string());
    EXPECT_THAT(fetched.failures[0].cause, testing::HasSubstr("same target"));
    EXPECT_EQ(fetched.files, 2U);
    EXPECT_EQ(ReadFile(local.GetPath() / "file"), ReadFile(root.GetPath() / "first" / "file"));
    EXPECT_TRUE(fs::exists(local.GetPath() / "other"));
}

TEST_F(ATransfer, TellsThatTheHostCannotWriteAll)
{
    // As on a full disk: writing behind this size fails.
    const rlimit limit{100'000, 100'000};
    ASSERT_EQ(prlimit(host.GetProcess(), RLIMIT_FSIZE, &limit, nullptr), 0);
    const auto tree = local.GetPath() / "tree";
    MakeFile(tree / "small", 200'000);
    MakeFile(tree / "large", 5 * mebibyte);
    const auto sent = Put(tree, root.GetPath() / "tree");
    ASSERT_EQ(sent.failures.size(), 2U) << Describe(sent);
    for (const auto& failure : sent.failures) {
        EXPECT_EQ(failure.step, Step::Write) << failure.path;
        EXPECT_EQ(failure.remoteResult, 2U);
    }
    EXPECT_EQ(sent.unfinished.size(), 2U);
}

TEST_F(ATransfer, TellsThatTheHostCannotWriteNewFiles)
{
    const rlimit limit{100'000, 100'000};
    ASSERT_EQ(prlimit(host.GetProcess(), RLIMIT_FSIZE, &limit, nullptr), 0);
    const auto tree = local.GetPath() / "tree";
    MakeNewFiles(tree, 200'000);
    const auto sent = Put(tree, root.GetPath() / "tree");
    EXPECT_EQ(sent.failures.size(), 10U) << Describe(sent);
    EXPECT_EQ(sent.unfinished.size(), 10U);
}

TEST_F(ATransfer, LeavesAWholeFileAloneWhenItCarriesOn)
{
    const auto source = local.GetPath() / "source";
    MakeFile(source, 5 * mebibyte);
    TransferOptions options;
    options.resumes = true;
    EXPECT_TRUE(Put(source, root.GetPath() / "file", options).IsComplete());
    const auto sent = Put(source, root.GetPath() / "file", options);
    EXPECT_EQ(sent.skippedFiles, 1U);
    EXPECT_EQ(sent.bytes, 0U);
    EXPECT_TRUE(Get(local.GetPath() / "file", root.GetPath() / "file", options).IsComplete());
    EXPECT_EQ(Get(local.GetPath() / "file", root.GetPath() / "file", options).skippedFiles, 1U);
}

TEST_F(ATransfer, StartsOverWhereAnotherFileIs)
{
    const auto source = local.GetPath() / "source";
    MakeFile(source, mebibyte);
    WriteFile(root.GetPath() / "file", std::string(1000, 'x'));
    TransferOptions options;
    options.resumes = true;
    const auto sent = Put(source, root.GetPath() / "file", options);
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(sent.resumedBytes, 0U);
    EXPECT_EQ(ReadFile(root.GetPath() / "file"), ReadFile(source));
}

TEST_F(ATransfer, FetchesFilesThatAreNamedAsPartsOfOthers)
{
    const auto tree = root.GetPath() / "tree";
    const auto addWithPart = [&](const std::string& name, std::size_t size) {
        MakeFile(tree / name, size);
        MakeFile(GetPartName((tree / name).string()), size + 1);
        MakeFile(GetPartName((tree / name).string()) + "-2", size + 2);
    };
    addWithPart("small", 100);
    addWithPart("large", 5 * mebibyte);
    fs::create_directory(GetPartName((tree / "blocked").string()));
    MakeFile(tree / "blocked", 10);
    for (const std::size_t jobs : {1U, 4U}) {
        TransferOptions options;
        options.jobs = jobs;
        const auto target = local.GetPath() / std::to_string(jobs);
        const auto fetched = Get(target, tree, options);
        EXPECT_TRUE(fetched.IsComplete()) << Describe(fetched);
        ExpectSameTrees(tree, target);
    }
}

TEST_F(ATransfer, LeavesAPartAloneThatAnotherTransferWrites)
{
    MakeFile(root.GetPath() / "file", 100);
    const auto target = local.GetPath() / "file";
    const auto part = GetPartName(target.string());
    WriteFile(part, "of another");
    const int other = open(part.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    const auto blocked = Get(target, root.GetPath() / "file");
    ASSERT_EQ(blocked.failures.size(), 1U);
    EXPECT_THAT(blocked.failures[0].cause, testing::HasSubstr("another transfer"));
    EXPECT_EQ(ReadFile(part), "of another");
    close(other);
    EXPECT_TRUE(Get(target, root.GetPath() / "file").IsComplete());
    EXPECT_EQ(ReadFile(target), ReadFile(root.GetPath() / "file"));
}

TEST_F(ATransfer, VerifiesWhatIsThere)
{
    const auto source = local.GetPath() / "source";
    MakeFile(source, 2 * mebibyte);
    TransferOptions options;
    options.verifies = true;
    EXPECT_TRUE(Put(source, root.GetPath() / "file", options).IsComplete());
    EXPECT_TRUE(Get(local.GetPath() / "back", root.GetPath() / "file", options).IsComplete());

    // The file there differs in its middle, and nothing says that it is of the source.
    auto wrong = ReadFile(source);
    wrong.resize(mebibyte);
    wrong[100] = static_cast<char>(wrong[100] + 1);
    WriteFile(root.GetPath() / "file", wrong);
    options.resumes = true;
    const auto sent = Put(source, root.GetPath() / "file", options);
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(sent.resumedBytes, 0U);
}

TEST_F(ATransfer, VerifiesWhatItDoesNotMoveAgain)
{
    const auto change = [](const fs::path& file) {
        auto content = ReadFile(file);
        content[100] = static_cast<char>(content[100] + 1);
        WriteFile(file, content);
        const std::array<timespec, 2> times{timespec{oldTime, 0}, timespec{oldTime, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times.data(), 0), 0);
    };
    for (const std::string name : {"small", "small too", "large"}) {
        MakeFile(local.GetPath() / "tree" / name, name == "large" ? 2 * mebibyte : 1000);
        MakeFile(root.GetPath() / "tree" / name, name == "large" ? 2 * mebibyte : 1000);
    }
    TransferOptions options;
    options.resumes = true;
    options.verifies = true;
    const auto same = Put(local.GetPath() / "tree", root.GetPath() / "tree", options);
    EXPECT_TRUE(same.IsComplete()) << Describe(same);
    EXPECT_EQ(same.skippedFiles, 3U);
    EXPECT_EQ(same.bytes, 0U);
    const auto sameBack = Get(local.GetPath() / "tree", root.GetPath() / "tree", options);
    EXPECT_TRUE(sameBack.IsComplete()) << Describe(sameBack);
    EXPECT_EQ(sameBack.skippedFiles, 3U);

    change(root.GetPath() / "tree" / "small");
    change(root.GetPath() / "tree" / "large");
    for (const bool isUpload : {true, false}) {
        const auto moved = isUpload
                               ? Put(local.GetPath() / "tree", root.GetPath() / "tree", options)
                               : Get(local.GetPath() / "tree", root.GetPath() / "tree", options);
        ASSERT_EQ(moved.failures.size(), 2U) << Describe(moved);
        for (const auto& failure : moved.failures)
            EXPECT_EQ(failure.kind, FailureKind::Different) << failure.path;
        EXPECT_EQ(moved.skippedFiles, 1U);
    }
}

TEST_F(ATransfer, LeavesNoFileOpenWhenCancelled)
{
    for (int i = 0; i < 200; ++i)
        MakeFile(root.GetPath() / "tree" / std::to_string(i), 1000);
    Cancellation cancellation;
    TransferOptions options;
    options.cancellation = &cancellation;
    options.progress = [&](const Progress&) {
        cancellation.Cancel();
    };
    EXPECT_TRUE(Get(local.GetPath() / "tree", root.GetPath() / "tree", options).isCancelled);
    const auto descriptors = fs::path("/proc") / std::to_string(host.GetProcess()) / "fd";
    for (const auto& entry : fs::directory_iterator(descriptors)) {
        std::error_code isGone;
        const auto file = fs::read_symlink(entry.path(), isGone).string();
        EXPECT_FALSE(file.starts_with((root.GetPath() / "tree").string())) << file;
    }
}

TEST_F(ATransfer, ShowsItsProgress)
{
    const auto source = local.GetPath() / "source";
    MakeFile(source, 40 * mebibyte);
    std::vector<Progress> shown;
    TransferOptions options;
    options.progress = [&](const Progress& progress) {
        shown.push_back(progress);
    };
    EXPECT_TRUE(Put(source, root.GetPath() / "file", options).IsComplete());
    ASSERT_GT(shown.size(), 3U);
    EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end(), [](const auto& left, const auto& right) {
        return left.bytes < right.bytes;
    }));
    EXPECT_TRUE(shown.back().isFileFinished);
    EXPECT_EQ(shown.back().bytes, 40 * mebibyte);
    EXPECT_EQ(shown.back().allBytes, 40 * mebibyte);
}

TEST_F(ATransfer, EndsSoonWhenCancelled)
{
    const auto source = local.GetPath() / "source";
    MakeFile(source, 60 * mebibyte);
    Cancellation cancellation;
    TransferOptions options;
    options.cancellation = &cancellation;
    options.progress = [&](const Progress&) {
        cancellation.Cancel();
    };
    const auto sent = Put(source, root.GetPath() / "file", options);
    EXPECT_TRUE(sent.isCancelled);
    EXPECT_THAT(sent.unfinished, testing::ElementsAre((root.GetPath() / "file").string()));
    EXPECT_LT(sent.bytes, 60 * mebibyte);
    // And what it left can be continued.
    options.cancellation = nullptr;
    options.progress = nullptr;
    options.resumes = true;
    const auto rest = Put(source, root.GetPath() / "file", options);
    EXPECT_TRUE(rest.IsComplete()) << Describe(rest);
    EXPECT_GT(rest.resumedBytes, 0U);
    EXPECT_EQ(ReadFile(root.GetPath() / "file"), ReadFile(source));
}

TEST_F(ATransfer, TakesAndGivesStreams)
{
    const auto content = MakeContent(3 * mebibyte + 5);
    std::size_t given = 0;
    const auto sent = fileSystem.UploadFrom(
        [&](std::span<unsigned char> buffer) {
            const auto count = std::min({buffer.size(), content.size() - given, std::size_t{9999}});
            std::copy_n(content.begin() + static_cast<std::ptrdiff_t>(given), count,
                        buffer.begin());
            given += count;
            return count;
        },
        (root.GetPath() / "stream").string());
    EXPECT_TRUE(sent.IsComplete()) << Describe(sent);
    EXPECT_EQ(ReadFile(root.GetPath() / "stream"), content);
    std::string taken;
    const auto fetched = fileSystem.DownloadTo(
        (root.GetPath() / "stream").string(),
        [&](std::span<const unsigned char> bytes) { taken.append(bytes.begin(), bytes.end()); });
    EXPECT_TRUE(fetched.IsComplete());
    EXPECT_EQ(taken, content);
}

TEST_F(ATransfer, WritesNothingOutsideItsTarget)
{
    // Links make the server tell paths that lead elsewhere.
    const auto tree = root.GetPath() / "tree";
    MakeFile(tree / "file", 10);
    MakeFile(root.GetPath() / "outside" / "victim", 10);
    fs::create_directory_symlink(root.GetPath() / "outside", tree / "up");
    fs::create_directory_symlink(tree, tree / "again");
    MakeFile(local.GetPath() / "outside" / "victim", 1);
    const auto fetched = Get(local.GetPath() / "tree", tree);
    EXPECT_FALSE(fetched.failures.empty());
    for (const auto& failure : fetched.failures)
        EXPECT_EQ(failure.kind, FailureKind::Unsafe) << failure.path << ": " << failure.cause;
    EXPECT_EQ(fs::file_size(local.GetPath() / "outside" / "victim"), 1U);
    EXPECT_EQ(fs::file_size(local.GetPath() / "tree" / "file"), 10U);
}

TEST_F(ATransfer, FollowsNoLinkOfTheLocalTarget)
{
    MakeFile(root.GetPath() / "tree" / "sub" / "file", 10);
    fs::create_directories(local.GetPath() / "elsewhere");
    fs::create_directories(local.GetPath() / "tree");
    fs::create_directory_symlink(local.GetPath() / "elsewhere", local.GetPath() / "tree" / "sub");
    const auto fetched = Get(local.GetPath() / "tree", root.GetPath() / "tree");
    EXPECT_FALSE(fetched.IsComplete());
    EXPECT_TRUE(fs::is_empty(local.GetPath() / "elsewhere"));
}

TEST_F(ATransfer, TellsOnceOfEachFileThatHasNoPlace)
{
    for (const std::string name : {"first", "second"})
        MakeFile(root.GetPath() / "tree" / "sub" / name, 10);
    fs::create_directories(local.GetPath() / "tree");
    WriteFile(local.GetPath() / "tree" / "sub", "no directory");
    TransferOptions options;
    options.resumes = true;
    const auto fetched = Get(local.GetPath() / "tree", root.GetPath() / "tree", options);
    EXPECT_EQ(fetched.failures.size(), 3U) << Describe(fetched); // the directory, and its files
}

TEST(APath, IsSafeOnlyWhenItStaysBelow)
{
    for (const std::string path : {"a", "a/b", "..a", "a..", "...", "a b/\n"})
        EXPECT_TRUE(IsSafeRelativePath(path)) << path;
    for (const std::string path :
         {"", "/", "/a", "..", "../a", "a/..", "a/../b", "a//b", ".", "./a", "a/", "a/."})
        EXPECT_FALSE(IsSafeRelativePath(path)) << path;
    EXPECT_FALSE(IsSafeRelativePath(std::string("a\0b", 3)));
}

} // namespace
