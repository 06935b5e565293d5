#pragma once

namespace Host {

/// Of this program: "1.2.3".
[[nodiscard]] const char* GetVersion() noexcept;

} // namespace Host
