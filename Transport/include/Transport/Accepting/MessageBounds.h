#pragma once

#include "OpcUa/SymmetricCiphers.h"
#include "Transport/Accepting/Limits.h"
#include "Transport/OutputBuffer.h"

#include <open62541/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace Transport {

class OutputQueue;

/// The first message of a client.
struct ClientHello
{
    std::size_t chunkSize = 0; ///< the largest chunk that it takes
    MessageLimits limits;      ///< on messages to it
};

/// Sees that a client finishes one message before it begins the next. The library keeps the chunks
/// of unfinished messages for as many requests as there are, and a bound on each of them would
/// bound nothing.
class MessageOrder
{
public:
    static constexpr std::size_t headerSize = 24;

    /// Takes the header of a chunk in plain text. False if it is of another request than the
    /// unfinished message.
    [[nodiscard]] bool Accept(const UA_Byte* header) noexcept;

    /// True while a message is unfinished.
    [[nodiscard]] bool IsInMessage() const noexcept { return unfinished.has_value(); }

private:
    std::optional<std::uint32_t> unfinished; ///< the request of the message that has begun
};

/// Adds up the messages that come in on one connection. The type and the length of chunks are in
/// plain text on encrypted channels too.
class IncomingMessages
{
public:
    /// `arrays` must outlive it.
    IncomingMessages(const MessageLimits& limits, const ArrayLimits& arrays) noexcept
        : limits(limits)
        , arrays(arrays)
    {}

    /// Counts what has come in. False if it has more of a message than allowed, or a message
    /// within another one on a channel that is not secured. Shortens arrays of requests whose
    /// beginning has come in at once.
    [[nodiscard]] bool Count(UA_Byte* data, std::size_t size);

    /// The same of a chunk of a secured channel, once it was decrypted and its signature was right.
    [[nodiscard]] bool CountSecured(UA_Byte* chunk, std::size_t size) noexcept;

    [[nodiscard]] const std::optional<ClientHello>& GetHello() const noexcept { return hello; }

private:
    static constexpr std::size_t headSize = 28; ///< type, length, and the numbers of a Hello

    void ShortenFirst(std::span<UA_Byte> chunk) const noexcept;
    [[nodiscard]] bool BeginChunk();
    [[nodiscard]] bool EndHead();

    const MessageLimits limits;
    const ArrayLimits& arrays;
    std::array<UA_Byte, headSize> head{};
    std::size_t read = 0;  ///< of the present chunk
    std::size_t size = 0;  ///< of the present chunk; known from its 8th byte on
    MessageLimits message; ///< what the present message has so far
    bool isMalformed = false;
    bool isPlain = false; ///< the channel is not secured
    MessageOrder order;
    std::optional<ClientHello> hello;
};

/// Keeps the messages that go out on one connection within bounds.
///
/// The library encodes a message chunk by chunk and cannot go back. So the chunks are held until
/// the last one is there; where they become too many, they are dropped and the client gets the
/// service fault Bad_ResponseTooLarge for its request instead. The chunks that are sent are
/// numbered here, since clients do not accept gaps.
class OutgoingMessages
{
public:
    /// `own`: what holds unless the client wants less. `incoming`: what clients are told to keep
    /// to.
    OutgoingMessages(const MessageLimits& own, const MessageLimits& incoming) noexcept;

    /// Takes what the client has announced into account.
    void SetHello(const ClientHello& hello) noexcept;

    /// The most that one message may have, headers included.
    [[nodiscard]] std::size_t GetLargest() const noexcept;

    /// Numbers and counts a chunk that is about to be signed. `seal` secures what is sent in its
    /// place, and lives until the chunk was passed.
    void Prepare(UA_Byte* chunk, std::size_t size, OpcUa::Seal& seal) noexcept;

    /// Takes a chunk, prepared if it is signed, and appends what can be sent now. Throws
    /// std::bad_alloc.
    void Pass(OutputBuffer chunk, OutputQueue& output);

    /// True once for each message that was refused.
    [[nodiscard]] bool TakeRefusal() noexcept { return std::exchange(hasRefused, false); }

private:
    void Number(UA_Byte* chunk, std::size_t size) noexcept;
    void NumberSymmetric(UA_Byte* chunk, std::size_t size) noexcept;
    void Begin(const UA_Byte* chunk, std::size_t size) noexcept;
    void TakeBackHeld() noexcept;
    [[nodiscard]] OutputBuffer MakeFault();
    void Announce(UA_Byte* acknowledge, std::size_t size) const noexcept;

    MessageLimits limits;
    const MessageLimits incoming;
    std::size_t chunkSize = 0; ///< 0: not known

    std::uint32_t sequence = 0; ///< the number of the last chunk that was not dropped
    bool isPrepared = false;    ///< the chunk that comes next
    OpcUa::Seal* seal = nullptr;

    // The present message.
    bool isOpen = false;     ///< has further chunks
    bool isRefused = false;  ///< its chunks are dropped
    bool isFaultDue = false; ///< the next chunk is replaced by the service fault
    bool hasRefused = false;
    std::array<UA_Byte, 16> plainHeader{}; ///< of its first chunk
    std::uint32_t requestId = 0;
    std::uint32_t requestHandle = 0;
    MessageLimits message;
    std::vector<OutputBuffer> held;
};

} // namespace Transport
