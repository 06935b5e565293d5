#pragma once

#include "Caller.h"
#include "DownloadPlaces.h"

#include <cstddef>
#include <vector>

namespace Client {

/// Fetches small files: each in one read, many at a time. One thread.
class SmallDownloads
{
public:
    /// Files that turn out not to be small are appended to `large`. All must outlive it.
    SmallDownloads(Transfer& transfer, Caller& caller, const DownloadPlaces& places,
                   std::vector<DownloadFile>& large) noexcept;
    SmallDownloads(const SmallDownloads&) = delete;
    SmallDownloads& operator=(const SmallDownloads&) = delete;
    ~SmallDownloads() = default;

    /// Fetches the files of one read each; the others are left in `large`. Throws what Caller's
    /// waiting throws but CallsLost.
    void Run(const std::vector<DownloadFile>& files);

private:
    struct SmallFile
    {
        const DownloadFile* job;
        CallPointer open;
        CallPointer read;
    };
    struct Batch
    {
        explicit Batch(Caller& caller) noexcept
            : opened(caller)
        {}

        std::vector<SmallFile> files;
        CallPointer barrier;
        OpenedFiles opened;
    };

    void OpenBatch(const std::vector<DownloadFile>& files, std::size_t start, Batch& batch);
    [[nodiscard]] bool IsSettled(const DownloadFile& job);
    void ReadBatch(Batch& batch);
    void FinishBatch(Batch& batch);
    void FinishSmall(const DownloadFile& job, const SmallFile& file);

    Transfer& transfer;
    const TransferOptions& options;
    Caller& caller;
    const DownloadPlaces& places;
    std::vector<DownloadFile>& large;
};

} // namespace Client
