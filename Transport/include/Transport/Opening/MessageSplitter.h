#pragma once

#include <open62541/types.h>

#include <array>
#include <cstddef>
#include <span>

namespace Transport {

/// Finds where messages end in a stream of bytes.
class MessageSplitter
{
public:
    /// Returns how many of the bytes belong to the message that they begin with or carry on.
    [[nodiscard]] std::size_t Measure(std::span<const UA_Byte> bytes) noexcept;

private:
    [[nodiscard]] std::size_t ReadBodySize() const noexcept;

    std::array<UA_Byte, 8> header{};
    std::size_t known = 0; // of the header
    std::size_t left = 0;  // of what is behind it
};

} // namespace Transport
