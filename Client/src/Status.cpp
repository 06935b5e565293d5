#include "Status.h"

#include "Client/Exceptions.h"
#include "StatusWords.h"

#include <open62541/types_generated.h>

namespace Client {

void RequireGood(UA_StatusCode status, const std::string& what)
{
    if (status == UA_STATUSCODE_GOOD)
        return;
    if (IsLoss(status))
        throw ConnectionLostException(what +
                                      ": the connection was lost: " + DescribeStatus(status));
    throw CallRefusedException(what + ": " + DescribeStatus(status), status);
}

bool IsLoss(UA_StatusCode status) noexcept
{
    switch (status) {
    case UA_STATUSCODE_BADCONNECTIONCLOSED:
    case UA_STATUSCODE_BADCONNECTIONREJECTED:
    case UA_STATUSCODE_BADSECURECHANNELCLOSED:
    case UA_STATUSCODE_BADSECURECHANNELIDINVALID:
    case UA_STATUSCODE_BADSECURECHANNELTOKENUNKNOWN:
    case UA_STATUSCODE_BADSESSIONCLOSED:
    case UA_STATUSCODE_BADSESSIONIDINVALID:
    case UA_STATUSCODE_BADSESSIONNOTACTIVATED:
    case UA_STATUSCODE_BADSERVERNOTCONNECTED:
    case UA_STATUSCODE_BADTIMEOUT:
    case UA_STATUSCODE_BADREQUESTTIMEOUT:
    case UA_STATUSCODE_BADSHUTDOWN:
    case UA_STATUSCODE_BADSERVERHALTED:
    case UA_STATUSCODE_BADDISCONNECT:
    case UA_STATUSCODE_BADCOMMUNICATIONERROR:
        return true;
    default:
        return false;
    }
}

} // namespace Client
