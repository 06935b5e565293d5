// The steps of a synchronisation, from two lists of entries.

#include "Sync/SyncPlan.h"
#include "Sync/SyncScan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Cli {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

SyncEntry File(const std::string& path, std::uint64_t size = 1, int time = 100)
{
    return {.path = path,
            .type = EntryType::File,
            .size = size,
            .time = Client::FileTime(seconds(time)),
            .permissions = 0644};
}

SyncEntry Directory(const std::string& path, int time = 100)
{
    return {.path = path,
            .type = EntryType::Directory,
            .size = 0,
            .time = Client::FileTime(seconds(time)),
            .permissions = 0755};
}

SyncTree Tree(std::vector<SyncEntry> entries)
{
    return {.entries = std::move(entries), .keptDirectories = {}, .left = {}, .isWhole = true};
}

std::vector<std::string> Paths(const std::vector<SyncEntry>& entries)
{
    std::vector<std::string> paths;
    for (const auto& entry : entries)
        paths.push_back(entry.path);
    return paths;
}

const SyncTree tree = Tree({Directory("a"), File("a/x"), File("y")});
constexpr SyncRules deleting{.deletes = true, .keepsNewer = false, .comparesContents = false};

TEST(ASyncPlan, HasNothingForEqualTrees)
{
    const auto plan = MakeSyncPlan(tree, tree, deleting);
    EXPECT_EQ(plan.same, 2U);
    EXPECT_THAT(plan.files, IsEmpty());
    EXPECT_THAT(plan.directories, IsEmpty());
    EXPECT_THAT(plan.deleted, IsEmpty());
    EXPECT_THAT(plan.permissions, IsEmpty());
}

TEST(ASyncPlan, SendsEverythingToAnEmptyTarget)
{
    const auto plan = MakeSyncPlan(tree, {}, {});
    EXPECT_THAT(Paths(plan.files), ElementsAre("a/x", "y"));
    EXPECT_THAT(Paths(plan.directories), ElementsAre("a"));
    EXPECT_EQ(plan.made, 1U);
}

TEST(ASyncPlan, SendsWhatHasAnotherSizeOrTime)
{
    const auto source = Tree({File("size", 2), File("time", 1, 101), File("same")});
    const auto target = Tree({File("size"), File("time"), File("same")});
    EXPECT_THAT(Paths(MakeSyncPlan(source, target, {}).files), ElementsAre("size", "time"));
}

TEST(ASyncPlan, SendsWhatTheTargetCannotTellOf)
{
    auto target = tree;
    target.entries[1].size.reset();
    target.entries[2].time.reset();
    EXPECT_THAT(Paths(MakeSyncPlan(tree, target, {}).files), ElementsAre("a/x", "y"));
}

TEST(ASyncPlan, SetsTheTimesOfDirectoriesInWhichSomethingChanges)
{
    auto target = tree;
    target.entries[1].size = 2;
    EXPECT_THAT(Paths(MakeSyncPlan(tree, target, {}).directories), ElementsAre("a"));
    target.entries[1].size = 1;
    target.entries.push_back(File("a/old"));
    EXPECT_THAT(Paths(MakeSyncPlan(tree, target, deleting).directories), ElementsAre("a"));
}

TEST(ASyncPlan, DeletesOnlyWhenAsked)
{
    const auto target = Tree({Directory("a"), File("a/x"), File("a/z"), Directory("old"),
                              Directory("old/b"), File("old/b/c"), File("y")});
    EXPECT_THAT(MakeSyncPlan(tree, target, {}).deleted, IsEmpty());
    EXPECT_THAT(MakeSyncPlan(tree, target, deleting).deleted, ElementsAre("a/z", "old"));
}

TEST(ASyncPlan, DeletesNothingForASourceThatWasNotListedWhole)
{
    auto source = tree;
    source.isWhole = false;
    const auto target = Tree({Directory("y"), File("z")});
    const auto plan = MakeSyncPlan(source, target, deleting);
    EXPECT_THAT(plan.deleted, IsEmpty());
    EXPECT_THAT(plan.replaced, IsEmpty());
}

TEST(ASyncPlan, KeepsDirectoriesThatHoldWhatIsLeftOut)
{
    auto target = Tree({Directory("old"), Directory("old/b"), File("old/c"), File("old/b/d")});
    target.keptDirectories = {"old", "old/b"};
    EXPECT_THAT(MakeSyncPlan({}, target, deleting).deleted, ElementsAre("old/c", "old/b/d"));
}

TEST(ASyncPlan, DeletesNothingThatTheSourceOnlySkipped)
{
    auto source = Tree({Directory("a")});
    source.left = {"a/link", "data"};
    source.keptDirectories = {"a"};
    const auto target = Tree({Directory("a"), File("a/link"), File("a/old"), Directory("data"),
                              File("data/x"), Directory("data/b"), File("data/b/y")});
    EXPECT_THAT(MakeSyncPlan(source, target, deleting).deleted, ElementsAre("a/old"));
}

