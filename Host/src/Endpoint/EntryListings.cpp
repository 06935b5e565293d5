#include "Endpoint/EntryListings.h"

#include "Core/Exception.h"
#include "Endpoint/NodeKeys.h"
#include "Log/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

namespace Host {
namespace {

using Clock = EntrySnapshot::Clock;

/// For all snapshots: those of some 800 000 entries. The longest unused go first.
constexpr std::size_t mostBytes = 64'000'000;

/// In one listing; clients do not see the rest.
constexpr std::size_t mostEntries = 1'000'000;

bool SaysMissing(UA_StatusCode status)
{
    return status == UA_STATUSCODE_BADNODEIDUNKNOWN || status == UA_STATUSCODE_BADNOTFOUND;
}

} // namespace

/// One listing. It owns what it uses, since it may go on after it was given up.
class EntryListings::Listing final : public Core::IEntryList
{
public:
    Listing(const NodeSource& source, std::string key, const Namespaces& namespaces,
            const Kept* before);

    /// On the lane's thread.
    void Run(const LookUps::Sign& onSign);

    bool IsNeeded(std::uint64_t number) override
    {
        sign();
        version = number;
        isUnchanged = before != nullptr && versionBefore == version;
        return !isUnchanged;
    }

    void Append(std::vector<std::string> keys) override;

    const Id id;

    // Valid once it is done.
    UA_StatusCode status = UA_STATUSCODE_GOOD;
    std::optional<std::uint64_t> version;
    std::shared_ptr<const EntrySnapshot> result;

private:
    void Add(const std::string& entry);

    const std::shared_ptr<Core::INodeProvider> provider;
    const UA_UInt16 uaNamespace;
    const Namespaces& namespaces;
    const std::shared_ptr<const EntrySnapshot> before;
    const std::optional<std::uint64_t> versionBefore;
    LookUps::Sign sign;
    bool isUnchanged = false;
    std::vector<ListedEntry> entries;
};

struct EntryListings::Kept
{
    std::shared_ptr<const EntrySnapshot> entries;
    std::optional<std::uint64_t> version;
    std::size_t size = 0;
    Clock::time_point lastUse = Clock::now();
    Order::iterator place;
};

struct EntryListings::Pending
{
    std::shared_ptr<LookUps::Ticket> ticket;
    std::shared_ptr<Listing> listing;
};

EntryListings::Listing::Listing(const NodeSource& source, std::string key,
                                const Namespaces& namespaces, const Kept* before)
    : id(source.number, std::move(key))
    , provider(source.provider)
    , uaNamespace(source.uaNamespace)
    , namespaces(namespaces)
    , before(before == nullptr ? nullptr : before->entries)
    , versionBefore(before == nullptr ? std::nullopt : before->version)
{}

void EntryListings::Listing::Run(const LookUps::Sign& onSign)
{
    sign = onSign;
    try {
        provider->List(id.second, *this);
        result = isUnchanged
                     ? before
                     : EntrySnapshot::Make(before.get(), entries, uaNamespace, Clock::now());
    } catch (const Core::StatusException& exception) {
        status = exception.GetStatus();
    } catch (const std::exception& exception) {
        status = UA_STATUSCODE_BADINTERNALERROR;
        Log(Core::LogLevel::Error, "Host",
            fmt::format("Cannot list the nodes below {}: {}", id.second, exception.what()));
    }
    entries = {};
}

void EntryListings::Listing::Append(std::vector<std::string> keys)
{
    sign();
    for (const auto& entry : keys)
        Add(entry);
}

void EntryListings::Listing::Add(const std::string& entry)
{
    if (entries.size() >= mostEntries)
        return;
    auto text = ToIdentifier(entry);
    const auto node = provider->Describe(entry);
    if (!text || !node)
        return;
    const std::string name = EscapeToUtf8(node->browseName.GetName());
    const UA_QualifiedName browseName{namespaces.ToUa(node->browseName.GetNamespaceIndex()),
                                      ViewOf(name)};
    entries.push_back({std::move(*text), UA_QualifiedName_hash(&browseName)});
}

EntryListings::EntryListings(LookUps& lookUps, const Namespaces& namespaces) noexcept
    : lookUps(lookUps)
    , namespaces(namespaces)
{}

EntryListings::~EntryListings() = default;

EntryListings::Answer EntryListings::Get(const NodeSource& source, const std::string& key,
                                         unsigned int lane)
{
    const LookUps::Lane place{source.number, lane};
    DropOld();
    Adopt(place);
    Kept* known = Find({source.number, key});
    const Answer stale = known == nullptr ? Answer{UA_STATUSCODE_BADRESOURCEUNAVAILABLE, nullptr}
                                          : Answer{UA_STATUSCODE_GOOD, known->entries};
    Pending mine;
    const auto found = pending.find(place);
    if (found != pending.end() && found->second.listing->id.second == key) {
        mine = found->second;
    } else {
        mine.listing = std::make_shared<Listing>(source, key, namespaces, known);
        mine.ticket = lookUps.Begin(
            place, [listing = mine.listing](const LookUps::Sign& sign) { listing->Run(sign); });
    }
    if (mine.ticket == nullptr)
        return stale;
    const auto patience = known == nullptr ? LookUps::Patience::Ordinary : LookUps::Patience::Short;
    if (lookUps.Wait(mine.ticket, patience)) {
        Adopt(place); // the one that ran before it, or itself
        return Take(*mine.listing);
    }
    if (!LookUps::IsOver(*mine.ticket)) {
        Adopt(place);
        pending.insert_or_assign(place, mine);
    }
    return stale;
}

EntryListings::Kept* EntryListings::Find(const Id& id)
{
    const auto found = kept.find(id);
    if (found == kept.end())
        return nullptr;
    found->second.lastUse = Clock::now();
    order.splice(order.end(), order, found->second.place);
    return &found->second;
}

EntryListings::Answer EntryListings::Take(const Listing& listing)
{
    if (listing.status == UA_STATUSCODE_GOOD) {
        Keep(listing);
        return {UA_STATUSCODE_GOOD, listing.result};
    }
    if (SaysMissing(listing.status))
        return {UA_STATUSCODE_BADNODEIDUNKNOWN, nullptr};
    if (const Kept* known = Find(listing.id))
        return {UA_STATUSCODE_GOOD, known->entries};
    return {listing.status, nullptr};
}

void EntryListings::Keep(const Listing& listing)
{
    Kept* known = Find(listing.id);
    if (known == nullptr) {
        if (listing.result->GetTargets().empty())
            return; // most nodes have no entries
        known = &kept[listing.id];
        known->place = order.insert(order.end(), listing.id);
    }
    bytes -= known->size;
    known->entries = listing.result;
    known->version = listing.version;
    known->size = listing.result->GetSize() + listing.id.second.size();
    bytes += known->size;
}

/// Keeps what a listing of the lane has found that was given up and is done now.
void EntryListings::Adopt(const LookUps::Lane& lane)
{
    const auto found = pending.find(lane);
    if (found == pending.end() || !LookUps::IsOver(*found->second.ticket))
        return;
    if (found->second.listing->status == UA_STATUSCODE_GOOD)
        Keep(*found->second.listing);
    pending.erase(found);
}

void EntryListings::DropOld()
{
    const auto oldest = Clock::now() - EntrySnapshot::placeTime;
    while (!order.empty()) {
        const auto first = kept.find(order.front());
        if (bytes <= mostBytes && first->second.lastUse >= oldest)
            return;
        bytes -= first->second.size;
        kept.erase(first);
        order.pop_front();
    }
}

} // namespace Host
