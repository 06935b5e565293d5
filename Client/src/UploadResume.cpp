#include "UploadResume.h"

#include "LocalFiles.h"
#include "RemoteReader.h"
#include "Sizes.h"

#include <algorithm>
#include <span>
#include <vector>

namespace Client {

namespace {

constexpr std::size_t blockSize = std::size_t{256} << 10U;

/// Ends the reading of a remote file.
struct Differs
{};

/// Returns true when the local file begins with what the record is of. Tells the transfer of the
/// first bytes of it.
bool IsSourceTheSame(const TransferRecord& record, int file, const std::string& local,
                     std::uint64_t told, ResumableTransfer& transfer)
{
    PrefixDigest digest;
    std::vector<unsigned char> buffer(blockSize);
    while (digest.GetLength() < record.length) {
        const auto position = digest.GetLength();
        const auto wanted = std::min<std::uint64_t>(buffer.size(), record.length - position);
        const auto count = ReadAt(file, local, std::span(buffer).first(wanted), position);
        if (count == 0)
            return false;
        digest.Add(position, std::span(buffer).first(count));
        if (position < told)
            transfer.Add(position,
                         std::span(buffer).first(std::min<std::uint64_t>(count, told - position)));
    }
    return digest.Get() == record.digest;
}

/// Compares a remote file from a position on with the local one.
bool IsTargetTheSame(Caller& caller, const std::string& remote, std::uint64_t from, int file,
                     const std::string& local)
{
    std::vector<unsigned char> buffer(readSize);
    const auto compare = [&](std::uint64_t position, std::span<const unsigned char> bytes) {
        const auto expected = std::span(buffer).first(bytes.size());
        if (ReadAt(file, local, expected, position) != bytes.size() ||
            !std::equal(bytes.begin(), bytes.end(), expected.begin()))
            throw Differs();
    };
    try {
        ReadRemoteFile(caller, remote, from, 1, compare);
        return true;
    } catch (const Differs&) {
        return false;
    }
}

std::int64_t AskTime(Caller& caller, const std::string& remote)
{
    return caller.Repeat([&] {
        const auto call = caller.GetDateTime(remote);
        caller.AwaitAnswer(call);
        return call->outcome.time.value_or(0);
    });
}

} // namespace

std::uint64_t FindUploadStart(Caller& caller, const std::string& remote, int file,
                              const std::string& local, ResumableTransfer& transfer)
{
    const auto record = transfer.FindEarlier();
    if (!record)
        return 0;
    const auto found = FindSizes(caller, std::span(&remote, 1)).front();
    if (!found || *found == 0 || *found > record->length)
        return 0;
    if (record->targetSize &&
        (record->targetSize != found || record->targetTime != AskTime(caller, remote)))
        return 0; // somebody else has written it
    // After a lost connection nobody knows the target's state: all of it is compared.
    const std::uint64_t from =
        record->targetSize ? *found - std::min<std::uint64_t>(*found, readSize) : 0;
    const bool isPrefix = IsSourceTheSame(*record, file, local, *found, transfer) &&
                          IsTargetTheSame(caller, remote, from, file, local);
    return isPrefix ? *found : 0;
}

} // namespace Client
