#include "Frames.h"

#include "Pool.h"

#include <OpcUa/Ua.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <unordered_map>

namespace Fuzz {

using OpcUa::BytesOf;
using OpcUa::Ua;
using OpcUa::ViewOf;

namespace {

constexpr std::uint32_t noText = 0xffffffff;

const UA_DataType* FindMessage(const UA_NodeId& encoding)
{
    static const auto types = [] {
        std::unordered_map<std::uint32_t, const UA_DataType*> found;
        for (const UA_DataType& type : UA_TYPES)
            if (type.binaryEncodingId.identifier.numeric != 0)
                found.emplace(type.binaryEncodingId.identifier.numeric, &type);
        return found;
    }();
    if (encoding.namespaceIndex != 0 || encoding.identifierType != UA_NODEIDTYPE_NUMERIC)
        return nullptr;
    const auto found = types.find(encoding.identifier.numeric);
    return found == types.end() ? nullptr : found->second;
}

} // namespace

std::uint32_t ReadNumber(const std::string& bytes, std::size_t at)
{
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

void WriteNumber(std::string& bytes, std::size_t at, std::uint32_t number)
{
    std::memcpy(bytes.data() + at, &number, sizeof number);
}

void Append(std::string& bytes, std::uint32_t number)
{
    bytes.resize(bytes.size() + sizeof number);
    WriteNumber(bytes, bytes.size() - sizeof number, number);
}

void Append(std::string& bytes, const std::optional<std::string>& text)
{
    Append(bytes, text ? static_cast<std::uint32_t>(text->size()) : noText);
    bytes += text.value_or("");
}

std::string MakeFrame(const std::string& type, const std::string& content)
{
    std::string frame = type;
    Append(frame, static_cast<std::uint32_t>(content.size() + frameHeader));
    return frame + content;
}

std::string MakeHello()
{
    std::string content;
    for (const std::uint32_t number : {0U, 65'535U, 65'535U, 0U, 0U}) // version, sizes, no bounds
        Append(content, number);
    Append(content, std::optional<std::string>("opc.tcp://localhost"));
    return MakeFrame("HELF", content);
}

std::optional<std::string> Encode(const void* value, const UA_DataType& type)
{
    UA_ByteString encoded = UA_BYTESTRING_NULL;
    if (UA_encodeBinary(value, &type, &encoded) != UA_STATUSCODE_GOOD)
        return std::nullopt;
    std::string bytes(BytesOf(encoded));
    UA_ByteString_clear(&encoded);
    return bytes;
}

std::optional<std::string> EncodeMessage(const Value& value)
{
    const auto id = Encode(&value.GetType().binaryEncodingId, UA_TYPES[UA_TYPES_NODEID]);
    const auto body = Encode(value.Get(), value.GetType());
    if (!id || !body)
        return std::nullopt;
    return *id + *body;
}

std::optional<Value> DecodeMessage(const std::string& bytes)
{
    Ua<UA_NodeId> encoding;
    UA_ByteString whole = ViewOf(bytes);
    if (UA_decodeBinary(&whole, &*encoding, &UA_TYPES[UA_TYPES_NODEID], nullptr) !=
        UA_STATUSCODE_GOOD)
        return std::nullopt;
    const UA_DataType* type = FindMessage(*encoding);
    if (type == nullptr)
        return std::nullopt;
    const std::size_t head = UA_calcSizeBinary(&*encoding, &UA_TYPES[UA_TYPES_NODEID]);
    UA_ByteString body{whole.length - head, whole.data + head};
    Value value(*type);
    if (UA_decodeBinary(&body, value.Get(), type, nullptr) != UA_STATUSCODE_GOOD)
        return std::nullopt;
    return value;
}

std::optional<Value> DecodeOpening(const std::string& frame)
{
    std::size_t at = frameHeader + 4; // the channel; three texts and two numbers follow
    for (int text = 0; text < 3 && at + 4 <= frame.size(); ++text) {
        const auto length = static_cast<std::int32_t>(ReadNumber(frame, at));
        at += 4 + (length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    return at + 8 <= frame.size() ? DecodeMessage(frame.substr(at + 8)) : std::nullopt;
}

std::string MakeOpening(Channel& channel, const std::string& body, const std::string& policy,
                        const std::optional<std::string>& certificate)
{
    std::string content;
    Append(content, channel.id);
    Append(content, std::optional<std::string>(policy));
    Append(content, certificate);
    Append(content, certificate ? std::optional<std::string>(std::string(20, 't')) : std::nullopt);
    Append(content, ++channel.sequence);
    Append(content, ++channel.request);
    return MakeFrame("OPNF", content + body);
}

std::vector<std::string> MakeChunks(Channel& channel, const std::string& type,
                                    const std::string& body, std::size_t size)
{
    ++channel.request;
    std::vector<std::string> frames;
    for (std::size_t at = 0; at == 0 || at < body.size(); at += size) {
        std::string content;
        const std::uint32_t sequence = ++channel.sequence;
        for (const std::uint32_t number : {channel.id, channel.token, sequence, channel.request})
            Append(content, number);
        content += body.substr(at, size);
        frames.push_back(MakeFrame(type + (at + size < body.size() ? "C" : "F"), content));
    }
    return frames;
}

void MutateBytes(Random& random, std::string& bytes)
{
    if (bytes.empty())
        return;
    const std::size_t at = random.Below(bytes.size());
    switch (random.Below(6)) {
    case 0:
        bytes[at] = static_cast<char>(random.Bits());
        break;
    case 1:
        bytes[at] = static_cast<char>(bytes[at] ^ (1 << random.Below(8)));
        break;
    case 2:
        bytes.resize(at);
        break;
    case 3:
        bytes.insert(at, random.Bytes(random.Below(9)));
        break;
    case 4:
        bytes.erase(at, random.Below(9));
        break;
    default: // lengths and counts are such numbers
        if (at + sizeof(std::uint32_t) <= bytes.size())
            WriteNumber(bytes, at, static_cast<std::uint32_t>(random.Number()));
        break;
    }
}

namespace {

void MutateHeader(Random& random, std::string& frame)
{
    static const std::array<std::string, 9> types{"MSG", "OPN", "CLO", "HEL", "ACK",
                                                  "ERR", "RHE", "ABC", "msg"};
    const std::size_t field = 4 * random.Below(6); // sizes, channel, token, numbers
    if (field == 0)
        frame.replace(0, 3, random.Pick(types));
    else if (frame.size() >= field + 4)
        WriteNumber(frame, field,
                    random.Chance(50)
                        ? ReadNumber(frame, field) + static_cast<std::uint32_t>(random.Below(5)) - 2
                        : static_cast<std::uint32_t>(random.Number()));
}

} // namespace

void MutateFrames(Random& random, std::vector<std::string>& frames)
{
    const std::size_t which = random.Below(frames.size());
    std::string& frame = frames[which];
    switch (random.Below(8)) {
    case 0: // the chunk's type
        if (frame.size() > 3)
            frame[3] = std::array{'C', 'F', 'A', 'X'}[random.Below(4)];
        break;
    case 1:
        frames.push_back(frame);
        break;
    case 2:
        frames.erase(frames.begin() + static_cast<std::ptrdiff_t>(which));
        break;
    case 3:
        std::swap(frame, random.Pick(frames));
        break;
    case 4: // with the size that it really has
        MutateBytes(random, frame);
        if (frame.size() >= frameHeader)
            WriteNumber(frame, 4, static_cast<std::uint32_t>(frame.size()));
        break;
    case 5:
        MutateBytes(random, frame);
        break;
    default:
        MutateHeader(random, frame);
        break;
    }
}

} // namespace Fuzz
