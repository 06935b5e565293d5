#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace Transport {

/// Follows the messages in what one connection receives, by the headers of their chunks: these are
/// plain text on encrypted channels too. Keeps no content.
class MessageStream
{
public:
    /// The largest that was seen, each by itself.
    struct Sizes
    {
        std::size_t bytes{}; ///< of a message, its headers included, as far as its chunks announce
        std::size_t chunks{};
    };

    /// Takes the bytes that follow those before. Returns the sizes of the messages that they belong
    /// to, finished or not.
    Sizes Take(std::span<const unsigned char> bytes) noexcept;

    /// True from the first header on that is none; nothing is followed from then on.
    [[nodiscard]] bool IsLost() const noexcept { return lost; }
    [[nodiscard]] bool IsInMessage() const noexcept
    {
        return headerSize > 0 || missing > 0 || current.chunks > 0;
    }
    [[nodiscard]] std::uint64_t CountMessages() const noexcept { return messages; }

private:
    static constexpr std::size_t headerLength = 8;

    [[nodiscard]] std::size_t TakeHeader(std::span<const unsigned char> bytes) noexcept;
    void BeginChunk() noexcept;
    void EndChunk() noexcept;

    std::array<unsigned char, headerLength> header{}; // of the chunk that comes
    std::size_t headerSize{};                         // as much of it as is there
    std::size_t missing{};                            // of the chunk behind its header
    Sizes current;                                    // of the message that is not finished
    std::uint64_t messages{};                         // that were finished
    bool lost = false;
};

} // namespace Transport
