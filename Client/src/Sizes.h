#pragma once

#include "Caller.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Client {

/// The sizes of files, found by reading at positions. None where a file cannot be opened. Throws
/// what Caller's waiting throws but CallsLost.
[[nodiscard]] std::vector<std::optional<std::uint64_t>>
FindSizes(Caller& caller, std::span<const std::string> paths);

/// The size of an open file; its position is anywhere afterwards. Throws CallsLost too.
[[nodiscard]] std::uint64_t FindSize(Caller& caller, std::uint32_t handle);

/// The flags on the wire.
[[nodiscard]] UA_Byte MakePermissions(Permissions permissions) noexcept;

} // namespace Client
