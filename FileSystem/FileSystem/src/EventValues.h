#pragma once

#include "Core/Node.h"
#include "Core/Value.h"

#include <vector>

namespace FileSystem {

/// Returns the values of an event: empty but for the event's type, at `eventTypeIndex`.
[[nodiscard]] std::vector<Core::Value> MakeEventValues(const Core::IObjectType& type,
                                                       unsigned int eventTypeIndex);

} // namespace FileSystem
