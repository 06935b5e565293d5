#include "Endpoint/EntrySnapshot.h"

#include "Endpoint/Ua.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace Host {
namespace {

constexpr auto isThere = EntrySnapshot::Clock::time_point::max();

/// With more texts of snapshots before, all of them are copied into one.
constexpr std::size_t mostTexts = 16;

} // namespace

/// Makes a snapshot of the one before and of new entries.
class EntrySnapshot::Maker
{
public:
    Maker(const EntrySnapshot* before, const std::vector<ListedEntry>& entries,
          UA_UInt16 namespaceIndex, Clock::time_point now)
        : before(before)
        , entries(entries)
        , namespaceIndex(namespaceIndex)
        , now(now)
        , isListed(entries.size())
        , copiesTexts(before != nullptr && before->texts.size() >= mostTexts)
    {
        listed.reserve(entries.size());
        for (std::size_t i = 0; i < entries.size(); ++i)
            if (!listed.emplace(entries[i].id, i).second)
                isListed[i] = true; // a second one of the same identifier
    }

    [[nodiscard]] std::shared_ptr<const EntrySnapshot> Make()
    {
        Reserve();
        if (before != nullptr)
            KeepOrder();
        if (!copiesTexts)
            ReserveText(); // for the new ones alone
        for (std::size_t i = 0; i < entries.size(); ++i)
            if (!isListed[i])
                Append(Copy(entries[i].id), entries[i].browseNameHash, isThere);
        if (!text->empty())
            made->texts.push_back(text);
        // Now that nothing moves any more.
        for (std::size_t i = 0; i < made->ids.size(); ++i)
            made->targets[i].targetId = UA_NodePointer_fromNodeId(&made->ids[i]);
        return made;
    }

private:
    void Reserve()
    {
        const std::size_t count = entries.size() + (before == nullptr ? 0 : before->ids.size());
        if (before != nullptr && !copiesTexts)
            made->texts = before->texts;
        made->ids.reserve(count);
        made->targets.reserve(count);
        made->goneSince.reserve(count);
        if (copiesTexts)
            ReserveText();
    }

    /// Once, since the bytes must stay where they are.
    void ReserveText()
    {
        std::size_t bytes = 0;
        for (std::size_t i = 0; i < entries.size(); ++i)
            bytes += isListed[i] ? 0 : entries[i].id.size();
        if (copiesTexts)
            for (const auto& id : before->ids)
                bytes += id.identifier.string.length;
        text->reserve(bytes);
    }

    void KeepOrder()
    {
        const auto oldest = FindOldestToKeep();
        for (std::size_t i = 0; i < before->ids.size(); ++i) {
            const std::string_view id = OpcUa::BytesOf(before->ids[i].identifier.string);
            const auto found = listed.find(id);
            const auto since = before->goneSince[i] == isThere ? now : before->goneSince[i];
            if (found != listed.end()) {
                isListed[found->second] = true;
                Append(Keep(id), entries[found->second].browseNameHash, isThere);
            } else if (since >= oldest) {
                Append(Keep(id), 0, since);
            }
        }
    }

    /// Returns the time since which an entry may have been gone to keep its place.
    [[nodiscard]] Clock::time_point FindOldestToKeep() const
    {
        const auto oldest = now - placeTime;
        if (before->goneCount < mostPlaces)
            return oldest;
        std::vector<Clock::time_point> times;
        for (const auto& since : before->goneSince)
            if (since != isThere)
                times.push_back(since);
        // Half of them: this does not have to be done each time then.
        const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
        std::nth_element(times.begin(), middle, times.end());
        return std::max(oldest, *middle);
    }

    [[nodiscard]] std::string_view Copy(std::string_view id)
    {
        const std::size_t begin = text->size();
        text->append(id);
        return std::string_view(*text).substr(begin);
    }

    [[nodiscard]] std::string_view Keep(std::string_view id) { return copiesTexts ? Copy(id) : id; }

    void Append(std::string_view id, UA_UInt32 browseNameHash, Clock::time_point since)
    {
        UA_NodeId node{namespaceIndex, UA_NODEIDTYPE_STRING, {}};
        node.identifier.string = OpcUa::ViewOf(id);
        made->ids.push_back(node);
        made->targets.push_back({{}, browseNameHash});
        made->goneSince.push_back(since);
        if (since != isThere)
            ++made->goneCount;
    }

    const EntrySnapshot* const before;
    const std::vector<ListedEntry>& entries;
    const UA_UInt16 namespaceIndex;
    const Clock::time_point now;
    std::unordered_map<std::string_view, std::size_t> listed; // entries by identifier
    std::vector<bool> isListed;                               // has its place already
    const bool copiesTexts;
    const std::shared_ptr<EntrySnapshot> made{new EntrySnapshot};
    const std::shared_ptr<std::string> text = std::make_shared<std::string>();
};

std::shared_ptr<const EntrySnapshot> EntrySnapshot::Make(const EntrySnapshot* before,
                                                         const std::vector<ListedEntry>& entries,
                                                         UA_UInt16 namespaceIndex,
                                                         Clock::time_point now)
{
    return Maker(before, entries, namespaceIndex, now).Make();
}

bool EntrySnapshot::IsThere(UA_NodePointer target) const noexcept
{
    if (ids.empty())
        return true;
    // One of ours is a pointer into the list, with a mark in its lowest bits.
    const auto first = UA_NodePointer_fromNodeId(ids.data()).immediate;
    const auto distance = target.immediate - first;
    if (target.immediate < first || distance % sizeof(UA_NodeId) != 0)
        return true;
    const auto index = distance / sizeof(UA_NodeId);
    return index >= ids.size() || goneSince[index] == isThere;
}

std::size_t EntrySnapshot::GetSize() const noexcept
{
    std::size_t bytes =
        sizeof(EntrySnapshot) + ids.capacity() * (sizeof(UA_NodeId) + sizeof(UA_ReferenceTarget) +
                                                  sizeof(Clock::time_point));
    for (const auto& each : texts)
        bytes += each->capacity();
    return bytes;
}

} // namespace Host
