#include "Endpoint/AccessControl.h"

#include "Endpoint/ClientTrust.h"
#include "Endpoint/LibraryAssumptions.h"
#include "Endpoint/Ua.h"
#include "Log/Log.h"

#include <fmt/format.h>

#include <exception>
#include <optional>
#include <string>

namespace Host {
namespace {

constexpr UA_Byte readOnly = UA_ACCESSLEVELMASK_READ;

/// Reads a token: credentials, an empty optional for an anonymous one, nothing for any other kind,
/// since certificates of users are never accepted.
std::optional<std::optional<UserCredentials>> ReadToken(const UA_ExtensionObject& token)
{
    const bool isDecoded = token.encoding == UA_EXTENSIONOBJECT_DECODED ||
                           token.encoding == UA_EXTENSIONOBJECT_DECODED_NODELETE;
    if (token.encoding == UA_EXTENSIONOBJECT_ENCODED_NOBODY)
        return std::optional<UserCredentials>(); // an empty token is an anonymous one
    if (!isDecoded)
        return std::nullopt;
    const auto& content = token.content.decoded;
    if (content.type == &UA_TYPES[UA_TYPES_ANONYMOUSIDENTITYTOKEN])
        return std::optional<UserCredentials>();
    if (content.type != &UA_TYPES[UA_TYPES_USERNAMEIDENTITYTOKEN])
        return std::nullopt;
    const auto& login = *static_cast<const UA_UserNameIdentityToken*>(content.data);
    return UserCredentials{std::string(BytesOf(login.userName)),
                           std::string(BytesOf(login.password))};
}

/// True for the methods of the models, whose objects `MethodCalls` checks.
bool IsOfModel(const UA_NodeId& method)
{
    constexpr UA_UInt16 firstOfOurs = 2; // after the base model and the server itself
    return method.namespaceIndex >= firstOfOurs;
}

/// True for the methods of the server that clients may call. Of those which the library brings,
/// these are the two that concern a client's own subscriptions; some of the others change the
/// address space.
bool IsOfServer(const UA_NodeId& method)
{
    return method.namespaceIndex == 0 && method.identifierType == UA_NODEIDTYPE_NUMERIC &&
           (method.identifier.numeric == UA_NS0ID_SERVER_GETMONITOREDITEMS ||
            method.identifier.numeric == UA_NS0ID_SERVER_RESENDDATA);
}

UA_UserTokenPolicy MakePolicy(const char* id, UA_UserTokenType type)
{
    UA_UserTokenPolicy policy;
    UA_UserTokenPolicy_init(&policy);
    policy.policyId = ViewOf(id);
    policy.tokenType = type;
    return policy;
}

} // namespace

/// The library's callbacks. No exception passes them.
struct AccessControl::Callbacks
{
    static AccessControl& Self(UA_AccessControl* control)
    {
        return *static_cast<AccessControl*>(control->context);
    }

    static UA_StatusCode Activate(UA_Server* server, UA_AccessControl* control,
                                  const UA_EndpointDescription* /*endpoint*/,
                                  const UA_ByteString* certificate, const UA_NodeId* id,
                                  const UA_ExtensionObject* token, void** context) noexcept
    {
        try {
            // It may have been trusted when its connection was made, and not be so any more.
            if (!Accepts(UA_Server_getConfig(server)->secureChannelPKI, *certificate))
                return UA_STATUSCODE_BADCERTIFICATEUNTRUSTED;
            const auto credentials = ReadToken(*token);
            return credentials ? Self(control).sessions.Activate(*server, *id, *certificate,
                                                                 *credentials, context)
                               : UA_STATUSCODE_BADIDENTITYTOKENINVALID;
        } catch (const std::exception& exception) {
            Log(Core::LogLevel::Error, "Session",
                fmt::format("Cannot activate a session: {}", exception.what()));
            return UA_STATUSCODE_BADINTERNALERROR;
        }
    }

    /// Learns of a created session, and refuses the object that the library makes for it, which
    /// others could browse. The library announces a session by this object alone: it asks for the
    /// identifier of the object's first child before it makes it.
    static UA_StatusCode OnChild(UA_Server* server, const UA_NodeId* /*sessionId*/,
                                 void* /*context*/, const UA_NodeId* /*source*/,
                                 const UA_NodeId* parent, const UA_NodeId* /*referenceType*/,
                                 UA_NodeId* /*child*/) noexcept
    {
        if (!IsSessionId(*parent))
            return UA_STATUSCODE_GOOD;
        try {
            Self(&UA_Server_getConfig(server)->accessControl)
                .sessions.OnCreated(*server, parent->identifier.guid);
        } catch (const std::exception& exception) {
            Log(Core::LogLevel::Error, "Session",
                fmt::format("Cannot follow a session: {}", exception.what()));
        }
        return UA_STATUSCODE_BADNOTSUPPORTED;
    }

