#include "DownloadResume.h"

#include "RemoteReader.h"

#include <algorithm>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Client {

namespace {

constexpr std::size_t digestBlock = std::size_t{256} << 10U;

/// Tells the transfer of what is there.
bool IsPartTheSame(const TransferRecord& record, const DownloadFile& job, const PartFile& part,
                   ResumableTransfer& resumable)
{
    PrefixDigest digest;
    std::vector<unsigned char> buffer(digestBlock);
    for (std::uint64_t position = 0; position < record.length;) {
        const auto wanted = std::min<std::uint64_t>(buffer.size(), record.length - position);
        const auto bytes = std::span(buffer).first(
            ReadAt(part.GetDescriptor(), job.local, std::span(buffer).first(wanted), position));
        if (bytes.empty())
            return false;
        digest.Add(position, bytes);
        position += bytes.size();
    }
    if (digest.Get() != record.digest)
        return false;
    resumable.CarryOn(std::move(digest));
    return true;
}

std::vector<unsigned char> ReadTail(Caller& caller, const std::string& remote,
                                    std::uint64_t position, std::uint64_t length)
{
    OpenedFiles opened(caller);
    const auto open = caller.Open(remote, openForReading);
    opened.Add(open);
    const auto barrier = caller.Barrier();
    caller.AwaitAnswer(open);
    caller.AwaitEvent(barrier);
    const auto handle = open->outcome.opened->GetNumber();
    caller.SetPosition(handle, position);
    const auto read = caller.Read(handle, static_cast<std::uint32_t>(length));
    caller.AwaitAnswer(caller.Close(handle));
    caller.AwaitAnswer(read);
    opened.Release();
    const auto bytes = read->outcome.GetBytes();
    return {bytes.begin(), bytes.end()};
}

bool IsTailTheSame(Caller& caller, const DownloadFile& job, const PartFile& part,
                   std::uint64_t size)
{
    const std::uint64_t tail = std::min<std::uint64_t>(size, readSize);
    std::vector<unsigned char> local(tail);
    ReadAt(part.GetDescriptor(), job.local, local, size - tail);
    return local == caller.Repeat([&] { return ReadTail(caller, job.remote, size - tail, tail); });
}

} // namespace

std::uint64_t FindDownloadStart(Caller& caller, const DownloadFile& job, PartFile& part,
                                ResumableTransfer& resumable)
{
    const auto record = resumable.FindEarlier();
    const std::uint64_t size = record ? record->length : 0;
    if (size > 0 && size <= part.GetSize() && IsPartTheSame(*record, job, part, resumable) &&
        IsTailTheSame(caller, job, part, size)) {
        part.Truncate(size);
        return size;
    }
    part.Truncate(0);
    return 0;
}

} // namespace Client
