#pragma once

#include <open62541/types.h>

#include <string>

namespace Client {

/// Throws ConnectionLostException or CallRefusedException with the name of what failed, unless the
/// status is good.
void RequireGood(UA_StatusCode status, const std::string& what);

/// Returns true for a status that says that the connection or the session is gone, rather than that
/// a request is refused.
[[nodiscard]] bool IsLoss(UA_StatusCode status) noexcept;

} // namespace Client
