#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Host {

/// Returns nothing if the text is no number from 0 to 65535.
[[nodiscard]] std::optional<std::uint16_t> ReadPort(std::string_view digits) noexcept;

} // namespace Host
