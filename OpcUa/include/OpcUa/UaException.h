#pragma once

#include <open62541/types.h>

#include <stdexcept>
#include <string>

namespace OpcUa {

/// The OPC UA library returned a bad status. The text names what failed, on what, and the status.
class UaException : public std::runtime_error
{
public:
    UaException(const std::string& what, UA_StatusCode status);

    [[nodiscard]] UA_StatusCode GetStatus() const noexcept { return status; }

private:
    UA_StatusCode status;
};

/// Throws UaException unless the status is good.
void RequireGood(UA_StatusCode status, const std::string& what);

} // namespace OpcUa
