#include "SmallUploads.h"

#include "LocalFiles.h"
#include "Stamp.h"
#include "UaTimes.h"
#include "UploadNames.h"

#include <fcntl.h>
#include <memory>
#include <utility>

namespace Client {

namespace {

constexpr std::size_t uploadsAtOnce = 128;
constexpr std::size_t bytesAtOnce = std::size_t{8} << 20U;
constexpr std::size_t namesAtOnce = 200;

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
    try {
        while (!waiting.empty() || !sent.empty() || !checking.empty() || !whole.empty())
            RunSome();
        // The parts of those that failed, or are sent in another way.
        std::erase_if(begun, [](const auto* job) { return job->IsInPlace(); });
        DropParts();
    } catch (const ConnectionLostException& lost) {
        EndLost(lost);
    } catch (...) {
        DropParts();
        throw;
    }
}

void SmallUploads::RunSome()
{
    try {
        caller.ThrowIfCancelled();
        SendWaiting();
        TakeSome();
        if (whole.size() >= namesAtOnce || (sent.empty() && checking.empty()))
            NameWhole();
    } catch (const CallsLost&) {
        StartOver();
        caller.Recover();
    }
}

void SmallUploads::SendWaiting()
{
    while (!waiting.empty() && sent.size() < uploadsAtOnce && sentBytes < bytesAtOnce) {
        const UploadFile& job = *waiting.front();
        if (IsProtected(job) && !ready.contains(&job)) {
            MakeSome();
            continue;
        }
        waiting.pop_front();
        if (const auto upload = Start(job)) {
            sentBytes += upload->size;
            sent.push_back(*upload);
        }
    }
}

/// The next parts that not everybody may read are made empty and with their permissions, before
/// their content comes. Many at a time: it takes five round trips.
void SmallUploads::MakeSome()
{
    std::vector<const UploadFile*> jobs;
    for (const auto* const job : waiting) {
        if (jobs.size() == uploadsAtOnce)
            break;
        if (!IsProtected(*job) || ready.contains(job))
            continue;
        begun.insert(job);
        jobs.push_back(job);
    }
    const auto failures = MakeParts(transfer, caller, jobs);
    std::set<const UploadFile*> failed;
    const bool hasBegun = false;
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        if (!failures[i]) {
            ready.insert(jobs[i]);
            continue;
        }
        failed.insert(jobs[i]);
        DoUpload(transfer, *jobs[i], hasBegun, [&] { throw FileFailed(*failures[i]); });
    }
    std::erase_if(waiting, [&](const auto* job) { return failed.contains(job); });
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
        for (const auto& upload : *queue) {
            waiting.push_back(upload.job);
            begun.insert(upload.job);
        }
        queue->clear();
    }
    sentBytes = 0;
    ready.clear(); // the server may have been started anew
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
    DoUpload(transfer, job, hasBegun, [&] {
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
        transfer.Pace(size);
        const FileTime time = IsPast(job.time) && !IsUntold(job.time) ? job.time : marker;
        upload = {
            &job, size, time,
            caller.UploadFile(job.written, std::move(content), ToUaTime(time), MakeFlags(job)),
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
    DoUpload(transfer, *upload.job, hasBegun, [&] {
        CheckAnswer(*upload.upload);
        const auto result = outcome.opened->GetFailure();
        if (result != 0 && transfer.options.replaces && upload.job->IsInPlace()) {
            large.push_back(*upload.job); // where it is deleted first
            return;
        }
        if (result != 0)
            throw FileFailed(MakeRemoteFailure(upload.job->remote, Step::Open, result));
        upload.check = caller.GetDateTime(upload.job->written);
        isOpened = true;
    });
    return isOpened;
}

/// The acknowledgement says only that the file was opened. That its time reads back as sent
/// says that it was written, closed and stamped. A time so close to now would not, nor one that
/// cannot be told, so a file that has one is sent with the marker, and gets its own time when it is
/// known to be whole.
void SmallUploads::CheckFirst()
{
    Upload& upload = checking.front();
    caller.Wait(*upload.check, [&] { return upload.check->outcome.isAnswered.load(); });
    if (upload.check->outcome.isLost)
        throw CallsLost();
    if (!HasTime(*upload.check, upload.time)) {
        Fail(upload);
    } else if (upload.time == upload.job->time) {
        Succeed(upload);
    } else {
        upload.time = upload.job->time;
        caller.SetDateTime(upload.job->written, ToUaTime(upload.time));
        upload.check = caller.GetDateTime(upload.job->written);
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
    LookForReason(transfer, *upload.job, isOpen ? Step::Write : Step::Close);
    begun.erase(upload.job);
    if (!upload.job->IsInPlace())
        caller.Delete({upload.job->written});
    transfer.tally.FailFile(
        upload.job->remote,
        isOpen ? MakeRemoteFailure(upload.job->remote, Step::Write, 2)
               : MakeUnknownFailure(upload.job->remote, Step::Close,
                                    "it was not closed, or its time could not be set"),
        upload.job->IsInPlace() ? upload.job->remote : "");
}

void SmallUploads::Succeed(const Upload& upload)
{
    transfer.tally.Move(upload.job->remote, upload.size, upload.size, upload.size);
    if (!upload.job->IsInPlace()) {
        whole.push_back({upload.job, upload.size});
        return;
    }
    begun.erase(upload.job);
    transfer.tally.FinishFile(upload.job->remote, upload.size);
}

void SmallUploads::NameWhole()
{
    const auto failures = GiveNames(transfer, whole);
    for (std::size_t i = 0; i < whole.size(); ++i) {
        const UploadFile& file = *whole[i].file;
        begun.erase(&file);
        if (failures[i])
            transfer.tally.FailFile(file.remote, *failures[i], file.written);
        else
            transfer.tally.FinishFile(file.remote, whole[i].size);
    }
    whole.clear();
}

/// The connection does not come back.
void SmallUploads::EndLost(const ConnectionLostException& lost)
{
    Failure failure;
    failure.kind = FailureKind::ConnectionLost;
    failure.cause = lost.what();
    const UploadFile* first = !sent.empty() ? sent.front().job : nullptr;
    if (first == nullptr && !checking.empty())
        first = checking.front().job;
    if (first == nullptr && !whole.empty())
        first = whole.front().file;
    if (first == nullptr && !waiting.empty())
        first = waiting.front();
    transfer.isOver = true;
    transfer.tally.SetConnectionLost();
    if (first != nullptr)
        failure.path = first->remote;
    transfer.tally.AddFailure(std::move(failure));
    DropParts();
}

/// Deletes what has not got its name, as far as there is time, and names what is left.
void SmallUploads::DropParts()
{
    for (const auto* const queue : {&sent, &checking})
        for (const auto& upload : *queue)
            begun.insert(upload.job);
    for (const auto& written : whole)
        begun.insert(written.file);
    std::vector<std::string> parts;
    std::vector<std::string> all;
    for (const auto* const job : std::exchange(begun, {})) {
        if (job->IsInPlace())
            transfer.tally.AddUnfinished(job->remote);
        else
            parts.push_back(job->written);
        if (IsProtected(*job))
            all.push_back(GetClosedName(*job));
    }
    all.insert(all.end(), parts.begin(), parts.end());
    if (!caller.DeleteAnyway(all))
        for (const auto& part : parts)
            transfer.tally.AddUnfinished(part);
}

} // namespace Client
