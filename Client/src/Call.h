#pragma once

#include "Client/FileSystem.h"
#include "Methods.h"
#include "PostedCall.h"
#include "RemoteHandle.h"
#include "Waiter.h"

#include <open62541/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Client {

class RemoteNode;

/// A byte string that the OPC UA library allocated.
class UaBytes
{
public:
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

/// A method and its inputs. Which inputs count depends on the method.
struct Request
{
    Method method = Method::Exists;
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
};

/// The outcome of a call: its answer, and the event that answers it where there is one.
struct Outcome
{
    std::atomic<bool> isLost{false};    ///< nobody knows if it ran; set before the flags below
    std::atomic<bool> isOverdue{false}; ///< lost since no answer came in time; set before isLost

    /// The flag is set last.
    std::atomic<bool> isAnswered{false};
    UA_StatusCode status = UA_STATUSCODE_GOOD;
    // The output, as the method has one and the server gave it.
    std::shared_ptr<RemoteHandle> opened;
    std::optional<UaBytes> bytes;
    std::optional<UA_DateTime> time;
    std::optional<std::uint64_t> position;

    /// For the methods that events answer. The flag is set last.
    std::atomic<bool> hasEvent{false};
    bool hasNoResult = false;  ///< the call ended without the event that it should have
    bool hasNoContent = false; ///< the listing did not fit into a message
    bool exists = false;
    bool isLimitExceeded = false;
    std::vector<ListEntry> entries;

    [[nodiscard]] bool IsRefused() const noexcept { return status != UA_STATUSCODE_GOOD; }
    /// Returns the bytes that were read, none when there is no such output.
    [[nodiscard]] std::span<const unsigned char> GetBytes() const noexcept
    {
        return bytes ? bytes->Get() : std::span<const unsigned char>();
    }
};

/// One call of a method of a file system of one's own. The request belongs to the thread that makes
/// it until it is posted, then to the engine; a part of the outcome to the engine until its flag is
/// set.
struct Call final : PostedCall, std::enable_shared_from_this<Call>
{
    std::shared_ptr<RemoteNode> node;
    std::shared_ptr<Waiter> waiter;
    std::uint64_t epoch = 0; ///< of the node, when the call was made
    Request request;
    Outcome outcome;

    [[nodiscard]] bool Send(const Namespaces& namespaces, const Encode& encode) override;
    void TakeAnswer(UA_StatusCode status, UA_CallMethodResult* result) override;
    void Lose(bool isOverdue) noexcept override;
    [[nodiscard]] std::string Describe() const override;
    /// Its work is done later; an event reports it.
    [[nodiscard]] bool MayTakeLong() const noexcept override { return false; }
};

using CallPointer = std::shared_ptr<Call>;

/// Modes of "Open".
constexpr std::int32_t openForReading = 1;
constexpr std::int32_t openForAppending = 2;
constexpr std::int32_t openForUpdating = 4;

} // namespace Client
