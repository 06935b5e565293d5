#pragma once

#include "Client/FileSystem.h"

#include <open62541/types.h>

#include <optional>

namespace Client {

/// Returns the time rounded down to seconds; none for the empty time.
[[nodiscard]] std::optional<FileTime> ToFileTime(UA_DateTime time);
[[nodiscard]] UA_DateTime ToUaTime(FileTime time);

} // namespace Client
