#pragma once

#include "Client/FileObjects.h"

#include <open62541/types.h>

#include <string>

namespace Client {

/// Describes a status for somebody who moves files, with its name in brackets: "it does not answer
/// in time (BadTimeout)".
[[nodiscard]] std::string DescribeStatus(UA_StatusCode status);

/// Returns the server's own words for a result that is not good, or else those for its status.
[[nodiscard]] std::string DescribeResult(const Result& result);

} // namespace Client