    static void Close(UA_Server* /*server*/, UA_AccessControl* control, const UA_NodeId* id,
                      void* context) noexcept
    {
        try {
            Self(control).sessions.OnClosed(*id, static_cast<ClientSession*>(context));
        } catch (const std::exception& exception) {
            Log(Core::LogLevel::Error, "Session",
                fmt::format("Cannot end a session: {}", exception.what()));
        }
    }

    static bool MayCallOfBase(UA_AccessControl* control, const UA_NodeId& method,
                              const UA_NodeId* object) noexcept
    {
        try {
            return Self(control).isCallable(method, object);
        } catch (const std::exception&) {
            return false;
        }
    }

    static UA_Boolean MayCall(UA_Server* /*server*/, UA_AccessControl* control,
                              const UA_NodeId* /*sessionId*/, void* /*context*/,
                              const UA_NodeId* method, void* /*methodContext*/) noexcept
    {
        return IsOfModel(*method) || IsOfServer(*method) ||
               MayCallOfBase(control, *method, nullptr);
    }

    static UA_Boolean MayCallOnObject(UA_Server* /*server*/, UA_AccessControl* control,
                                      const UA_NodeId* /*sessionId*/, void* /*context*/,
                                      const UA_NodeId* method, void* /*methodContext*/,
                                      const UA_NodeId* object, void* /*objectContext*/) noexcept
    {
        const UA_NodeId serverObject = UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER);
        return IsOfModel(*method) ||
               (IsOfServer(*method) && UA_NodeId_equal(object, &serverObject)) ||
               MayCallOfBase(control, *method, object);
    }

    static UA_Byte GetAccessLevel(UA_Server* /*server*/, UA_AccessControl* control,
                                  const UA_NodeId* /*sessionId*/, void* context,
                                  const UA_NodeId* node, void* /*nodeContext*/) noexcept
    {
        try {
            const auto* session = static_cast<const ClientSession*>(context);
            return Self(control).isReadable(*node, session) ? readOnly : 0;
        } catch (const std::exception&) {
            return 0;
        }
    }
};

AccessControl::AccessControl(Sessions& sessions, const SessionRules& rules)
    : sessions(sessions)
    , isReadable([](const UA_NodeId&, const ClientSession*) { return true; })
    , isCallable([](const UA_NodeId&, const UA_NodeId*) { return false; })
{
    if (rules.anonymousAllowed)
        tokenPolicies.push_back(MakePolicy("anonymous", UA_USERTOKENTYPE_ANONYMOUS));
    if (rules.usersAllowed)
        tokenPolicies.push_back(MakePolicy("username", UA_USERTOKENTYPE_USERNAME));
}

void AccessControl::Install(UA_ServerConfig& configuration)
{
    UA_AccessControl& control = configuration.accessControl;
    if (control.clear != nullptr)
        control.clear(&control);
    control = UA_AccessControl{};
    control.context = this;
    control.clear = [](UA_AccessControl*) {
    };
    control.userTokenPolicies = tokenPolicies.data();
    control.userTokenPoliciesSize = tokenPolicies.size();
    control.activateSession = Callbacks::Activate;
    control.closeSession = Callbacks::Close;
    configuration.nodeLifecycle.generateChildNodeId = Callbacks::OnChild;
    // Of nodes of others, the node store has none for a session.
    control.allowBrowseNode = [](auto...) -> UA_Boolean {
        return true;
    };

    // Clients read, browse and call; nothing else.
    control.getUserRightsMask = [](auto...) -> UA_UInt32 {
        return 0;
    };
    control.getUserAccessLevel = Callbacks::GetAccessLevel;
    control.getUserExecutable = Callbacks::MayCall;
    control.getUserExecutableOnObject = Callbacks::MayCallOnObject;
    control.allowAddNode = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowAddReference = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowDeleteNode = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowDeleteReference = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowTransferSubscription = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowHistoryUpdateUpdateData = [](auto...) -> UA_Boolean {
        return false;
    };
    control.allowHistoryUpdateDeleteRawModified = [](auto...) -> UA_Boolean {
        return false;
    };
}

} // namespace Host
