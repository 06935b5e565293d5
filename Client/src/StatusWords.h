#pragma once

#include <open62541/types.h>

#include <string>

namespace Client {

/// In plain words what a status means to somebody who moves files, with its name in brackets:
/// "it does not answer in time (BadTimeout)".
[[nodiscard]] std::string DescribeStatus(UA_StatusCode status);

} // namespace Client
