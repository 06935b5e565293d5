#include "Transport/Accepting/MessageBounds.h"

#include "OpcUa/LibraryAssumptions.h"
#include "Transport/OutputQueue.h"

#include <open62541/types_generated.h>
#include <open62541/types_generated_handling.h>

#include <algorithm>
#include <new>
#include <string_view>
#include <utility>

namespace Transport {
namespace {

constexpr std::size_t chunkHeaderSize = 8;  // type and length
constexpr std::size_t plainHeaderSize = 16; // and the channel and its token
constexpr std::size_t headerSize = 24;      // and the numbers of the chunk and of the request
/// A client's bound is on the bodies of its messages: the headers, the signature and the padding of
/// a chunk are not counted.
constexpr std::size_t chunkOverhead = headerSize + 32 + 16;

std::uint32_t ReadNumber(const UA_Byte* from) noexcept
{
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number |= static_cast<std::uint32_t>(from[i]) << (8 * i);
    return number;
}

void WriteNumber(UA_Byte* to, std::uint32_t number) noexcept
{
    for (std::size_t i = 0; i < 4; ++i)
        to[i] = static_cast<UA_Byte>(number >> (8 * i));
}

std::string_view TypeOf(const UA_Byte* chunk) noexcept
{
    return {reinterpret_cast<const char*>(chunk), 3};
}

bool IsLast(const UA_Byte* chunk) noexcept
{
    return chunk[3] != 'C';
}

/// Finds the number of a message that opens a channel: behind three byte strings. 0 if it
/// is not there.
std::size_t FindSequenceNumber(const UA_Byte* message, std::size_t size) noexcept
{
    std::size_t at = chunkHeaderSize + 4;
    for (int i = 0; i < 3; ++i) {
        if (at + 4 > size)
            return 0;
        const std::uint32_t length = ReadNumber(message + at);
        at += 4;
        if (length != 0xFFFFFFFF)
            at += length;
    }
    return at + 4 > size ? 0 : at;
}

bool IsOver(const MessageLimits& limits, const MessageLimits& message) noexcept
{
    return (limits.size != 0 && message.size > limits.size) ||
           (limits.chunks != 0 && message.chunks > limits.chunks);
}

/// The smaller one; 0 stands for none.
std::size_t Tighten(std::size_t left, std::size_t right) noexcept
{
    return left == 0 || right == 0 ? std::max(left, right) : std::min(left, right);
}

template <typename Value>
void AppendEncoded(std::vector<UA_Byte>& to, const Value& value, const UA_DataType& type)
{
    UA_ByteString encoded = UA_BYTESTRING_NULL;
    if (UA_encodeBinary(&value, &type, &encoded) != UA_STATUSCODE_GOOD)
        throw std::bad_alloc();
    to.insert(to.end(), encoded.data, encoded.data + encoded.length);
    UA_ByteString_clear(&encoded);
}

} // namespace

// Incoming

bool MessageOrder::Accept(const UA_Byte* header) noexcept
{
    if (TypeOf(header) != "MSG")
        return true;
    const std::uint32_t request = ReadNumber(header + plainHeaderSize + 4);
    if (header[3] == 'A') { // drops all that is unfinished
        unfinished.reset();
        return true;
    }
    if (unfinished && *unfinished != request)
        return false;
    unfinished = IsLast(header) ? std::nullopt : std::optional(request);
    return true;
}

/// Shortens the array of a request in its first chunk, in plain text.
void IncomingMessages::ShortenFirst(std::span<UA_Byte> chunk) const noexcept
{
    if (chunk.size() > headerSize && TypeOf(chunk.data()) == "MSG" && !order.IsInMessage())
        ShortenArray(chunk.subspan(headerSize), arrays);
}

bool IncomingMessages::CountSecured(UA_Byte* chunk, std::size_t size) noexcept
{
    if (size < headerSize)
        return true;
    ShortenFirst({chunk, size});
    return order.Accept(chunk);
}

bool IncomingMessages::Count(UA_Byte* data, std::size_t count)
{
    while (count > 0 && !isMalformed) {
        if (read == 0 && isPlain && count > headerSize)
            ShortenFirst({data, std::min<std::size_t>(count, ReadNumber(data + 4))});
        const bool isInHead = read < headSize && (read < chunkHeaderSize || read < size);
        if (isInHead) {
            head[read++] = *data++;
            --count;
            if (read == chunkHeaderSize && !BeginChunk())
                return false;
        } else {
            const std::size_t part = std::min(count, size - read);
            read += part;
            data += part;
            count -= part;
        }
        if (isInHead && read >= chunkHeaderSize && (read == headSize || read == size) && !EndHead())
            return false;
        if (read >= chunkHeaderSize && read == size)
            read = 0;
    }
    return true;
}

bool IncomingMessages::BeginChunk()
{
    size = ReadNumber(&head[4]);
    isMalformed = size < chunkHeaderSize; // the server ends such a connection
    if (head[3] == 'A')
        message = {};
    else {
        ++message.chunks;
        message.size += size - std::min(size, chunkOverhead);
    }
    const bool isAllowed = !IsOver(limits, message);
    if (IsLast(head.data()))
        message = {};
    return isAllowed;
}

bool IncomingMessages::EndHead()
{
    constexpr std::string_view none = "http://opcfoundation.org/UA/SecurityPolicy#None";
    constexpr std::size_t policyAt = chunkHeaderSize + 4;
    const std::string_view type = TypeOf(head.data());
    if (type == "OPN" && read >= policyAt + 4)
        isPlain = ReadNumber(&head[policyAt]) == none.size(); // the others are longer
    if (type == "MSG" && isPlain && read >= MessageOrder::headerSize)
        return order.Accept(head.data());
    if (hello || read < headSize || type != "HEL")
        return true;
    hello = ClientHello{ReadNumber(&head[12]), {ReadNumber(&head[20]), ReadNumber(&head[24])}};
    return true;
}

// Outgoing

OutgoingMessages::OutgoingMessages(const MessageLimits& own, const MessageLimits& incoming) noexcept
    : limits(own)
    , incoming(incoming)
{}

void OutgoingMessages::SetHello(const ClientHello& hello) noexcept
{
    limits.size = Tighten(limits.size, hello.limits.size);
    limits.chunks = Tighten(limits.chunks, hello.limits.chunks);
    chunkSize = std::max(hello.chunkSize, 2 * chunkOverhead); // what is too small has an end anyway
}

std::size_t OutgoingMessages::GetLargest() const noexcept
{
    const std::size_t size = Tighten(chunkSize, OpcUa::largestChunk);
    return Tighten(limits.size, limits.chunks * (size - std::min(size, chunkOverhead)));
}

void OutgoingMessages::Prepare(UA_Byte* chunk, std::size_t size, OpcUa::Seal& channelSeal) noexcept
{
    seal = &channelSeal;
    Number(chunk, size);
    isPrepared = true;
}

void OutgoingMessages::Pass(OutputBuffer chunk, OutputQueue& output)
{
    UA_Byte* data = chunk.GetBytes();
    if (chunk.GetSize() < chunkHeaderSize) // none of a message
        return output.Push(std::move(chunk));
    if (!std::exchange(isPrepared, false)) {
        seal = nullptr;
        Number(data, chunk.GetSize());
    }
    if (TypeOf(data) == "ACK")
        Announce(data, chunk.GetSize());
    const bool isMessage = TypeOf(data) == "MSG";
    isOpen = isMessage && !IsLast(data);
    if (isMessage && isRefused) {
        if (std::exchange(isFaultDue, false))
            output.Push(MakeFault());
    } else if (isOpen) {
        held.push_back(std::move(chunk));
    } else {
        for (auto& each : held)
            output.Push(std::move(each));
        held.clear();
        output.Push(std::move(chunk));
    }
}

void OutgoingMessages::Number(UA_Byte* chunk, std::size_t size) noexcept
{
    if (size >= headerSize && TypeOf(chunk) == "MSG")
        NumberSymmetric(chunk, size);
    else if (size >= headerSize && TypeOf(chunk) == "OPN")
        if (const std::size_t at = FindSequenceNumber(chunk, size); at != 0)
            WriteNumber(chunk + at, ++sequence);
}

void OutgoingMessages::NumberSymmetric(UA_Byte* chunk, std::size_t size) noexcept
{
    if (!isOpen || ReadNumber(chunk + plainHeaderSize + 4) != requestId)
        Begin(chunk, size);
    if (isRefused)
        return;
    message.size += size;
    ++message.chunks;
    if (IsOver(limits, message)) {
        TakeBackHeld();
        isRefused = true;
        isFaultDue = true;
        hasRefused = true;
    } else {
        WriteNumber(chunk + plainHeaderSize, ++sequence);
    }
}

void OutgoingMessages::Begin(const UA_Byte* chunk, std::size_t size) noexcept
{
    TakeBackHeld(); // of a message whose encoding the library has given up
    isRefused = false;
    isFaultDue = false;
    message = {};
    std::copy_n(chunk, plainHeaderSize, plainHeader.begin());
    requestId = ReadNumber(chunk + plainHeaderSize + 4);
    // Behind the number of the response's type and its time.
    constexpr std::size_t handle = headerSize + 4 + 8;
    requestHandle = size >= handle + 4 ? ReadNumber(chunk + handle) : 0;
}

void OutgoingMessages::TakeBackHeld() noexcept
{
    sequence -= static_cast<std::uint32_t>(held.size());
    held.clear();
}

OutputBuffer OutgoingMessages::MakeFault()
{
    std::array<UA_Byte, headerSize> header{};
    std::copy(plainHeader.begin(), plainHeader.end(), header.begin());
    header[3] = 'F';
    WriteNumber(&header[plainHeaderSize], ++sequence);
    WriteNumber(&header[plainHeaderSize + 4], requestId);
    std::vector<UA_Byte> fault(header.begin(), header.end());
    UA_ServiceFault body;
    UA_ServiceFault_init(&body);
    body.responseHeader.timestamp = UA_DateTime_now();
    body.responseHeader.requestHandle = requestHandle;
    body.responseHeader.serviceResult = UA_STATUSCODE_BADRESPONSETOOLARGE;
    const UA_DataType& type = UA_TYPES[UA_TYPES_SERVICEFAULT];
    AppendEncoded(fault, type.binaryEncodingId, UA_TYPES[UA_TYPES_NODEID]);
    AppendEncoded(fault, body, type);
    WriteNumber(fault.data() + 4, static_cast<std::uint32_t>(fault.size()));
    if (seal != nullptr && !seal->Apply(fault))
        throw std::bad_alloc();
    return OutputBuffer::Copy(fault.data(), fault.size());
}

/// The library tells its own bounds, which nothing reaches. There are clients that hold answers to
/// what they are told for their requests, so they are told the larger one.
void OutgoingMessages::Announce(UA_Byte* acknowledge, std::size_t size) const noexcept
{
    constexpr std::size_t limitsAt = chunkHeaderSize + 3 * 4;
    if (size < limitsAt + 8)
        return;
    const std::size_t smallest = Tighten(chunkSize, OpcUa::largestChunk) - chunkOverhead;
    const auto announce = [](UA_Byte* at, std::size_t in, std::size_t out) {
        WriteNumber(at, static_cast<std::uint32_t>(in == 0 ? 0 : std::max(in, out)));
    };
    announce(acknowledge + limitsAt, incoming.size, GetLargest());
    announce(acknowledge + limitsAt + 4, incoming.chunks, GetLargest() / smallest + 1);
}

} // namespace Transport
