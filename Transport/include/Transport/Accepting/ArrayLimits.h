#pragma once

#include <open62541/types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Transport {

/// How many elements the first array of a request may have.
struct ArrayLimit
{
    std::uint32_t request = 0;    ///< identifies its binary encoding, in namespace 0
    bool hasNode = false;         ///< a NodeId follows the request's header
    std::size_t bytesBetween = 0; ///< and then so many bytes, up to the array
    std::uint32_t most = 0;
};

using ArrayLimits = std::vector<ArrayLimit>;

/// Tells the server that a request has one element more than it may have if it has still more. The
/// server decodes a request before it refuses it, and would spend the loop's time on elements that
/// it does not look at.
///
/// `message`: a request in plain text from the identifier of its encoding on, or the beginning of
/// one. A request whose array does not begin there is left alone.
void ShortenArray(std::span<UA_Byte> message, const ArrayLimits& limits) noexcept;

} // namespace Transport
