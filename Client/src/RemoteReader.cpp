#include "RemoteReader.h"

#include "Jobs.h"

#include <algorithm>
#include <deque>
#include <utility>

namespace Client {

namespace {

constexpr std::size_t fewestReads = 8;
constexpr std::size_t mostReads = 64; // of all jobs together; the host holds back more output

/// A remote file that is read from some position to its end.
class RemoteReader
{
public:
    RemoteReader(Caller& caller, const std::string& remote, std::uint64_t start, std::size_t jobs)
        : caller(caller)
        , remote(remote)
        , most(std::max(mostReads / jobs, fewestReads))
        , position(start)
    {}
    RemoteReader(const RemoteReader&) = delete;
    RemoteReader& operator=(const RemoteReader&) = delete;
    ~RemoteReader()
    {
        if (handle)
            caller.CloseAnyway(handle->GetNumber());
    }

    /// Returns the size.
    std::uint64_t Run(const PartSink& sink)
    {
        for (bool isSame = false;;) {
            try {
                if (!isSame)
                    Open();
                Seek();
                ReadAll(sink);
                Close();
                return position;
            } catch (const CallsLost&) {
                pending.clear();
                isSame = caller.Recover() && handle != nullptr;
                if (!isSame)
                    handle.reset(); // the server closed it with the session
                CountLoss();
            }
        }
    }

private:
    void Open()
    {
        handle.reset();
        const auto open = caller.Open(remote, openForReading);
        const auto barrier = caller.Barrier();
        caller.AwaitAnswer(open);
        handle = open->outcome.opened;
        caller.AwaitEvent(barrier);
        if (const auto result = handle->GetFailure(); result != 0) {
            handle.reset();
            throw FileFailed(MakeRemoteFailure(remote, Step::Open, result));
        }
    }

    void CountLoss()
    {
        losses = position > positionBefore ? 1 : losses + 1;
        positionBefore = position;
        if (losses >= mostLosses)
            throw FileFailed(MakeReasonFailure(remote, Step::Read, describeLosses));
    }

    /// After a lost connection reads may have run whose bytes never came.
    void Seek()
    {
        if (position == 0 && !hasRead)
            return;
        caller.SetPosition(handle->GetNumber(), position);
        const auto check = caller.GetPosition(handle->GetNumber());
        caller.AwaitAnswer(check);
        if (check->outcome.position != position)
            throw FileFailed(
                MakeUnknownFailure(remote, Step::Resume, "it cannot be read from there on"));
    }

    void ReadAll(const PartSink& sink)
    {
        std::size_t depth = std::min(most, std::size_t{4});
        for (;;) {
            while (pending.size() < depth)
                pending.push_back(caller.Read(handle->GetNumber(), readSize));
            const auto first = std::move(pending.front());
            pending.pop_front();
            hasRead = true;
            caller.AwaitAnswer(first);
            if (!first->outcome.bytes)
                throw FileFailed(
                    MakeUnknownFailure(remote, Step::Read, "it is no longer open on the server"));
            const auto bytes = first->outcome.GetBytes();
            if (bytes.empty())
                return;
            caller.ThrowIfCancelled();
            sink(position, bytes);
            position += bytes.size();
            depth = std::min(most, depth + 1);
        }
    }

    /// That the position fits says that no part was left out. Failing to close what was only read
    /// loses nothing.
    void Close()
    {
        const auto check = caller.GetPosition(handle->GetNumber());
        caller.Close(handle->GetNumber());
        caller.AwaitAnswer(check);
        handle.reset();
        pending.clear();
        if (check->outcome.position && check->outcome.position != position)
            throw FileFailed(MakeUnknownFailure(remote, Step::Read,
                                                "it ended early (the server gave no reason)"));
    }

    Caller& caller;
    const std::string& remote;
    const std::size_t most;
    std::uint64_t position;
    std::uint64_t positionBefore = 0; // at the loss before
    unsigned int losses = 0;          // in a row, without progress
    bool hasRead = false;
    std::shared_ptr<RemoteHandle> handle;
    std::deque<CallPointer> pending;
};

} // namespace

std::uint64_t ReadRemoteFile(Caller& caller, const std::string& remote, std::uint64_t start,
                             std::size_t jobs, const PartSink& sink)
{
    return RemoteReader(caller, remote, start, jobs).Run(sink);
}

} // namespace Client
