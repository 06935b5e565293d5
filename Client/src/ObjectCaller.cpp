#include "ObjectCaller.h"

#include "StatusWords.h"
#include "Tally.h"
#include "UaTimes.h"

#include <algorithm>
#include <deque>
#include <iterator>
#include <optional>
#include <utility>

namespace Client {

namespace {

constexpr std::size_t callsAtOnce = 16;
/// In one call: as many as the server takes, and as much as fits into a message of any server.
constexpr std::size_t pathsAtOnce = 1'000;
constexpr std::size_t bytesAtOnce = std::size_t{256} << 10U;
constexpr std::uint32_t allThatFit = 0;

constexpr unsigned int readableBit = 1;
constexpr unsigned int writableBit = 2;
constexpr unsigned int readOnlyFolderBit = 4;

enum class WireKind : UA_Byte
{
    Missing = 0,
    File = 1,
    Directory = 2,
    Special = 3, ///< in a listing, all else that is there
};

constexpr unsigned int linkBit = 16; // of a kind in a listing

/// A part of a list that goes into one call.
struct Part
{
    std::size_t start;
    std::size_t count;
};

/// Divides a list by the number of elements and by their bytes.
template <typename Element, typename Measure>
std::vector<Part> Divide(std::span<const Element> all, const Measure& measure)
{
    std::vector<Part> parts;
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < all.size(); ++i) {
        bytes += measure(all[i]);
        if (parts.empty() || parts.back().count == pathsAtOnce || bytes > bytesAtOnce) {
            parts.push_back({i, 0});
            bytes = measure(all[i]);
        }
        ++parts.back().count;
    }
    return parts;
}

std::vector<Part> Divide(std::span<const std::string> paths)
{
    return Divide(paths, [](const std::string& path) { return path.size(); });
}

/// Throws CallRefusedException unless the status is good.
void RequireGood(const ObjectCall& call)
{
    if (call.GetStatus() == UA_STATUSCODE_GOOD)
        return;
    const std::string status = DescribeStatus(call.GetStatus());
    throw CallRefusedException("the server refused " + call.Describe() + ": " +
                                   (call.GetReason().empty() ? status : call.GetReason()),
                               call.GetStatus());
}

/// Throws OperationFailedException with the server's reason, CallRefusedException where it gives
/// none.
void RequireDone(const ObjectCall& call, const std::string& path, const std::string& verb)
{
    if (call.GetStatus() != UA_STATUSCODE_GOOD && !call.GetReason().empty())
        FailRemotely(path, verb, call.GetReason());
    RequireGood(call);
}

[[noreturn]] void ThrowUnexpected(const ObjectCall& call)
{
    throw CallRefusedException("the server gave an unexpected answer to " + call.Describe(),
                               UA_STATUSCODE_BADUNEXPECTEDERROR);
}

/// Returns an output that has one element for each of so many.
template <typename T>
std::span<const T> GetArray(const ObjectCall& call, std::size_t index, std::size_t type,
                            std::size_t count)
{
    const auto array = call.GetArray<T>(index, type);
    if (array.size() != count)
        ThrowUnexpected(call);
    return array;
}

FileTime ToTime(UA_DateTime time)
{
    return ToFileTime(time).value_or(FileTime{});
}

void TakeStates(const ObjectCall& call, std::span<EntryState> states)
{
    RequireGood(call);
    const std::size_t count = states.size();
    const auto kinds = GetArray<UA_Byte>(call, 0, UA_TYPES_BYTE, count);
    const auto sizes = GetArray<UA_UInt64>(call, 1, UA_TYPES_UINT64, count);
    const auto times = GetArray<UA_DateTime>(call, 2, UA_TYPES_DATETIME, count);
    const auto permissions = GetArray<UA_UInt32>(call, 3, UA_TYPES_UINT32, count);
    const auto access = GetArray<UA_Byte>(call, 4, UA_TYPES_BYTE, count);
    const auto statuses = GetArray<UA_UInt32>(call, 5, UA_TYPES_UINT32, count);
    const auto reasons = GetArray<UA_String>(call, 6, UA_TYPES_STRING, count);
    for (std::size_t i = 0; i < count; ++i) {
        EntryState& state = states[i];
        const auto kind = static_cast<WireKind>(kinds[i]);
        state.isSpecial = kind == WireKind::Special;
        state.kind = kind == WireKind::Directory                 ? Kind::Directory
                     : kind == WireKind::File || state.isSpecial ? Kind::File
                                                                 : Kind::Missing;
        state.size = sizes[i];
        state.time = ToTime(times[i]);
        state.permissions = permissions[i];
        state.isReadable = (access[i] & readableBit) != 0;
        state.isWritable = (access[i] & writableBit) != 0;
        state.isInReadOnlyFolder = (access[i] & readOnlyFolderBit) != 0;
        state.status = statuses[i];
        state.reason = ToBytes(reasons[i]);
    }
}

void TakeResults(const ObjectCall& call, std::span<Result> results)
{
    RequireGood(call);
    const auto statuses = GetArray<UA_UInt32>(call, 0, UA_TYPES_UINT32, results.size());
    const auto reasons = GetArray<UA_String>(call, 1, UA_TYPES_STRING, results.size());
    for (std::size_t i = 0; i < results.size(); ++i)
        results[i] = {statuses[i], ToBytes(reasons[i])};
}

/// Appends the entries, and returns where the next page starts; 0 behind the last one.
std::uint64_t TakePage(const ObjectCall& call, std::vector<DirectoryEntry>& entries)
{
    const auto names = call.GetArray<UA_String>(0, UA_TYPES_STRING);
    const auto kinds = GetArray<UA_Byte>(call, 1, UA_TYPES_BYTE, names.size());
    const auto sizes = GetArray<UA_UInt64>(call, 2, UA_TYPES_UINT64, names.size());
    const auto times = GetArray<UA_DateTime>(call, 3, UA_TYPES_DATETIME, names.size());
    const auto permissions = GetArray<UA_UInt32>(call, 4, UA_TYPES_UINT32, names.size());
    entries.reserve(entries.size() + names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        const auto kind = static_cast<WireKind>(kinds[i] & ~linkBit);
        entries.push_back({.name = ToBytes(names[i]),
                           .isDirectory = kind == WireKind::Directory,
                           .size = sizes[i],
                           .time = ToTime(times[i]),
                           .permissions = permissions[i],
                           .isOther = kind != WireKind::Directory && kind != WireKind::File,
                           .isLink = (kinds[i] & linkBit) != 0});
    }
    return call.GetScalar<UA_UInt64>(5, UA_TYPES_UINT64);
}

std::vector<std::string> GetPaths(std::span<const Renaming> renamings,
                                  std::string Renaming::*member)
{
    std::vector<std::string> paths;
    paths.reserve(renamings.size());
    for (const auto& renaming : renamings)
        paths.push_back(renaming.*member);
    return paths;
}

} // namespace

