#pragma once

#include "Waiter.h"

#include <Support/Mutex.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>

namespace Client {

class HandleTable;

/// A file that a call opened: its acknowledgement. Any thread.
class RemoteHandle
{
public:
    RemoteHandle(std::shared_ptr<HandleTable> table, std::uint32_t number,
                 std::shared_ptr<Waiter> waiter) noexcept
        : table(std::move(table))
        , number(number)
        , waiter(std::move(waiter))
    {}
    RemoteHandle(const RemoteHandle&) = delete;
    RemoteHandle& operator=(const RemoteHandle&) = delete;
    ~RemoteHandle();

    [[nodiscard]] std::uint32_t GetNumber() const noexcept { return number; }
    [[nodiscard]] bool IsAcknowledged() const noexcept { return isAcknowledged; }
    /// Returns the result of the first acknowledgement; 0 when there was none, or it was success.
    [[nodiscard]] std::uint32_t GetFailure() const noexcept
    {
        return isAcknowledged ? result.load() : 0;
    }
    void Acknowledge(std::uint32_t given) noexcept
    {
        if (!isAcknowledged)
            result = given;
        isAcknowledged = true;
        waiter->Notify();
    }

    /// Returns true if the connection was lost since it was opened: an acknowledgement may never
    /// come.
    [[nodiscard]] bool IsLost() const noexcept { return isLost; }
    void Lose() noexcept
    {
        isLost = true;
        waiter->Notify();
    }

private:
    const std::shared_ptr<HandleTable> table;
    const std::uint32_t number;
    const std::shared_ptr<Waiter> waiter;
    std::atomic<std::uint32_t> result{0}; // set before the flag
    std::atomic<bool> isAcknowledged{false};
    std::atomic<bool> isLost{false};
};

/// The files that are open on one node, by their handles. Any thread.
class HandleTable : public std::enable_shared_from_this<HandleTable>
{
public:
    /// Adds the handle of an answer. Takes the acknowledgement that came before it.
    std::shared_ptr<RemoteHandle> Add(std::uint32_t number, std::shared_ptr<Waiter> waiter)
        EXCLUDES(mutex);
    void Remove(std::uint32_t number) noexcept EXCLUDES(mutex);
    void Acknowledge(std::uint32_t number, std::uint32_t result) EXCLUDES(mutex);
    /// A call that opens is sent: acknowledgements may come before its answer.
    void BeginOpening() EXCLUDES(mutex);
    /// The call is answered. Follows `Add` when there is a handle.
    void EndOpening() EXCLUDES(mutex);
    /// Acknowledgements that were on their way may never come.
    void Lose() EXCLUDES(mutex);

private:
    Support::Mutex mutex;
    std::unordered_map<std::uint32_t, std::weak_ptr<RemoteHandle>> handles GUARDED_BY(mutex);
    /// Calls that are not answered.
    std::size_t opening GUARDED_BY(mutex) = 0;
    /// Results whose handles are yet to come.
    std::unordered_map<std::uint32_t, std::uint32_t> early GUARDED_BY(mutex);
};

} // namespace Client
