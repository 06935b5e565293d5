#pragma once

#include "Endpoint/Interposition.h"
#include "Endpoint/NodeStore.h"
#include "OpcUa/LibraryAssumptions.h"

#include <open62541/server.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Host {

// Everything that the host assumes of open62541 beyond what its documentation promises. Each is
// named here once, with the place in the library's source (of 1.4.18) that it comes from; other
// sources of the host call these names. The `Require` functions check at the start of a server what
// can be checked there, and throw OpcUa::LibraryException. The assumptions of both ends, version
// and types, are in OpcUa/LibraryAssumptions.h. `./talvensor library-versions` runs the host with
// every version that can be had.
//
// Assumptions that need a client and cannot be checked at the start; the tests of the endpoint
// check them with real clients:
//
// - Publishing. A subscription publishes from a cyclic callback, and no other one is registered
//   while a message is handled before a client has a subscription (Subscription_setState in
//   server/ua_subscription.c). EventLoop::DeliverEvents relies on it. Tests: events, subscriptions.
// - Answers. The library looks at a call's request no more once it is queued, and names the call by
//   the address of its operation (UA_AsyncManager_createAsyncOp in server/ua_server_async.c).
//   MethodCalls takes the request's contents and CallBook tells the addresses apart. Tests: calls.
// - Sessions. A session's object is made when it is created, and its identifier is asked for before
//   its first child is made; a refusal is logged and nothing else (createSessionObject in
//   server/ua_server_ns0_diagnostics.c, copyChild in server/ua_services_nodemanagement.c).
//   Tests: sessions, privacy.
// - Closing. closeSession of the access control is called once for each session that was created,
//   with the context that activateSession has set, or null (UA_Server_removeSession in
//   server/ua_services_session.c). Tests: sessions, attacks.
// - Notifications. One answer to a request to publish holds everything that waits, up to
//   maxNotificationsPerPublish, whatever its size (prepareNotificationMessage in
//   server/ua_subscription.c), and the diagnostics of a subscription count what was sent and
//   dropped (fillSubscriptionDiagnostics in server/ua_server_ns0_diagnostics.c). EventPacing and
//   EventBacklog rely on it. Tests: memory, subscriptions.
// - Provided nodes. The library gets the object of a call right after its method, with the masks
//   that ProvidedNodes knows (Operation_CallMethodAsync in server/ua_services_method.c), and the
//   start of Browse and TranslateBrowsePaths with no more than class and names
//   (server/ua_services_view.c): with other masks, nodes would be looked up in vain. It reads nodes
//   that it has released only in order to delete them (deleteNodeSet in
//   server/ua_services_nodemanagement.c), and changes none in its place but its monitored items,
//   for which it asks for everything (UA_Server_editNode in server/ua_server_utils.c). It looks for
//   the last entry of a page in the references that it gets for the next one (browseWithNode in
//   server/ua_services_view.c). A Browse copies the identifier of each reference with UA_copy,
//   through the dynamic linker, and ends with the status of a copy that fails
//   (addReferenceDescription there). Tests: provided.
// - Freeing. The library leaves the freeing of closed sessions and channels to delayed callbacks,
//   also when a server is deleted, and the loop runs these when it is freed
//   (UA_Server_removeSession in server/ua_services_session.c). Tests: all of them under asan.
// - Locks. The callbacks of the access control, of the node store, for monitored items and for
//   queued calls run with the server's lock held, on the thread that handles a message or calls the
//   server. This lock and the loop's are recursive, and the loop's is taken first (lockServer in
//   server/ua_server.c). So these callbacks may call the server. Tests: all of them under tsan.

/// A configuration with room behind it, for a library in which it is larger than here.
struct RoomyConfiguration
{
    UA_ServerConfig configuration{};
    std::array<std::byte, 4096> room{};
};

/// Requires that the library fills in its defaults at the places where this program finds them
/// (setDefaultConfig in plugins/ua_config_default.c, the structure in server.h), and that these say
/// a version that fits, which is noted. `loop`: the one that was in it before it was filled.
void RequireConfiguration(const RoomyConfiguration& filled, const UA_EventLoop* loop);

