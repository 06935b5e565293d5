#pragma once

#include <cstddef>
#include <string_view>

namespace Support {

/// Writes the whole text to the descriptor, in several parts if the system takes it so. Returns the
/// number of bytes written; if that is fewer than all, errno tells why.
std::size_t WriteAll(int descriptor, std::string_view text) noexcept;

} // namespace Support