// Calls

void ObjectCaller::RequireOffer() const
{
    if (!engine.OffersObjects())
        throw CallRefusedException("the server has no file objects",
                                   UA_STATUSCODE_BADSERVICEUNSUPPORTED);
}

ObjectCallPointer ObjectCaller::MakeCall(ObjectMethod method, const std::string& path) const
{
    RequireOffer();
    return std::make_shared<ObjectCall>(method, path, waiter);
}

void ObjectCaller::Await(const ObjectCall& call) const
{
    waiter->Wait([&] { return call.IsAnswered(); }, cancellation);
}

ObjectCallPointer ObjectCaller::AwaitOrRepeat(ObjectCallPointer call, After after,
                                              const std::function<ObjectCallPointer()>& make)
{
    for (;;) {
        Await(*call);
        if (!call->IsLost())
            return call;
        if (call->IsOverdue())
            throw ConnectionLostException(DescribeOverdue(*call, engine.GetOptions().answerTime));
        if (engine.IsDead())
            throw ConnectionLostException(engine.GetLossReason());
        if (after == After::Throw)
            throw CallsLost();
        call = make();
        Post(call);
    }
}

ObjectCallPointer ObjectCaller::RunOne(After after, const std::function<ObjectCallPointer()>& make)
{
    const auto call = make();
    Post(call);
    return AwaitOrRepeat(call, after, make);
}

void ObjectCaller::RunAll(std::size_t count, After after, const Make& make, const Take& take)
{
    std::deque<ObjectCallPointer> pending;
    std::size_t next = 0;
    for (std::size_t done = 0; done < count; ++done) {
        while (next < count && pending.size() < callsAtOnce) {
            pending.push_back(make(next++));
            Post(pending.back());
        }
        const auto first = std::move(pending.front());
        pending.pop_front();
        take(done, AwaitOrRepeat(first, after, [&] { return make(done); }));
    }
}

// Operations

std::vector<EntryState> ObjectCaller::GetStates(std::span<const std::string> paths)
{
    std::vector<EntryState> states(paths.size());
    const auto parts = Divide(paths);
    const auto make = [&](std::size_t number) {
        const auto part = paths.subspan(parts[number].start, parts[number].count);
        auto call = MakeCall(ObjectMethod::GetStates, part.front());
        call->AddPaths(part);
        return call;
    };
    RunAll(parts.size(), After::Repeat, make, [&](std::size_t number, const auto& call) {
        TakeStates(*call, std::span(states).subspan(parts[number].start, parts[number].count));
    });
    return states;
}