/// Counts the cyclic callbacks that are registered at a loop while it lives. One at a time.
class CyclicCallbackCount
{
public:
    explicit CyclicCallbackCount(UA_EventLoop& loop) noexcept;
    CyclicCallbackCount(const CyclicCallbackCount&) = delete;
    CyclicCallbackCount& operator=(const CyclicCallbackCount&) = delete;
    ~CyclicCallbackCount();

    [[nodiscard]] std::size_t Get() const noexcept;

private:
    UA_EventLoop& loop;
    decltype(UA_EventLoop::addCyclicCallback) behind;
    const std::size_t before;
};

/// Requires that one cyclic callback was registered while a server was made: the one that sends the
/// results of asynchronous calls (UA_AsyncManager_init in server/ua_server_async.c), which
/// EventLoop::FlushAnswers calls between its times.
void RequireAnsweringCallback(std::size_t count);

/// Without a time limit for calls the answering callback does nothing (checkTimeouts in
/// server/ua_server_async.c); this one is never reached.
inline constexpr double callLimitInMilliseconds = 1e12;

/// Requires that a monitored item hangs on the head of its node as it is in the store
/// (addMonitoredItemBackpointer in server/ua_subscription_monitoreditem.c; the hash map of
/// plugins/ua_nodestore_hashmap.c gives nodes and not copies). HiddenSubscribers takes the items of
/// a node off for a while.
void RequireItemsOnNodes(UA_Server& server);

/// Requires that the library copies the parameters of a monitored item with UA_copy, through the
/// dynamic linker (Operation_CreateMonitoredItem in server/ua_services_monitoreditem.c).
/// EventFilters adapts them there. `count`: returns how many this program has seen.
void RequireParameterCopies(UA_Server& server,
                            std::uint64_t (*count)() noexcept = &CountParameterCopies);

/// The library refuses a filter with more (UA_EVENTFILTER_MAXSELECT in server/ua_subscription.h).
/// It does not tell the number; with a larger one, some fields of the clauses beyond would be
/// refused instead of empty.
inline constexpr std::size_t mostSelectClauses = 64;

/// Requires that services take nodes from the store of the configuration each time, also to read
/// (UA_NODESTORE_GET in server/ua_server_internal.h). NodeStore hides nodes from clients there.
void RequireNodesFromStore(UA_Server& server, NodeStore& store);

/// Returns the mask with which the library asks the store for a node whose value it reads: some
/// versions name another attribute (attr2mask in server/ua_services_attribute.c). Requires that it
/// is not the one for the data type. ProvidedNodes leaves it to the source of a value whether its
/// node exists.
[[nodiscard]] UA_UInt32 FindValueAttributes(UA_Server& server, const NodeStore& store);

/// Requires that the library leaves it to the store to number new nodes (addNode_raw and copyChild
/// in server/ua_services_nodemanagement.c). NodeStore gives them numbers by which they are told
/// from those of the models.
void RequireNumbersFromStore(UA_Server& server);

/// The fields of an event, in the base namespace, that the library fills in when it raises it
/// (eventSetStandardFields in server/ua_subscription_events.c).
inline constexpr std::array<std::string_view, 4> filledFields{"EventId", "EventType", "SourceNode",
                                                              "ReceiveTime"};
/// Requires that it does.
void RequireFilledFields(UA_Server& server);

/// Requires that the library serves the definitions of data types through UA_Variant_setScalarCopy,
/// called through the dynamic linker (ReadWithNode in server/ua_services_attribute.c). `areServed`:
/// those of DataTypeDefinitions were found when read.
void RequireServedDefinitions(bool areServed);

/// True for an identifier as sessions have them: a Guid in the namespace of the server's own nodes
/// (UA_Server_createSession in server/ua_services_session.c). Sessions refuses others.
[[nodiscard]] bool IsSessionId(const UA_NodeId& id) noexcept;

/// Does all of the checks that need a server without further objects, before it starts.
void RequireServerAssumptions(UA_Server& server, NodeStore& store);

} // namespace Host
