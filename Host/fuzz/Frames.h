#pragma once

#include "Random.h"
#include "Value.h"

#include <open62541/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Fuzz {

constexpr std::size_t frameHeader = 8;    ///< type, chunk type, size
constexpr std::size_t messageHeader = 24; ///< and channel, token, sequence number, request

/// Returns a number of four bytes. REQUIRES: it is there.
[[nodiscard]] std::uint32_t ReadNumber(const std::string& bytes, std::size_t at);
void WriteNumber(std::string& bytes, std::size_t at, std::uint32_t number);
/// Appends four bytes.
void Append(std::string& bytes, std::uint32_t number);
/// Appends a length and the text; nothing is the null string.
void Append(std::string& bytes, const std::optional<std::string>& text);

/// Returns a frame of a type such as "MSGF" with its size in front.
[[nodiscard]] std::string MakeFrame(const std::string& type, const std::string& content);
[[nodiscard]] std::string MakeHello();

/// Returns a value in the binary encoding; nothing if the library refuses to encode it.
[[nodiscard]] std::optional<std::string> Encode(const void* value, const UA_DataType& type);
/// Returns a request or response with its encoding's id in front.
[[nodiscard]] std::optional<std::string> EncodeMessage(const Value& value);
/// Inverts EncodeMessage; returns nothing for bytes that cannot be decoded.
[[nodiscard]] std::optional<Value> DecodeMessage(const std::string& bytes);

/// Returns the response in a frame that opens a channel.
[[nodiscard]] std::optional<Value> DecodeOpening(const std::string& frame);

/// The keys of a channel that is not encrypted.
struct Channel
{
    std::uint32_t id = 0;
    std::uint32_t token = 0;
    std::uint32_t sequence = 0;
    std::uint32_t request = 0;
};

/// Returns a frame that asks for a channel with the given policy and certificate, right or wrong.
[[nodiscard]] std::string MakeOpening(Channel& channel, const std::string& body,
                                      const std::string& policy,
                                      const std::optional<std::string>& certificate = {});
/// Returns the chunks of a message, counted in the channel, with `size` bytes of the body in each.
[[nodiscard]] std::vector<std::string> MakeChunks(Channel& channel, const std::string& type,
                                                  const std::string& body, std::size_t size);

/// Changes bytes anywhere, numbers on the way, or the length.
void MutateBytes(Random& random, std::string& bytes);
/// Changes the first parts that the host reads: types, sizes, channel, token, numbers; the order of
/// frames, their number, or their bytes. REQUIRES: there is a frame.
void MutateFrames(Random& random, std::vector<std::string>& frames);

} // namespace Fuzz
