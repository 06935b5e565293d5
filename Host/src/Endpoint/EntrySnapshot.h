#pragma once

#include <open62541/plugin/nodestore.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Host {

/// One entry of a listing, as nodes name it.
struct ListedEntry
{
    std::string id;               ///< the text of its identifier
    UA_UInt32 browseNameHash = 0; ///< by UA_QualifiedName_hash; clients find it by this
};

/// The entries of a node at one time, in the form in which the library browses them. Immutable; any
/// thread.
///
/// A client that browses page by page is at the entry that it got last, and the library looks for
/// that entry in the next snapshot: if it is not there, the client gets an empty last page and no
/// error. So a snapshot keeps the order of the one before, keeps the places of entries that are
/// gone for a while, and has new entries at its end.
class EntrySnapshot
{
public:
    using Clock = std::chrono::steady_clock;

    /// The time for which entries that are gone keep their places: a client that waits longer
    /// between two pages may lose its place.
    static constexpr std::chrono::minutes placeTime{10};
    /// And their number at most; the oldest lose their places first.
    static constexpr std::size_t mostPlaces = 200'000;

    /// Makes the one that follows `before`, which may be null. An entry that was gone is at its old
    /// place again. Of entries with the same identifier, the first counts.
    [[nodiscard]] static std::shared_ptr<const EntrySnapshot>
    Make(const EntrySnapshot* before, const std::vector<ListedEntry>& entries,
         UA_UInt16 namespaceIndex, Clock::time_point now);

    /// The entries and the places of those that are gone.
    [[nodiscard]] const std::vector<UA_ReferenceTarget>& GetTargets() const noexcept
    {
        return targets;
    }

    /// The number of entries that are there.
    [[nodiscard]] std::size_t Count() const noexcept { return targets.size() - goneCount; }

    /// Returns false for a target of this snapshot that is gone; true for any other.
    [[nodiscard]] bool IsThere(UA_NodePointer target) const noexcept;

    /// The memory that it takes, in bytes.
    [[nodiscard]] std::size_t GetSize() const noexcept;

private:
    class Maker;

    EntrySnapshot() = default;

    std::vector<UA_NodeId> ids; // the targets point to them; their texts are in `texts`
    std::vector<UA_ReferenceTarget> targets;
    std::vector<Clock::time_point> goneSince; ///< `max`: it is there
    std::size_t goneCount = 0;
    /// The texts of this one's own entries, and those of snapshots before that it still names.
    std::vector<std::shared_ptr<const std::string>> texts;
};

} // namespace Host
