#pragma once

#include "Caller.h"
#include "PrivateNode.h"
#include "RateLimit.h"
#include "Reasons.h"
#include "Tally.h"
#include "TransferRecords.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace Client {

constexpr std::size_t mostJobs = 64;
/// A file that gets no further between so many losses of the connection has failed.
constexpr unsigned int mostLosses = 5;
constexpr const char* describeLosses =
    "the connection was lost again and again without any progress; a message may be larger than "
    "the server or the network between takes";

/// The state that the jobs of one transfer share.
struct Transfer
{
    PrivateNode& node;
    const TransferOptions& options;
    /// Targets that an earlier transfer has finished are left as they are: `resumes`, for what is
    /// not known to differ.
    bool skipsWhole = false;
    Tally tally{options};
    RateLimit rate{options.bytesPerSecond};
    const TransferRecords records{node.GetStateFolder()};
    Reasons reasons{node, options};
    std::atomic<bool> isOver{false}; ///< cancelled, or the connection is gone

    /// Waits until so many bytes may be moved. Throws CancelledException.
    void Pace(std::uint64_t bytes) { rate.Wait(bytes, options.cancellation); }

    /// Returns the jobs that share the reads on their way: with a limit each has few of them.
    [[nodiscard]] std::size_t GetReadingJobs() const noexcept
    {
        return rate.IsLimiting() ? mostJobs : GetJobs();
    }

    [[nodiscard]] std::size_t GetJobs() const noexcept
    {
        return std::clamp<std::size_t>(options.jobs, 1, mostJobs);
    }
};

/// Does one file, and settles what it throws. `target` is unfinished then if `hasBegun`.
template <typename Function>
void DoFile(Transfer& transfer, const std::string& remote, const std::string& target,
            const bool& hasBegun, const Function& function)
{
    const auto fail = [&](FailureKind kind, const std::string& cause, std::uint32_t status) {
        Failure failure;
        failure.path = remote;
        failure.kind = kind;
        failure.cause = cause;
        failure.remoteResult = status;
        transfer.tally.FailFile(remote, std::move(failure), hasBegun ? target : "");
    };
    try {
        function();
    } catch (const FileFailed& failed) {
        const bool isTouched = hasBegun && failed.GetFailure().step != Step::Open;
        transfer.tally.FailFile(remote, failed.GetFailure(), isTouched ? target : "");
    } catch (const CancelledException&) {
        transfer.isOver = true;
        transfer.tally.SetCancelled();
        if (hasBegun)
            transfer.tally.AddUnfinished(target);
    } catch (const ConnectionLostException& lost) {
        transfer.isOver = true;
        transfer.tally.SetConnectionLost();
        fail(FailureKind::ConnectionLost, lost.what(), 0);
    } catch (const CallRefusedException& refused) {
        fail(FailureKind::Refused, refused.what(), refused.GetStatus());
    } catch (const std::bad_alloc&) {
        fail(FailureKind::LocalSystem, "there is no memory for it", 0);
    }
}

/// Returns the result, with the causes of its failures as far as the server tells.
[[nodiscard]] inline TransferResult Conclude(Transfer& transfer, bool isUpload)
{
    TransferResult result = transfer.tally.Take();
    if (!result.isCancelled && !result.isConnectionLost)
        transfer.reasons.Explain(result.failures, isUpload);
    return result;
}

/// Does steps that belong to no single file; the transfer is over when it cannot go on.
template <typename Function>
void DoStep(Transfer& transfer, const Function& function)
{
    const auto end = [&](FailureKind kind, const char* cause) {
        transfer.isOver = true;
        Failure failure;
        failure.kind = kind;
        failure.cause = cause;
        transfer.tally.AddFailure(std::move(failure));
    };
    try {
        function();
    } catch (const CancelledException&) {
        transfer.isOver = true;
        transfer.tally.SetCancelled();
    } catch (const ConnectionLostException& lost) {
        transfer.tally.SetConnectionLost();
        end(FailureKind::ConnectionLost, lost.what());
    } catch (const ClientException& refused) {
        end(FailureKind::Refused, refused.what());
    } catch (const std::bad_alloc&) {
        end(FailureKind::LocalSystem, "there is no memory for it");
    }
}

/// Does each file of a list with one of several threads; the calling one is among them.
template <typename File, typename Function>
void DoAll(Transfer& transfer, const std::vector<File>& files, const Function& function)
{
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        DoStep(transfer, [&] {
            Caller caller = transfer.node.MakeCaller(transfer.options.cancellation);
            for (std::size_t i = next++; i < files.size() && !transfer.isOver; i = next++)
                function(caller, files[i]);
        });
    };
    std::vector<std::thread> threads;
    threads.reserve(mostJobs);
    try {
        for (std::size_t i = 1; i < std::min(transfer.GetJobs(), files.size()); ++i)
            threads.emplace_back(work);
    } catch (const std::exception&) {
        // The system gives no more threads, or no memory for one; those there are do it all.
    }
    work();
    for (auto& thread : threads)
        thread.join();
}

} // namespace Client
