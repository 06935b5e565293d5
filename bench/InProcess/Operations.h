#pragma once

#include "Host.h"
#include "Operation.h"

#include <filesystem>

namespace Bench {

/// Each returns an operation and its reference. `folder` is empty and on a memory file system. The
/// operations use `host`, which must outlive them.
[[nodiscard]] Operations MakeExistsOperations(Host& host, const std::filesystem::path& folder);
[[nodiscard]] Operations MakeUploadOperations(Host& host, const std::filesystem::path& folder);
[[nodiscard]] Operations MakeBlocksOperations(Host& host, const std::filesystem::path& folder);
[[nodiscard]] Operations MakeReadOperations(Host& host, const std::filesystem::path& folder);
[[nodiscard]] Operations MakeListOperations(Host& host, const std::filesystem::path& folder);
[[nodiscard]] Operations MakeTraceOperations(const std::filesystem::path& folder);

} // namespace Bench
