#include "StatusWords.h"

#include <open62541/types_generated.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace Client {

namespace {

constexpr std::size_t mostStatuses = 5;

struct StatusGroup
{
    const char* text;
    std::array<UA_StatusCode, mostStatuses> statuses; ///< then UA_STATUSCODE_GOOD
};

/// The statuses that are common enough for words of their own.
constexpr std::array statusGroups{
    StatusGroup{"Connection refused", {UA_STATUSCODE_BADCONNECTIONREJECTED}},
    StatusGroup{"the server closed the connection",
                {UA_STATUSCODE_BADCONNECTIONCLOSED, UA_STATUSCODE_BADSECURECHANNELCLOSED,
                 UA_STATUSCODE_BADDISCONNECT, UA_STATUSCODE_BADNOTCONNECTED}},
    StatusGroup{"no answer in time", {UA_STATUSCODE_BADTIMEOUT, UA_STATUSCODE_BADREQUESTTIMEOUT}},
    // A message of any other protocol has a text where OPC UA has the size.
    StatusGroup{"it does not speak OPC UA",
                {UA_STATUSCODE_BADTCPMESSAGETYPEINVALID, UA_STATUSCODE_BADTCPMESSAGETOOLARGE,
                 UA_STATUSCODE_BADTCPENDPOINTURLINVALID,
                 UA_STATUSCODE_BADPROTOCOLVERSIONUNSUPPORTED, UA_STATUSCODE_BADDECODINGERROR}},
    StatusGroup{"the message is too large",
                {UA_STATUSCODE_BADREQUESTTOOLARGE, UA_STATUSCODE_BADRESPONSETOOLARGE,
                 UA_STATUSCODE_BADENCODINGLIMITSEXCEEDED}},
    StatusGroup{"it has too many sessions", {UA_STATUSCODE_BADTOOMANYSESSIONS}},
    StatusGroup{"it has too many of these",
                {UA_STATUSCODE_BADTOOMANYSUBSCRIPTIONS, UA_STATUSCODE_BADTOOMANYMONITOREDITEMS,
                 UA_STATUSCODE_BADTOOMANYOPERATIONS, UA_STATUSCODE_BADRESOURCEUNAVAILABLE}},
    StatusGroup{"not enough memory",
                {UA_STATUSCODE_BADOUTOFMEMORY, UA_STATUSCODE_BADTCPNOTENOUGHRESOURCES}},
    StatusGroup{"Permission denied",
                {UA_STATUSCODE_BADUSERACCESSDENIED, UA_STATUSCODE_BADNOTEXECUTABLE}},
    StatusGroup{"it closed the session",
                {UA_STATUSCODE_BADSESSIONIDINVALID, UA_STATUSCODE_BADSESSIONCLOSED,
                 UA_STATUSCODE_BADSESSIONNOTACTIVATED}},
    StatusGroup{"it does not support this encryption",
                {UA_STATUSCODE_BADSECURITYMODEREJECTED, UA_STATUSCODE_BADSECURITYPOLICYREJECTED}},
    StatusGroup{"it refuses the certificate, or this kind of security",
                {UA_STATUSCODE_BADSECURITYCHECKSFAILED}},
    StatusGroup{"the certificate is not trusted", {UA_STATUSCODE_BADCERTIFICATEUNTRUSTED}},
    StatusGroup{"the certificate is invalid",
                {UA_STATUSCODE_BADCERTIFICATEINVALID, UA_STATUSCODE_BADCERTIFICATEURIINVALID,
                 UA_STATUSCODE_BADCERTIFICATEUSENOTALLOWED,
                 UA_STATUSCODE_BADCERTIFICATECHAININCOMPLETE}},
    StatusGroup{"the certificate is not valid at this time; a clock may be wrong",
                {UA_STATUSCODE_BADCERTIFICATETIMEINVALID}},
    StatusGroup{"no such node or method",
                {UA_STATUSCODE_BADNODEIDUNKNOWN, UA_STATUSCODE_BADMETHODINVALID,
                 UA_STATUSCODE_BADSERVICEUNSUPPORTED, UA_STATUSCODE_BADNOTSUPPORTED,
                 UA_STATUSCODE_BADNOTIMPLEMENTED}},
    StatusGroup{"invalid arguments",
                {UA_STATUSCODE_BADINVALIDARGUMENT, UA_STATUSCODE_BADTYPEMISMATCH,
                 UA_STATUSCODE_BADARGUMENTSMISSING, UA_STATUSCODE_BADTOOMANYARGUMENTS}},
    StatusGroup{"it is shutting down", {UA_STATUSCODE_BADSHUTDOWN, UA_STATUSCODE_BADSERVERHALTED}},
    StatusGroup{"internal server error",
                {UA_STATUSCODE_BADINTERNALERROR, UA_STATUSCODE_BADUNEXPECTEDERROR}},
};

/// Returns null for a status without words of its own.
const char* FindWords(UA_StatusCode status) noexcept
{
    if (status == UA_STATUSCODE_GOOD)
        return nullptr;
    for (const auto& group : statusGroups)
        if (std::find(group.statuses.begin(), group.statuses.end(), status) != group.statuses.end())
            return group.text;
    return nullptr;
}

} // namespace

std::string DescribeStatus(UA_StatusCode status)
{
    const std::string name = UA_StatusCode_name(status);
    const char* const words = FindWords(status);
    return words == nullptr ? name : std::string(words) + " (" + name + ")";
}

std::string DescribeResult(const Result& result)
{
    return result.reason.empty() ? DescribeStatus(result.status) : result.reason;
}

} // namespace Client
