#pragma once

#include "Caller.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Client {

/// Returns the sizes of files, found by reading at positions. None where a file cannot be opened.
/// Throws what Caller's waiting throws but CallsLost.
[[nodiscard]] std::vector<std::optional<std::uint64_t>>
FindSizes(Caller& caller, std::span<const std::string> paths);

/// Returns the size of an open file; its position is anywhere afterwards. Throws CallsLost too.
[[nodiscard]] std::uint64_t FindSize(Caller& caller, std::uint32_t handle);

} // namespace Client