TEST(ASyncPlan, LeavesWhatTheTargetOnlySkipped)
{
    const auto source = Tree({Directory("data"), File("data/x"), File("y")});
    auto target = Tree({Directory("old"), File("old/z")});
    target.left = {"data", "old/link"};
    target.keptDirectories = {"old"};
    const auto plan = MakeSyncPlan(source, target, deleting);
    EXPECT_THAT(plan.conflicts,
                ElementsAre("data: is a link or a special file at the target, so it stays"));
    EXPECT_THAT(Paths(plan.files), ElementsAre("y"));
    EXPECT_THAT(plan.directories, IsEmpty());
    EXPECT_THAT(plan.deleted, ElementsAre("old/z"));
}

TEST(ASyncPlan, NamesWhatIsOfAnotherType)
{
    const auto target = Tree({File("a"), Directory("y"), File("y/in")});
    const auto plan = MakeSyncPlan(tree, target, {});
    EXPECT_THAT(plan.conflicts,
                ElementsAre("a: is a directory at the source and none at the target (--delete "
                            "replaces it)",
                            "y: is a directory at the target and a file at the source (--delete "
                            "replaces it)"));
    EXPECT_THAT(plan.files, IsEmpty());
    EXPECT_THAT(plan.directories, IsEmpty());
}

TEST(ASyncPlan, ReplacesWhatIsOfAnotherTypeWhereItMayDelete)
{
    const auto target = Tree({File("a"), Directory("y"), File("y/in")});
    auto plan = MakeSyncPlan(tree, target, deleting);
    EXPECT_THAT(plan.replaced, ElementsAre("a", "y"));
    EXPECT_THAT(Paths(plan.files), ElementsAre("a/x", "y"));
    EXPECT_THAT(plan.deleted, IsEmpty());
    auto kept = target;
    kept.keptDirectories = {"y"};
    plan = MakeSyncPlan(tree, kept, deleting);
    EXPECT_THAT(plan.replaced, ElementsAre("a"));
    EXPECT_THAT(plan.conflicts, testing::SizeIs(1));
    EXPECT_THAT(plan.deleted, IsEmpty());
}

TEST(ASyncPlan, KeepsNewerFilesWhenAsked)
{
    const auto target = Tree({Directory("a"), File("a/x", 7, 101), File("y", 7, 99)});
    SyncRules rules;
    rules.keepsNewer = true;
    const auto plan = MakeSyncPlan(tree, target, rules);
    EXPECT_THAT(Paths(plan.files), ElementsAre("y"));
    EXPECT_EQ(plan.newer, 1U);
}

TEST(ASyncPlan, ComparesContentsOfEqualSizeWhenAsked)
{
    const auto target = Tree({Directory("a"), File("a/x", 1, 101), File("y", 2)});
    SyncRules rules;
    rules.comparesContents = true;
    const auto plan = MakeSyncPlan(tree, target, rules);
    EXPECT_THAT(Paths(plan.compared), ElementsAre("a/x"));
    EXPECT_THAT(Paths(plan.files), ElementsAre("y"));
}

TEST(ASyncPlan, SetsPermissionsThatDiffer)
{
    auto target = tree;
    target.entries[0].permissions = 0700;
    target.entries[1].permissions = 0600;
    target.entries[2].permissions.reset();
    EXPECT_THAT(Paths(MakeSyncPlan(tree, target, {}).permissions), ElementsAre("a", "a/x"));
}

TEST(ASyncPlan, ClosesDirectoriesFirstAndOpensThemLast)
{
    auto source = tree;
    auto target = tree;
    const auto getClosed = [&](unsigned int atSource, unsigned int atTarget) {
        source.entries[0].permissions = atSource;
        target.entries[0].permissions = atTarget;
        const auto plan = MakeSyncPlan(source, target, {});
        EXPECT_THAT(Paths(plan.permissions), ElementsAre("a"));
        return plan.closed.empty() ? 0U : plan.closed.front().permissions.value_or(0);
    };
    EXPECT_EQ(getClosed(0700, 0755), 0700U);
    EXPECT_EQ(getClosed(0500, 0755), 0700U); // it is filled by its owner
    EXPECT_EQ(getClosed(0705, 0750), 0700U); // others may not come yet
    EXPECT_EQ(getClosed(0755, 0700), 0U);
    EXPECT_EQ(getClosed(0711, 0700), 0U);
    EXPECT_EQ(getClosed(0555, 0755), 0U);
}

TEST(AnExclusion, IsForNamesOrForPaths)
{
    const Exclusions exclusions({"*.o", "/top", "a/*/c", "build/"});
    EXPECT_TRUE(exclusions.Take("x.o", false));
    EXPECT_TRUE(exclusions.Take("a/b/x.o", false));
    EXPECT_TRUE(exclusions.Take("top", false));
    EXPECT_FALSE(exclusions.Take("a/top", false));
    EXPECT_TRUE(exclusions.Take("a/b/c", false));
    EXPECT_FALSE(exclusions.Take("a/b/b/c", false));
    EXPECT_TRUE(exclusions.Take("a/build", true));
    EXPECT_FALSE(exclusions.Take("a/build", false));
}

} // namespace
} // namespace Cli
