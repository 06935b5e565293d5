#include "Client/FileSystem.h"
#include "Jobs.h"
#include "RemoteReader.h"

#include <cstdint>
#include <optional>
#include <span>

namespace Client {

TransferResult FileSystem::DownloadTo(const std::string& remote, const ByteSink& sink,
                                      const TransferOptions& options)
{
    Transfer transfer{*node, options};
    transfer.tally.Find(1, std::nullopt);
    DoStep(transfer, [&] {
        Caller caller = node->MakeCaller(options.cancellation);
        const bool hasBegun = false; // there is no target
        DoFile(transfer, remote, "", hasBegun, [&] {
            if (GetKind(remote, options.cancellation) == Kind::Directory)
                throw FileFailed(MakeReasonFailure(remote, Step::Open, "is a directory"));
            const auto size =
                ReadRemoteFile(caller, remote, 0, transfer.GetReadingJobs(),
                               [&](std::uint64_t position, std::span<const unsigned char> bytes) {
                                   transfer.Pace(bytes.size());
                                   sink(bytes);
                                   transfer.tally.Move(remote, position + bytes.size(),
                                                       std::nullopt, bytes.size());
                               });
            transfer.tally.FinishFile(remote, size);
        });
    });
    return Conclude(transfer, false);
}

} // namespace Client
