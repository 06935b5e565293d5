#pragma once

#include "Endpoint/EntrySnapshot.h"
#include "Endpoint/LookUps.h"
#include "Endpoint/Namespaces.h"
#include "Endpoint/NodeSource.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

namespace Host {

/// The entries below provided nodes. Asks for them each time that somebody browses, and keeps the
/// answers for clients that browse page by page. Loop thread.
class EntryListings
{
public:
    /// All must outlive it.
    EntryListings(LookUps& lookUps, const Namespaces& namespaces) noexcept;
    EntryListings(const EntryListings&) = delete;
    EntryListings& operator=(const EntryListings&) = delete;
    ~EntryListings();

    struct Answer
    {
        /// Bad_NodeIdUnknown if there is no such node, Bad_ResourceUnavailable if the provider does
        /// not answer and nobody has asked before, or the status with which it refuses.
        UA_StatusCode status = UA_STATUSCODE_GOOD;
        /// As they are now, or as they were if the provider does not answer; null: there are none.
        std::shared_ptr<const EntrySnapshot> entries;
    };

    [[nodiscard]] Answer Get(const NodeSource& source, const std::string& key, unsigned int lane);

    /// Forgets answers that nobody has used for long, and the longest unused beyond a bound. Call
    /// it now and then.
    void DropOld();

private:
    class Listing;
    struct Kept;
    struct Pending;
    using Id = std::pair<std::size_t, std::string>; // source and key
    using Order = std::list<Id>;

    [[nodiscard]] Kept* Find(const Id& id);
    [[nodiscard]] Answer Take(const Listing& listing);
    void Keep(const Listing& listing);
    void Adopt(const LookUps::Lane& lane);

    LookUps& lookUps;
    const Namespaces& namespaces;
    std::map<Id, Kept> kept;
    Order order; // of use: the longest unused first
    std::size_t bytes = 0;
    std::map<LookUps::Lane, Pending> pending; // given up, and at work
};

} // namespace Host
