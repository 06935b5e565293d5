#pragma once

#include "Caller.h"
#include "UploadNames.h"
#include "UploadPlan.h"

#include <cstddef>
#include <deque>
#include <optional>
#include <set>
#include <vector>

namespace Client {

/// Sends small files: each in one call, many at a time. One thread.
class SmallUploads
{
public:
    /// `marker`: a time that no file has by chance. Files that turn out not to be small are
    /// appended to `large`. All must outlive it.
    SmallUploads(Transfer& transfer, Caller& caller, FileTime marker,
                 std::vector<UploadFile>& large) noexcept;
    SmallUploads(const SmallUploads&) = delete;
    SmallUploads& operator=(const SmallUploads&) = delete;
    ~SmallUploads() = default;

    /// Sends the files, which must outlive it. Throws what Caller's waiting throws but CallsLost
    /// and ConnectionLostException, which the tally is told of.
    void Run(const std::vector<UploadFile>& files);

private:
    struct Upload
    {
        const UploadFile* job;
        std::size_t size;
        FileTime time; // that it has to have now: the marker, until that has been seen
        CallPointer upload;
        CallPointer check;
    };

    void RunSome();
    void SendWaiting();
    void MakeSome();
    void TakeSome();
    void StartOver();
    [[nodiscard]] std::optional<Upload> Start(const UploadFile& job);
    [[nodiscard]] bool AwaitUpload(Upload& upload);
    void CheckFirst();
    void Fail(const Upload& upload);
    void Succeed(const Upload& upload);
    void NameWhole();
    void EndLost(const ConnectionLostException& lost);
    void DropParts();

    Transfer& transfer;
    Caller& caller;
    const FileTime marker;
    std::vector<UploadFile>& large;
    std::deque<const UploadFile*> waiting;
    std::deque<Upload> sent;
    std::deque<Upload> checking;
    std::vector<WrittenFile> whole;    // without their names
    std::set<const UploadFile*> begun; // that may be there in part since a loss
    std::set<const UploadFile*> ready; // their parts are there, closed to others
    std::size_t sentBytes = 0;         // of `sent`
    std::size_t waitingBefore = 0;
    unsigned int losses = 0; // in a row, without progress
};

} // namespace Client
