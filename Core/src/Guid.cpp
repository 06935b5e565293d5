#include "Core/Guid.h"

#include "Core/Exception.h"

#include <fmt/format.h>
#include <sys/random.h>

#include <cerrno>
#include <functional>
#include <string_view>
#include <system_error>

namespace Core {
namespace {

constexpr std::size_t digitCount = 32;

[[noreturn]] void ThrowNoGuid(std::string_view text)
{
    throw InvalidArgumentException(fmt::format(
        "cannot make a Guid of '{}': it takes {} hexadecimal digits", text, digitCount));
}

unsigned int DigitValue(char digit, std::string_view text)
{
    if (digit >= '0' && digit <= '9')
        return static_cast<unsigned int>(digit - '0');
    if (digit >= 'a' && digit <= 'f')
        return static_cast<unsigned int>(digit - 'a') + 10;
    if (digit >= 'A' && digit <= 'F')
        return static_cast<unsigned int>(digit - 'A') + 10;
    ThrowNoGuid(text);
}

void FillAtRandom(std::array<unsigned char, 16>& bytes)
{
    // The system never returns a part of so few bytes.
    while (getrandom(bytes.data(), bytes.size(), 0) < 0) {
        if (errno != EINTR)
            throw SystemException("cannot draw a random Guid: " +
                                  std::generic_category().message(errno));
    }
}

} // namespace

Guid::Guid(const char* text)
{
    if (text == nullptr)
        throw InvalidArgumentException("cannot make a Guid of a null pointer");
    const std::string_view digits(text);
    if (digits.size() != digitCount)
        ThrowNoGuid(digits);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto high = DigitValue(digits[2 * i], digits);
        const auto low = DigitValue(digits[2 * i + 1], digits);
        bytes.at(i) = static_cast<unsigned char>(high << 4U | low);
    }
}

Guid::Guid(const std::array<unsigned char, 16>& bytes) noexcept
    : bytes(bytes)
{}

Guid Guid::Random()
{
    std::array<unsigned char, 16> bytes{};
    FillAtRandom(bytes);
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0FU) | 0x40U); // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3FU) | 0x80U); // its variant
    return Guid(bytes);
}

std::string Guid::ToString() const
{
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

std::size_t HashGuid::operator()(const Guid& guid) const noexcept
{
    const auto& bytes = guid.GetBytes();
    return std::hash<std::string_view>{}(
        {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

} // namespace Core
