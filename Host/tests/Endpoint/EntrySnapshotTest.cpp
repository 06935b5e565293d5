#include "Endpoint/EntrySnapshot.h"

#include "Endpoint/Ua.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AnEntrySnapshot : public testing::Test
{
protected:
    using Pointer = std::shared_ptr<const EntrySnapshot>;

    Pointer Make(const Pointer& before, const std::vector<std::string>& names)
    {
        std::vector<ListedEntry> entries;
        for (const auto& name : names)
            entries.push_back({name, 7});
        return EntrySnapshot::Make(before.get(), entries, 3, now);
    }

    static std::string NameOf(const UA_ReferenceTarget& target)
    {
        return std::string(
            OpcUa::BytesOf(UA_NodePointer_toNodeId(target.targetId).identifier.string));
    }

    /// Returns the entries that are there.
    static std::vector<std::string> NamesIn(const Pointer& snapshot)
    {
        std::vector<std::string> names;
        for (const auto& target : snapshot->GetTargets())
            if (snapshot->IsThere(target.targetId))
                names.push_back(NameOf(target));
        return names;
    }

    /// Returns all places.
    static std::vector<std::string> PlacesIn(const Pointer& snapshot)
    {
        std::vector<std::string> names;
        for (const auto& target : snapshot->GetTargets())
            names.push_back(NameOf(target));
        return names;
    }

    EntrySnapshot::Clock::time_point now = EntrySnapshot::Clock::now();
};

TEST_F(AnEntrySnapshot, HasTheEntriesInTheirOrder)
{
    const auto snapshot = Make(nullptr, {"b", "a", "c"});
    EXPECT_THAT(NamesIn(snapshot), ElementsAre("b", "a", "c"));
    EXPECT_EQ(snapshot->Count(), 3U);
    const UA_NodeId id = UA_NodePointer_toNodeId(snapshot->GetTargets().front().targetId);
    EXPECT_EQ(id.namespaceIndex, 3);
    EXPECT_EQ(snapshot->GetTargets().front().targetNameHash, 7U);
}

TEST_F(AnEntrySnapshot, HasAnEntryThatIsListedTwiceOnce)
{
    EXPECT_THAT(NamesIn(Make(nullptr, {"a", "b", "a"})), ElementsAre("a", "b"));
}

TEST_F(AnEntrySnapshot, KeepsTheOrderOfTheOneBefore)
{
    const auto before = Make(nullptr, {"a", "b", "c"});
    EXPECT_THAT(NamesIn(Make(before, {"new", "c", "a", "b"})), ElementsAre("a", "b", "c", "new"));
}

TEST_F(AnEntrySnapshot, KeepsThePlacesOfEntriesThatAreGone)
{
    const auto before = Make(nullptr, {"a", "b", "c"});
    const auto after = Make(before, {"a", "c"});
    EXPECT_THAT(NamesIn(after), ElementsAre("a", "c"));
    EXPECT_THAT(PlacesIn(after), ElementsAre("a", "b", "c"));
    EXPECT_EQ(after->Count(), 2U);
    EXPECT_EQ(after->GetTargets()[1].targetNameHash, 0U);
}

TEST_F(AnEntrySnapshot, HasAnEntryThatIsBackAtItsOldPlace)
{
    const auto gone = Make(Make(nullptr, {"a", "b", "c"}), {"a", "c"});
    EXPECT_THAT(NamesIn(Make(gone, {"c", "b", "a"})), ElementsAre("a", "b", "c"));
}

TEST_F(AnEntrySnapshot, GivesUpPlacesAfterAWhile)
{
    const auto gone = Make(Make(nullptr, {"a", "b", "c"}), {"a", "c"});
    now += EntrySnapshot::placeTime;
    const auto kept = Make(gone, {"a", "c"});
    EXPECT_THAT(PlacesIn(kept), ElementsAre("a", "b", "c"));
    now += std::chrono::seconds(1);
    EXPECT_THAT(PlacesIn(Make(kept, {"a", "c"})), ElementsAre("a", "c"));
}

TEST_F(AnEntrySnapshot, BoundsThePlaces)
{
    std::vector<std::string> names;
    for (std::size_t i = 0; i <= EntrySnapshot::mostPlaces; ++i)
        names.push_back(std::to_string(i));
    const std::vector<std::string> older(names.begin(), names.begin() + 10);
    const std::vector<std::string> newer(names.begin() + 10, names.end());
    const auto all = Make(nullptr, names);
    now += std::chrono::seconds(1);
    const auto first = Make(all, newer); // the older ones are gone
    now += std::chrono::seconds(1);
    const auto second = Make(first, {"last"});
    EXPECT_EQ(second->GetTargets().size(), names.size() + 1);
    const auto third = Make(second, {"last"});
    EXPECT_EQ(PlacesIn(third).front(), "10");
}

TEST_F(AnEntrySnapshot, OutlivesTheOnesBefore)
{
    auto snapshot = Make(nullptr, {"first"});
    std::vector<std::string> names{"first"};
    for (int i = 0; i < 100; ++i) {
        names.push_back("a name that has memory of its own, with the number " + std::to_string(i));
        snapshot = Make(snapshot, names);
    }
    EXPECT_EQ(NamesIn(snapshot), names);
    std::size_t bytes = 0;
    for (const auto& name : names)
        bytes += name.size();
    // Their texts are not kept for each of them.
    EXPECT_LT(snapshot->GetSize(), 4 * (bytes + names.size() * 48));
}

TEST_F(AnEntrySnapshot, DoesNotJudgeTheTargetsOfOthers)
{
    const auto one = Make(nullptr, {"a", "b"});
    const auto other = Make(Make(nullptr, {"a", "b"}), {});
    EXPECT_THAT(NamesIn(other), IsEmpty());
    for (const auto& target : one->GetTargets())
        EXPECT_TRUE(other->IsThere(target.targetId));
    const UA_NodeId number = UA_NODEID_NUMERIC(0, 85);
    EXPECT_TRUE(other->IsThere(UA_NodePointer_fromNodeId(&number)));
}

} // namespace
} // namespace Host
