#include "Transport/Accepting/ArrayLimits.h"

#include <algorithm>
#include <limits>
#include <optional>

namespace Transport {
namespace {

/// Goes through a message. Once it is at its end it stays there.
class Reader
{
public:
    explicit Reader(std::span<const UA_Byte> bytes) noexcept
        : bytes(bytes)
    {}

    [[nodiscard]] bool IsGood() const noexcept { return isGood; }
    [[nodiscard]] std::size_t GetPosition() const noexcept { return position; }

    void Skip(std::size_t count) noexcept
    {
        isGood = isGood && count <= bytes.size() - position;
        if (isGood)
            position += count;
    }

    /// Returns a number of so many bytes; 0 if they are not there.
    std::uint32_t TakeNumber(std::size_t size) noexcept
    {
        const std::size_t begin = position;
        Skip(size);
        std::uint32_t number = 0;
        for (std::size_t i = 0; isGood && i < size; ++i)
            number |= static_cast<std::uint32_t>(bytes[begin + i]) << (8 * i);
        return number;
    }

    /// Skips a string, or bytes.
    void SkipText() noexcept
    {
        const std::uint32_t length = TakeNumber(4);
        if (length != std::numeric_limits<std::uint32_t>::max()) // null
            Skip(length);
    }

    void SkipNode() noexcept
    {
        switch (TakeNumber(1)) {
        case 0: // a number of one byte
            return Skip(1);
        case 1: // two bytes, and the namespace one
            return Skip(3);
        case 2: // four bytes
            return Skip(6);
        case 4: // a Guid
            return Skip(18);
        case 3: // a text
        case 5: // bytes
            Skip(2);
            return SkipText();
        default:
            isGood = false;
        }
    }

private:
    std::span<const UA_Byte> bytes;
    std::size_t position = 0;
    bool isGood = true;
};

/// Returns the number of an encoding of namespace 0; 0 for any other one.
std::uint32_t TakeEncoding(Reader& reader) noexcept
{
    const std::uint32_t form = reader.TakeNumber(1);
    if (form > 2)
        return 0;
    const std::uint32_t index = form == 0 ? 0 : reader.TakeNumber(form);
    const std::uint32_t number = reader.TakeNumber(std::size_t{1} << form);
    return index == 0 ? number : 0;
}

void SkipRequestHeader(Reader& reader) noexcept
{
    constexpr std::size_t timeHandleAndDiagnostics = 16;
    constexpr std::size_t timeout = 4;
    reader.SkipNode(); // the session
    reader.Skip(timeHandleAndDiagnostics);
    reader.SkipText(); // the entry for an audit log
    reader.Skip(timeout);
    reader.SkipNode(); // the type of an addition
    if (reader.TakeNumber(1) != 0)
        reader.SkipText();
}

} // namespace

void ShortenArray(std::span<UA_Byte> message, const ArrayLimits& limits) noexcept
{
    Reader reader(message);
    const std::uint32_t request = TakeEncoding(reader);
    const auto limit = std::find_if(limits.begin(), limits.end(),
                                    [&](const auto& each) { return each.request == request; });
    if (limit == limits.end())
        return;
    SkipRequestHeader(reader);
    if (limit->hasNode)
        reader.SkipNode();
    reader.Skip(limit->bytesBetween);
    const std::size_t at = reader.GetPosition();
    const std::uint32_t size = reader.TakeNumber(4);
    const bool isNull = size > std::numeric_limits<std::int32_t>::max(); // a negative number
    if (!reader.IsGood() || isNull || size <= limit->most)
        return;
    for (std::size_t i = 0; i < 4; ++i)
        message[at + i] = static_cast<UA_Byte>((limit->most + 1) >> (8 * i));
}

} // namespace Transport
