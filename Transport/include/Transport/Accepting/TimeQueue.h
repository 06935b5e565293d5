#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <set>
#include <tuple>
#include <unordered_map>

namespace Transport {

/// Shares time among members that want some of it: the one that had least goes first, the one that
/// has waited longest among equals. Nobody saves time up by wanting none. Not synchronised.
template <typename Key>
class TimeQueue
{
public:
    using Time = std::chrono::nanoseconds;

    [[nodiscard]] bool IsEmpty() const noexcept { return waiting.empty(); }

    /// Has a member wait for its turn. One that waits already keeps its place.
    void Enter(const Key& key)
    {
        auto& member = members[key];
        if (member.isWaiting)
            return;
        member = {std::max(member.time, latest), ++entries, true};
        waiting.emplace(member.time, member.entry, key);
    }

    /// REQUIRES: it is not empty.
    Key TakeFirst()
    {
        const auto [time, entry, key] = *waiting.begin();
        waiting.erase(waiting.begin());
        members[key].isWaiting = false;
        latest = time;
        return key;
    }

    /// Counts the time that the member had which was taken last. One that was removed is ignored.
    void Count(const Key& key, Time had)
    {
        if (const auto found = members.find(key); found != members.end())
            found->second.time += had;
    }

    void Remove(const Key& key)
    {
        const auto found = members.find(key);
        if (found == members.end())
            return;
        if (found->second.isWaiting)
            waiting.erase({found->second.time, found->second.entry, key});
        members.erase(found);
    }

private:
    struct Member
    {
        Time time{}; // that it had; at least what the others had when it entered
        std::uint64_t entry = 0;
        bool isWaiting = false;
    };

    std::unordered_map<Key, Member> members;
    std::set<std::tuple<Time, std::uint64_t, Key>> waiting;
    Time latest{}; // of the member that was taken last, before its turn
    std::uint64_t entries = 0;
};

} // namespace Transport