ObjectCallPointer ObjectCaller::MakeList(const std::string& directory, std::uint64_t start) const
{
    auto call = MakeCall(ObjectMethod::ListPath, directory);
    call->AddPath(directory);
    call->Add(start);
    call->Add(allThatFit);
    return call;
}

/// Asks for the pages behind the one that has come.
DirectoryListing ObjectCaller::TakeListing(ObjectCallPointer call, const std::string& directory)
{
    DirectoryListing listing;
    for (;;) {
        if (call->GetStatus() != UA_STATUSCODE_GOOD) {
            listing.result = {call->GetStatus(), call->GetReason()};
            return listing;
        }
        const std::uint64_t next = TakePage(*call, listing.entries);
        if (next == 0)
            return listing;
        call = RunOne(After::Repeat, [&] { return MakeList(directory, next); });
    }
}

DirectoryListing ObjectCaller::List(const std::string& directory)
{
    return TakeListing(RunOne(After::Repeat, [&] { return MakeList(directory, 0); }), directory);
}

std::vector<DirectoryListing> ObjectCaller::ListAll(std::span<const std::string> directories)
{
    std::vector<DirectoryListing> listings(directories.size());
    RunAll(
        directories.size(), After::Repeat,
        [&](std::size_t number) { return MakeList(directories[number], 0); },
        [&](std::size_t number, const auto& call) {
            listings[number] = TakeListing(call, directories[number]);
        });
    return listings;
}

std::vector<Result> ObjectCaller::Move(std::span<const Renaming> renamings, bool replaces)
{
    std::vector<Result> results(renamings.size());
    const auto parts = Divide(renamings, [](const Renaming& renaming) {
        return renaming.source.size() + renaming.target.size();
    });
    const auto make = [&](std::size_t number) {
        const auto part = renamings.subspan(parts[number].start, parts[number].count);
        auto call = MakeCall(ObjectMethod::MovePaths, part.front().source);
        call->AddPaths(GetPaths(part, &Renaming::source));
        call->AddPaths(GetPaths(part, &Renaming::target));
        call->Add(replaces);
        return call;
    };
    RunAll(parts.size(), After::Throw, make, [&](std::size_t number, const auto& call) {
        TakeResults(*call, std::span(results).subspan(parts[number].start, parts[number].count));
    });
    return results;
}

void ObjectCaller::Copy(const std::string& source, const std::string& target, bool replaces)
{
    const auto call = RunOne(After::Throw, [&] {
        auto copy = MakeCall(ObjectMethod::CopyPath, source);
        copy->AddPath(source);
        copy->AddPath(target);
        copy->Add(replaces);
        return copy;
    });
    RequireDone(*call, source, "copy to " + target);
}

Space ObjectCaller::GetSpace(const std::string& path)
{
    const auto call = RunOne(After::Repeat, [&] {
        auto question = MakeCall(ObjectMethod::GetPathSpace, path);
        question->AddPath(path);
        return question;
    });
    RequireDone(*call, path, "find the free space");
    return {call->GetScalar<UA_UInt64>(0, UA_TYPES_UINT64),
            call->GetScalar<UA_UInt64>(1, UA_TYPES_UINT64)};
}

Sha256 ObjectCaller::GetChecksum(const std::string& path, std::uint64_t start, std::uint64_t length)
{
    const auto call = RunOne(After::Repeat, [&] {
        auto question = MakeCall(ObjectMethod::GetPathChecksum, path);
        question->AddPath(path);
        question->Add(start);
        question->Add(length);
        return question;
    });
    RequireDone(*call, path, "find the checksum");
    const auto& bytes = call->GetScalar<UA_ByteString>(0, UA_TYPES_BYTESTRING);
    Sha256 checksum{};
    if (bytes.length != checksum.size())
        ThrowUnexpected(*call);
    std::copy_n(bytes.data, checksum.size(), checksum.begin());
    return checksum;
}

std::vector<Result> ObjectCaller::SetPermissions(std::span<const std::string> paths,
                                                 std::span<const std::uint32_t> permissions)
{
    std::vector<Result> results(paths.size());
    const auto parts = Divide(paths);
    const auto make = [&](std::size_t number) {
        const Part& part = parts[number];
        auto call = MakeCall(ObjectMethod::SetPathPermissions, paths[part.start]);
        call->AddPaths(paths.subspan(part.start, part.count));
        call->Add(permissions.subspan(part.start, part.count));
        return call;
    };
    RunAll(parts.size(), After::Repeat, make, [&](std::size_t number, const auto& call) {
        TakeResults(*call, std::span(results).subspan(parts[number].start, parts[number].count));
    });
    return results;
}

} // namespace Client
