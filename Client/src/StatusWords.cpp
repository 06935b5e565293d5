#include "StatusWords.h"

#include <open62541/types_generated.h>

namespace Client {

namespace {

/// Null for what is too rare for words of its own.
const char* FindWords(UA_StatusCode status) noexcept
{
    switch (status) {
    case UA_STATUSCODE_BADCONNECTIONREJECTED:
        return "nobody accepts connections there";
    case UA_STATUSCODE_BADCONNECTIONCLOSED:
    case UA_STATUSCODE_BADSECURECHANNELCLOSED:
    case UA_STATUSCODE_BADDISCONNECT:
    case UA_STATUSCODE_BADNOTCONNECTED:
        return "the other side closed the connection";
    case UA_STATUSCODE_BADTIMEOUT:
    case UA_STATUSCODE_BADREQUESTTIMEOUT:
        return "it does not answer in time";
    case UA_STATUSCODE_BADTCPMESSAGETYPEINVALID:
    case UA_STATUSCODE_BADTCPMESSAGETOOLARGE: // any other protocol's text is no size
    case UA_STATUSCODE_BADTCPENDPOINTURLINVALID:
    case UA_STATUSCODE_BADPROTOCOLVERSIONUNSUPPORTED:
    case UA_STATUSCODE_BADDECODINGERROR:
        return "it does not speak OPC UA";
    case UA_STATUSCODE_BADREQUESTTOOLARGE:
    case UA_STATUSCODE_BADRESPONSETOOLARGE:
    case UA_STATUSCODE_BADENCODINGLIMITSEXCEEDED:
        return "a message is larger than one of both sides takes";
    case UA_STATUSCODE_BADTOOMANYSESSIONS:
        return "it has as many sessions as it allows";
    case UA_STATUSCODE_BADTOOMANYSUBSCRIPTIONS:
    case UA_STATUSCODE_BADTOOMANYMONITOREDITEMS:
    case UA_STATUSCODE_BADTOOMANYOPERATIONS:
    case UA_STATUSCODE_BADRESOURCEUNAVAILABLE:
        return "it has no room for more of that";
    case UA_STATUSCODE_BADOUTOFMEMORY:
    case UA_STATUSCODE_BADTCPNOTENOUGHRESOURCES:
        return "there is not enough memory";
    case UA_STATUSCODE_BADUSERACCESSDENIED:
    case UA_STATUSCODE_BADNOTEXECUTABLE:
        return "this user may not do that";
    case UA_STATUSCODE_BADSESSIONIDINVALID:
    case UA_STATUSCODE_BADSESSIONCLOSED:
    case UA_STATUSCODE_BADSESSIONNOTACTIVATED:
        return "it has ended the session";
    case UA_STATUSCODE_BADSECURITYMODEREJECTED:
    case UA_STATUSCODE_BADSECURITYPOLICYREJECTED:
        return "it does not take this kind of encryption";
    case UA_STATUSCODE_BADSECURITYCHECKSFAILED:
        return "it does not accept how the connection is secured";
    case UA_STATUSCODE_BADCERTIFICATEUNTRUSTED:
        return "the certificate is not trusted";
    case UA_STATUSCODE_BADCERTIFICATEINVALID:
    case UA_STATUSCODE_BADCERTIFICATEURIINVALID:
    case UA_STATUSCODE_BADCERTIFICATEUSENOTALLOWED:
    case UA_STATUSCODE_BADCERTIFICATECHAININCOMPLETE:
        return "the certificate is not in order";
    case UA_STATUSCODE_BADCERTIFICATETIMEINVALID:
        return "the certificate is not valid at this time; a clock may be wrong";
    case UA_STATUSCODE_BADNODEIDUNKNOWN:
    case UA_STATUSCODE_BADMETHODINVALID:
    case UA_STATUSCODE_BADSERVICEUNSUPPORTED:
    case UA_STATUSCODE_BADNOTSUPPORTED:
    case UA_STATUSCODE_BADNOTIMPLEMENTED:
        return "it does not know that";
    case UA_STATUSCODE_BADINVALIDARGUMENT:
    case UA_STATUSCODE_BADTYPEMISMATCH:
    case UA_STATUSCODE_BADARGUMENTSMISSING:
    case UA_STATUSCODE_BADTOOMANYARGUMENTS:
        return "it does not take these arguments";
    case UA_STATUSCODE_BADSHUTDOWN:
    case UA_STATUSCODE_BADSERVERHALTED:
        return "it is ending";
    case UA_STATUSCODE_BADINTERNALERROR:
    case UA_STATUSCODE_BADUNEXPECTEDERROR:
        return "something went wrong inside it";
    default:
        return nullptr;
    }
}

} // namespace

std::string DescribeStatus(UA_StatusCode status)
{
    const std::string name = UA_StatusCode_name(status);
    const char* const words = FindWords(status);
    return words == nullptr ? name : std::string(words) + " (" + name + ")";
}

} // namespace Client
