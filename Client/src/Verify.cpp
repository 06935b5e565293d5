#include "Verify.h"

#include "LocalFiles.h"
#include "PrivateNode.h"
#include "RemoteReader.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Client {

void CompareContents(Caller& caller, const std::string& remote, int local,
                     const std::string& localName, std::size_t jobs,
                     const std::function<void(std::uint64_t)>& tell)
{
    std::vector<unsigned char> buffer(readSize);
    const auto differ = [&](std::uint64_t position) {
        Failure failure =
            MakeUnknownFailure(remote, Step::Verify,
                               "its content differs from the other side's, from byte " +
                                   std::to_string(position) + " on or later");
        failure.kind = FailureKind::Different;
        throw FileFailed(std::move(failure));
    };
    const auto size = ReadRemoteFile(
        caller, remote, 0, jobs, [&](std::uint64_t position, std::span<const unsigned char> bytes) {
            const auto expected = std::span(buffer).first(bytes.size());
            if (ReadAt(local, localName, expected, position) != bytes.size() ||
                !std::equal(bytes.begin(), bytes.end(), expected.begin()))
                differ(position);
            tell(position + bytes.size());
        });
    if (ReadAt(local, localName, std::span(buffer).first(1), size) != 0)
        differ(size);
}

} // namespace Client
