#pragma once

#include "Core/Export.h"

#include <array>
#include <compare>
#include <cstddef>
#include <string>

namespace Core {

/// A 128-bit identifier, kept in the order in which its hexadecimal digits are written.
class CORE_API Guid
{
public:
    /// All zero.
    Guid() noexcept = default;

    /// Takes exactly 32 hexadecimal digits of either case, without dashes or braces. Throws
    /// InvalidArgumentException for anything else, a null pointer included.
    explicit Guid(const char* text);

    explicit Guid(const std::array<unsigned char, 16>& bytes) noexcept;

    /// Returns an unguessable identifier (version 4) from the system's random source.
    [[nodiscard]] static Guid Random();

    [[nodiscard]] const std::array<unsigned char, 16>& GetBytes() const noexcept { return bytes; }

    /// Returns 32 lower-case hexadecimal digits.
    [[nodiscard]] std::string ToString() const;

    // NOLINTNEXTLINE(modernize-use-nullptr): sees a null pointer in what the compiler writes
    friend auto operator<=>(const Guid&, const Guid&) noexcept = default;

private:
    std::array<unsigned char, 16> bytes{};
};

struct CORE_API HashGuid
{
    std::size_t operator()(const Guid& guid) const noexcept;
};

} // namespace Core
