#include "OpcUa/UaException.h"

namespace OpcUa {

UaException::UaException(const std::string& what, UA_StatusCode status)
    : std::runtime_error(what + ": " + UA_StatusCode_name(status))
    , status(status)
{}

void RequireGood(UA_StatusCode status, const std::string& what)
{
    if (status != UA_STATUSCODE_GOOD)
        throw UaException(what, status);
}

} // namespace OpcUa
