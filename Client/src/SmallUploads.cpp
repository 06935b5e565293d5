#include "SmallUploads.h"

#include "LocalFiles.h"
#include "Stamp.h"
#include "UaTimes.h"

#include <fcntl.h>
#include <memory>
#include <utility>

namespace Client {

namespace {

constexpr std::size_t uploadsAtOnce = 128;
constexpr std::size_t bytesAtOnce = std::size_t{8} << 20U;

} // namespace

SmallUploads::SmallUploads(Transfer& transfer, Caller& caller, FileTime marker,
                           std::vector<UploadFile>& large) noexcept
    : transfer(transfer)
    , caller(caller)
    , marker(marker)
    , large(large)
{}

void SmallUploads::Run(const std::vector<UploadFile>& files)
{
    for (const auto& file : files)
        waiting.push_back(&file);
    waitingBefore = waiting.size();
    while (!waiting.empty() || !sent.empty() || !checking.empty()) {
        try {
            caller.ThrowIfCancelled();
            SendWaiting();
            TakeSome();
        } catch (const CallsLost&) {
            caller.Recover();
            StartOver();
        } catch (...) {
            for (const auto* const queue : {&sent, &checking})
                for (const auto& upload : *queue)
                    transfer.tally.AddUnfinished(upload.job->remote);
            throw;
        }
    }
}

void SmallUploads::SendWaiting()
{
    while (!waiting.empty() && sent.size() < uploadsAtOnce && sentBytes < bytesAtOnce) {
        const UploadFile& job = *waiting.front();
        waiting.pop_front();
        if (const auto upload = Start(job)) {
            sentBytes += upload->size;
            sent.push_back(*upload);
        }
    }
}

/// Waits for the first of those that are on their way, and takes those that have come.
void SmallUploads::TakeSome()
{
    if (!sent.empty() && checking.size() < uploadsAtOnce) {
        if (AwaitUpload(sent.front()))
            checking.push_back(sent.front());
        sentBytes -= sent.front().size;
        sent.pop_front();
    } else if (!checking.empty()) {
        CheckFirst();
    }
    while (!checking.empty() && checking.front().check->outcome.isAnswered)
        CheckFirst();
}

/// After a loss not even their time would say that they arrived: an earlier file may have it.
void SmallUploads::StartOver()
{
    for (auto* const queue : {&checking, &sent}) {
        for (const auto& upload : *queue)
            waiting.push_back(upload.job);
        queue->clear();
    }
    sentBytes = 0;
    losses = waiting.size() < waitingBefore ? 1 : losses + 1;
    waitingBefore = waiting.size();
    if (losses == mostLosses) // each for itself, so that one cannot hold up all
        for (const auto* const job : std::exchange(waiting, {}))
            large.push_back(*job);
}

/// Returns none when it is not small any more, or cannot be read.
std::optional<SmallUploads::Upload> SmallUploads::Start(const UploadFile& job)
{
    std::optional<Upload> upload;
    const bool hasBegun = false;
    DoFile(transfer, job.remote, job.remote, hasBegun, [&] {
        const Support::Descriptor file(open(job.local.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        if (!file.IsOpen())
            FailLocally(job.local, Step::Open);
        auto content = std::make_shared<std::vector<unsigned char>>(job.size + 1);
        const std::size_t size = ReadAt(file.Get(), job.local, *content, 0);
        if (size > job.size) {
            large.push_back(job); // it grows
            return;
        }
        content->resize(size);
        const FileTime time = IsPast(job.time) ? job.time : marker;
        upload = {&job, size, time,
                  caller.UploadFile(job.remote, std::move(content), ToUaTime(time),
                                    MakePermissions(job.permissions)),
                  nullptr};
    });
    return upload;
}

/// Returns false when it has failed.
bool SmallUploads::AwaitUpload(Upload& upload)
{
    bool isOpened = false;
    const bool hasBegun = true;
    const Outcome& outcome = upload.upload->outcome;
    // Not in DoFile: a lost call is for the caller of this.
    caller.Wait(*upload.upload, [&] {
        return outcome.isAnswered && (outcome.isLost || outcome.opened == nullptr ||
                                      outcome.opened->IsAcknowledged() || outcome.opened->IsLost());
    });
    const bool isHandleLost =
        outcome.opened != nullptr && outcome.opened->IsLost() && !outcome.opened->IsAcknowledged();
    if (outcome.isLost || isHandleLost)
        throw CallsLost();
    DoFile(transfer, upload.job->remote, upload.job->remote, hasBegun, [&] {
        CheckAnswer(*upload.upload);
        if (const auto result = outcome.opened->GetFailure(); result != 0)
            throw FileFailed(MakeRemoteFailure(upload.job->remote, Step::Open, result));
        upload.check = caller.GetDateTime(upload.job->remote);
        isOpened = true;
    });
    return isOpened;
}

/// The acknowledgement says only that the file was opened. That its time reads back as sent
/// says that it was written, closed and stamped. A time so close to now would not, so a file
/// that has one is sent with the marker, and gets its own time when it is known to be whole.
void SmallUploads::CheckFirst()
{
    Upload& upload = checking.front();
    caller.Wait(*upload.check, [&] { return upload.check->outcome.isAnswered.load(); });
    if (upload.check->outcome.isLost)
        throw CallsLost();
    if (GetFileTime(*upload.check) != upload.time) {
        Fail(upload);
    } else if (upload.time == upload.job->time) {
        Succeed(upload);
    } else {
        upload.time = upload.job->time;
        caller.SetDateTime(upload.job->remote, ToUaTime(upload.time));
        upload.check = caller.GetDateTime(upload.job->remote);
        checking.push_back(upload);
    }
    checking.pop_front();
}

void SmallUploads::Fail(const Upload& upload)
{
    const auto handle = upload.upload->outcome.opened->GetNumber();
    const auto position = caller.GetPosition(handle);
    caller.Wait(*position, [&] { return position->outcome.isAnswered.load(); });
    if (position->outcome.isLost)
        throw CallsLost();
    const bool isOpen = position->outcome.position.has_value();
    if (isOpen)
        caller.Close(handle);
    transfer.tally.FailFile(
        upload.job->remote,
        isOpen ? MakeRemoteFailure(upload.job->remote, Step::Write, 2)
               : MakeUnknownFailure(upload.job->remote, Step::Close,
                                    "it was not closed, or its time could not be set"),
        upload.job->remote);
}

void SmallUploads::Succeed(const Upload& upload)
{
    transfer.tally.Move(upload.job->remote, upload.size, upload.size, upload.size);
    transfer.tally.FinishFile(upload.job->remote, upload.size);
}

} // namespace Client
