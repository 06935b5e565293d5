#pragma once

namespace Cli {

[[nodiscard]] const char* GetVersion() noexcept;

} // namespace Cli
