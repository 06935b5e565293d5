#include "BlockSource.h"
#include "BlockUpload.h"
#include "Client/FileSystem.h"
#include "Jobs.h"

#include <optional>

namespace Client {

TransferResult FileSystem::UploadFrom(const ByteSource& source, const std::string& remote,
                                      const TransferOptions& options)
{
    Transfer transfer{*node, options};
    transfer.tally.Find(1, std::nullopt);
    DoStep(transfer, [&] {
        Caller caller = node->MakeCaller(options.cancellation);
        const bool hasBegun = true;
        CheckPath(remote);
        DoFile(transfer, remote, remote, hasBegun, [&] {
            StreamSource stream(source);
            BlockUpload upload(transfer, caller, remote, stream, {}, std::nullopt);
            transfer.tally.FinishFile(remote, upload.Run(0));
        });
    });
    return transfer.tally.Take();
}

} // namespace Client
