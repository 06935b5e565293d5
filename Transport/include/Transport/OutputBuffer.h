#pragma once

#include <open62541/types.h>

#include <cstddef>
#include <memory>
#include <span>

namespace Transport {

struct FreeMemory
{
    void operator()(UA_Byte* memory) const noexcept;
};
/// Owns memory that the library may free, or has allocated.
using Memory = std::unique_ptr<UA_Byte, FreeMemory>;

/// A message, or what is left of one, that waits to be sent.
class OutputBuffer
{
public:
    /// Takes over the memory of `bytes`.
    explicit OutputBuffer(UA_ByteString& bytes) noexcept;
    /// Throws std::bad_alloc.
    static OutputBuffer Copy(const UA_Byte* bytes, std::size_t size);

    [[nodiscard]] std::size_t GetSize() const noexcept { return size - sent; }
    [[nodiscard]] const UA_Byte* GetData() const noexcept { return data.get() + sent; }
    [[nodiscard]] UA_Byte* GetBytes() noexcept { return data.get() + sent; }
    void CountSent(std::size_t count) noexcept { sent += count; }

    /// Appends further bytes where there is room behind the message. Returns false if there is not
    /// enough.
    [[nodiscard]] bool Append(std::span<const UA_Byte> bytes) noexcept;

    /// Gives back the memory behind the message: the library encodes into buffers of the greatest
    /// size, so that many short messages in a queue would take far more than their length.
    void Shrink() noexcept;
    [[nodiscard]] bool IsShrunk() const noexcept { return shrunk; }

    /// Returns the memory, to be used again; the message is gone.
    [[nodiscard]] Memory TakeMemory() && noexcept { return std::move(data); }

private:
    Memory data;
    std::size_t size{};
    std::size_t sent{};
    bool shrunk = false;
};

} // namespace Transport
