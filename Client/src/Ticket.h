#pragma once

#include "Waiter.h"

#include <open62541/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Client/FileSystem.h"

namespace Client {

class RemoteNode;

/// The methods by their published numbers.
enum class Method : std::uint32_t
{
    Open = 1010,
    Close = 1020,
    UploadFile = 1030,
    OpenWrite = 1040,
    Write = 1050,
    WriteClose = 1060,
    CreateDirectory = 1070,
    Delete = 1080,
    List = 1090,
    Exists = 1100,
    Read = 1110,
    GetDateTime = 1120,
    SetDateTime = 1130,
    GetPosition = 1140,
    SetPosition = 1150,
};

[[nodiscard]] const char* GetName(Method method) noexcept;

/// The files that are open on one node, by their handles.
class HandleTable;

/// A file that was opened, or is to be: its acknowledgements.
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
    [[nodiscard]] bool IsAcknowledged() const noexcept { return acknowledgements > 0; }
    /// How many there were so far.
    [[nodiscard]] std::uint32_t CountAcknowledgements() const noexcept { return acknowledgements; }
    /// Of the first one. REQUIRES: there was one.
    [[nodiscard]] std::uint32_t GetResult() const noexcept { return firstResult; }
    [[nodiscard]] std::uint32_t GetLastResult() const noexcept { return lastResult; }
    /// 0 when there was none, or it was success.
    [[nodiscard]] std::uint32_t GetFailure() const noexcept
    {
        return IsAcknowledged() ? GetResult() : 0;
    }

    /// The connection was lost since it was opened: an acknowledgement may never come.
    [[nodiscard]] bool IsLost() const noexcept { return isLost; }
    void Lose() noexcept
    {
        isLost = true;
        waiter->Notify();
    }

    void Acknowledge(std::uint32_t result) noexcept
    {
        if (acknowledgements == 0)
            firstResult = result;
        lastResult = result;
        ++acknowledgements;
        waiter->Notify();
    }

private:
    const std::shared_ptr<HandleTable> table;
    const std::uint32_t number;
    const std::shared_ptr<Waiter> waiter;
    std::atomic<std::uint32_t> acknowledgements{0};
    std::atomic<std::uint32_t> firstResult{0};
    std::atomic<std::uint32_t> lastResult{0};
    std::atomic<bool> isLost{false};
};

class HandleTable : public std::enable_shared_from_this<HandleTable>
{
public:
    /// For the answer with a handle. Takes the acknowledgement that came before it.
    std::shared_ptr<RemoteHandle> Add(std::uint32_t number, std::shared_ptr<Waiter> waiter);
    void Remove(std::uint32_t number) noexcept;
    void Acknowledge(std::uint32_t number, std::uint32_t result);
    /// A call that opens is sent: acknowledgements may come ahead of its answer.
    void BeginOpening();
    /// It is answered, after `Add` when there is a handle.
    void EndOpening();
    /// Acknowledgements that were on their way may never come.
    void Lose();

private:
    std::mutex mutex;
    std::unordered_map<std::uint32_t, std::weak_ptr<RemoteHandle>> handles;
    std::size_t opening = 0;                                // calls that are not answered
    std::unordered_map<std::uint32_t, std::uint32_t> early; // results whose handles are yet to come
};

/// A byte string that the library allocated.
class UaBytes
{
public:
    UaBytes() noexcept = default;
    explicit UaBytes(UA_ByteString& taken) noexcept
        : bytes(taken)
    {
        UA_ByteString_init(&taken);
    }
    UaBytes(UaBytes&& other) noexcept
        : bytes(std::exchange(other.bytes, UA_BYTESTRING_NULL))
    {}
    UaBytes& operator=(UaBytes&& other) noexcept
    {
        std::swap(bytes, other.bytes);
        return *this;
    }
    UaBytes(const UaBytes&) = delete;
    UaBytes& operator=(const UaBytes&) = delete;
    ~UaBytes() { UA_ByteString_clear(&bytes); }

    [[nodiscard]] std::span<const unsigned char> Get() const noexcept
    {
        return {bytes.data, bytes.length};
    }

private:
    UA_ByteString bytes = UA_BYTESTRING_NULL;
};

/// One call and what comes of it. The inputs belong to the thread that makes it until it is
/// posted, then to the engine; the outcome to the engine until the flag above it is set.
struct Ticket
{
    Method method = Method::Exists;
    std::shared_ptr<RemoteNode> node;
    std::shared_ptr<Waiter> waiter;
    std::uint64_t epoch = 0; ///< of the node, when the call was made

    // Inputs; which ones count depends on the method.
    std::string path;               ///< escaped
    std::vector<std::string> paths; ///< escaped
    std::uint32_t handle = 0;
    std::int32_t mode = 0;
    std::uint32_t length = 0;
    std::uint64_t position = 0;
    std::span<const unsigned char> bytes;
    std::shared_ptr<const void> bytesOwner; ///< keeps `bytes` until they are encoded
    UA_DateTime time = 0;
    UA_Byte permissions = 0;
    bool isRecursive = false;

    std::atomic<bool> isAnswered{false};
    UA_StatusCode status = UA_STATUSCODE_GOOD;
    std::atomic<bool> isLost{false};    ///< nobody knows whether it ran; set before the flags
    std::atomic<bool> isOverdue{false}; ///< lost since no answer came in time; set before isLost
    bool hasOutput = false;
    std::shared_ptr<RemoteHandle> opened;
    UaBytes read;
    UA_DateTime readTime = 0;
    std::uint64_t readPosition = 0;

    std::atomic<bool> isEventIn{false}; ///< for the methods that events answer
    bool hasNoEvent = false;            ///< the listing died
    bool hasNoContent = false;          ///< the listing did not fit into a message
    bool exists = false;
    bool isLimitExceeded = false;
    std::vector<ListEntry> entries;

    /// Nothing more will come.
    [[nodiscard]] bool IsRefused() const noexcept { return status != UA_STATUSCODE_GOOD; }
};

using TicketPointer = std::shared_ptr<Ticket>;

/// Modes of "Open".
constexpr std::int32_t openForReading = 1;
constexpr std::int32_t openForAppending = 2;
constexpr std::int32_t openForUpdating = 4;

} // namespace Client
