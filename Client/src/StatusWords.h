#pragma once

#include <open62541/types.h>

#include <string>

namespace Client {

/// Describes a status for somebody who moves files, with its name in brackets: "it does not answer
/// in time (BadTimeout)".
[[nodiscard]] std::string DescribeStatus(UA_StatusCode status);

} // namespace Client
