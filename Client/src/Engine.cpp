#include "Engine.h"

#include "Node.h"
#include "StatusWords.h"

#include <OpcUa/SymmetricCiphers.h>
#include <OpcUa/Text.h>
#include <OpcUa/Ua.h>

#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>
#include <open62541/client_subscriptions.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace Client {

namespace {

using OpcUa::BytesOf;
using OpcUa::ViewOf;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char* filesUri = "urn:Talvensor:FileSystem";
constexpr const char* hostUri = "urn:Talvensor:Host";
constexpr const char* coreUri = "urn:Talvensor:Core"; // built in, not brought
constexpr UA_UInt32 listItemNumber = 50;
constexpr UA_UInt32 listItemEncoding = 1320;

/// More is not encoded ahead of what the network takes, so that the time in which a call has to be
/// answered does not begin while it waits here.
constexpr std::size_t outputAhead = std::size_t{1} << 20U;
constexpr UA_UInt32 longestWait = 1'000; // ms; everything that happens ends it

constexpr double publishingInterval = 100; // ms; the host delivers ahead of it
constexpr UA_UInt32 lifetimeCount = 1'200;
constexpr UA_UInt32 keepAliveCount = 100;
constexpr UA_UInt32 eventQueue = 200'000;

constexpr milliseconds firstPause{50};
constexpr milliseconds longestPause{1'000};

/// What the network says; the library's own messages say no more than its statuses do.
[[gnu::format(printf, 4, 0)]] void KeepMessage(void* context, UA_LogLevel level,
                                               UA_LogCategory category, const char* message,
                                               va_list arguments)
{
    if (level < UA_LOGLEVEL_ERROR || category != UA_LOGCATEGORY_NETWORK)
        return;
    std::array<char, 512> text{};
    std::vsnprintf(text.data(), text.size(), message, arguments);
    *static_cast<std::string*>(context) = text.data();
}

/// Reads an attribute value. Empty when there is none.
OpcUa::Ua<UA_Variant> ReadValue(UA_Client& client, UA_UInt32 number)
{
    OpcUa::Ua<UA_Variant> value;
    const UA_StatusCode status =
        UA_Client_readValueAttribute(&client, UA_NODEID_NUMERIC(0, number), &*value);
    if (IsLoss(status))
        throw ConnectionLostException("the connection was lost: " + DescribeStatus(status));
    return value;
}

UA_UInt32 ReadNumber(UA_Client& client, UA_UInt32 number)
{
    const auto value = ReadValue(client, number);
    return UA_Variant_hasScalarType(&*value, &UA_TYPES[UA_TYPES_UINT32])
               ? *static_cast<const UA_UInt32*>(value->data)
               : 0;
}

} // namespace

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

Engine::Engine(ConnectionOptions givenOptions, const Cancellation* cancellation)
    : options(std::move(givenOptions))
    , logger{&KeepMessage, &lastLog, nullptr}
    , loop(logger)
{
    Connect(cancellation);
    ReadNamespaces();
    DescribeTypes();
    sessionToken = GetSessionToken();
    UA_Client_getConfig(client.get())->timeout = static_cast<UA_UInt32>(options.answerTime.count());
    thread = std::thread([this] { RunThread(); });
}

Engine::~Engine()
{
    Close();
}

void Engine::Close() noexcept
{
    if (!thread.joinable())
        return;
    isStopping = true;
    interruption.Notify();
    loop.Wake();
    thread.join();
}

// Facts that the server announces

void Engine::ReadNamespaces()
{
    const auto value = ReadValue(*client, UA_NS0ID_SERVER_NAMESPACEARRAY);
    if (!UA_Variant_hasArrayType(&*value, &UA_TYPES[UA_TYPES_STRING]))
        throw NoConnectionException(options.url + " does not tell its namespaces");
    namespaces = {};
    for (std::size_t i = 0; i < value->arrayLength; ++i)
        namespaces.uris.emplace_back(BytesOf(static_cast<const UA_String*>(value->data)[i]));
    const auto find = [this](const char* uri) {
        const auto found = std::find(namespaces.uris.begin(), namespaces.uris.end(), uri);
        if (found == namespaces.uris.end())
            throw NoConnectionException(options.url + " serves no files: it does not know " + uri);
        return static_cast<UA_UInt16>(found - namespaces.uris.begin());
    };
    namespaces.files = find(filesUri);
    namespaces.host = find(hostUri);
}

/// So that the entries of listings are decoded where they arrive.
void Engine::DescribeTypes()
{
    const auto member = [](const char* name, std::size_t type, std::size_t padding) {
        UA_DataTypeMember described{};
        described.memberName = name;
        described.memberType = &UA_TYPES[type];
        described.padding = padding & 0x3FU;
        return described;
    };
    listItemMembers = {member("path", UA_TYPES_STRING, 0), member("dateTime", UA_TYPES_DATETIME, 0),
                       member("isDirectory", UA_TYPES_BOOLEAN, 0)};
    static_assert(offsetof(ListItem, dateTime) == sizeof(UA_String));
    static_assert(offsetof(ListItem, isDirectory) == sizeof(UA_String) + sizeof(UA_DateTime));
    listItem = {};
    listItem.typeName = "ListItem";
    listItem.typeId = UA_NODEID_NUMERIC(namespaces.files, listItemNumber);
    listItem.binaryEncodingId = UA_NODEID_NUMERIC(namespaces.files, listItemEncoding);
    listItem.memSize = sizeof(ListItem);
    listItem.typeKind = UA_DATATYPEKIND_STRUCTURE;
    listItem.membersSize = listItemMembers.size() & 0xFFU;
    listItem.members = listItemMembers.data();
    UA_Client_getConfig(client.get())->customDataTypes = &types;
}

std::string Engine::GetSessionToken() const
{
    OpcUa::Ua<UA_NodeId> token;
    UA_ByteString nonce = UA_BYTESTRING_NULL;
    if (UA_Client_getSessionAuthenticationToken(client.get(), &*token, &nonce) !=
        UA_STATUSCODE_GOOD)
        return {};
    UA_ByteString_clear(&nonce);
    UA_String text = UA_STRING_NULL;
    UA_NodeId_print(&*token, &text);
    std::string result(BytesOf(text));
    UA_String_clear(&text);
    return result;
}

// The thread

void Engine::RunThread()
{
    while (!isStopping && !isDead) {
        try {
            RunDepartures();
            RunFunctions();
            TakeOverdue();
            TakePosted();
            SendPosted();
            // The calls above run the loop too, and take the wake-up for what has come meanwhile.
            UA_Client_run_iterate(client.get(), HasWork() ? 0 : longestWait);
            UA_StatusCode status = UA_STATUSCODE_GOOD;
            if (!IsActivated(status) && !isStopping)
                HandleLoss();
        } catch (const std::exception& failure) { // of memory: the loss is handled once more
            Break(failure.what());
        }
    }
    Die("the connection was closed");
    while (!isStopping) { // those who listened leave one after the other
        interruption.WaitUntil(
            [this] {
                const std::lock_guard lock(mutex);
                return isStopping || !departures.empty();
            },
            Waiter::Deadline::max());
        RunDepartures();
    }
    // Its farewell lets the server close what is open at once.
    UA_Client_disconnect(client.get());
    client.reset();
}

bool Engine::HasWork()
{
    const std::lock_guard lock(mutex);
    return isStopping || !departures.empty() || !functions.empty() || !posted.empty() ||
           !overdue.empty();
}

void Engine::Post(TicketPointer ticket)
{
    {
        const std::lock_guard lock(mutex);
        if (!isDead) {
            posted.push_back(std::move(ticket));
            ticket = nullptr;
        }
    }
    if (ticket)
        RemoteNode::Lose(*ticket);
    else
        loop.Wake();
}

void Engine::Run(const std::function<void()>& function)
{
    std::promise<void> promise;
    auto done = promise.get_future();
    {
        const std::lock_guard lock(mutex);
        if (isDead)
            throw ConnectionLostException(lossReason);
        functions.emplace_back(&function, &promise);
    }
    loop.Wake();
    done.get();
}

void Engine::RunFunctions()
{
    std::vector<Function> taken;
    {
        const std::lock_guard lock(mutex);
        taken.swap(functions);
    }
    for (auto& [function, promise] : taken) {
        std::exception_ptr failure;
        try {
            (*function)();
        } catch (...) {
            failure = std::current_exception();
        }
        // Handed over as a whole: whoever waits looks into it and ends it.
        if (failure)
            promise->set_exception(std::move(failure));
        else
            promise->set_value();
    }
}

void Engine::EndBy(steady_clock::time_point deadline) noexcept
{
    end = deadline.time_since_epoch().count();
    loop.EndBy(deadline);
    interruption.Notify();
}

bool Engine::HasEnded() const noexcept
{
    return steady_clock::now().time_since_epoch().count() >= end;
}

void Engine::Leave(EventListener& listener) noexcept
{
    std::promise<void> promise;
    auto done = promise.get_future();
    {
        const std::lock_guard lock(mutex);
        departures.push_back({&listener, &promise});
    }
    loop.Wake();
    interruption.Notify();
    done.wait();
}

void Engine::RunDepartures()
{
    std::vector<Departure> taken;
    {
        const std::lock_guard lock(mutex);
        taken.swap(departures);
    }
    for (const auto& departure : taken) {
        std::erase_if(members,
                      [&](const Member& member) { return member.listener == departure.listener; });
        Unsubscribe(*departure.listener);
        departure.listener->OnDead();
        departure.promise->set_value();
    }
    if (isConnected)
        DeleteLeftSubscriptions();
}

void Engine::TakePosted()
{
    const std::lock_guard lock(mutex);
    ready.insert(ready.end(), std::make_move_iterator(posted.begin()),
                 std::make_move_iterator(posted.end()));
    posted.clear();
}

void Engine::SendPosted()
{
    while (!ready.empty() && loop.GetQueuedOutput() < outputAhead) {
        const TicketPointer ticket = std::move(ready.front());
        ready.pop_front();
        try {
            Send(ticket);
        } catch (const std::exception& failure) {
            RemoteNode::Lose(*ticket);
            Break(failure.what());
        }
    }
}

void Engine::Send(const TicketPointer& ticket)
{
    if (!ticket->node->TakeForSending(ticket)) {
        RemoteNode::Lose(*ticket);
        return;
    }
    std::array<UA_Variant, 4> inputs{};
    std::size_t count = 0;
    const auto add = [&](const void* data, std::size_t type) {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): encoding only reads it
        UA_Variant_setScalar(&inputs.at(count++), const_cast<void*>(data), &UA_TYPES[type]);
    };
    const UA_String path = ViewOf(ticket->path);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): encoding only reads it
    const UA_ByteString bytes{ticket->bytes.size(), const_cast<UA_Byte*>(ticket->bytes.data())};
    std::vector<UA_String> paths;
    const auto addEnd = [&] {
        add(&bytes, UA_TYPES_BYTESTRING);
        add(&ticket->time, UA_TYPES_DATETIME);
        add(&ticket->permissions, UA_TYPES_BYTE);
    };
    switch (ticket->method) {
    case Method::Open:
        add(&path, UA_TYPES_STRING);
        add(&ticket->mode, UA_TYPES_INT32);
        break;
    case Method::UploadFile:
        add(&path, UA_TYPES_STRING);
        addEnd();
        break;
    case Method::OpenWrite:
        add(&path, UA_TYPES_STRING);
        add(&bytes, UA_TYPES_BYTESTRING);
        break;
    case Method::Write:
        add(&ticket->handle, UA_TYPES_UINT32);
        add(&bytes, UA_TYPES_BYTESTRING);
        break;
    case Method::WriteClose:
        add(&ticket->handle, UA_TYPES_UINT32);
        addEnd();
        break;
    case Method::Delete:
        for (const auto& each : ticket->paths)
            paths.push_back(ViewOf(each));
        UA_Variant_setArray(inputs.data(), paths.data(), paths.size(), &UA_TYPES[UA_TYPES_STRING]);
        count = 1;
        break;
    case Method::List:
        add(&path, UA_TYPES_STRING);
        add(&ticket->isRecursive, UA_TYPES_BOOLEAN);
        break;
    case Method::CreateDirectory:
    case Method::Exists:
    case Method::GetDateTime:
        add(&path, UA_TYPES_STRING);
        break;
    case Method::SetDateTime:
        add(&path, UA_TYPES_STRING);
        add(&ticket->time, UA_TYPES_DATETIME);
        break;
    case Method::Read:
        add(&ticket->handle, UA_TYPES_UINT32);
        add(&ticket->length, UA_TYPES_UINT32);
        break;
    case Method::SetPosition:
        add(&ticket->handle, UA_TYPES_UINT32);
        add(&ticket->position, UA_TYPES_UINT64);
        break;
    case Method::Close:
    case Method::GetPosition:
        add(&ticket->handle, UA_TYPES_UINT32);
        break;
    }
    UA_CallMethodRequest call{};
    call.objectId = ticket->node->GetId();
    call.methodId = UA_NODEID_NUMERIC(namespaces.files, static_cast<UA_UInt32>(ticket->method));
    call.inputArguments = inputs.data();
    call.inputArgumentsSize = count;
    UA_CallRequest request{};
    request.methodsToCall = &call;
    request.methodsToCallSize = 1;
    auto kept = std::make_unique<TicketPointer>(ticket);
    const UA_StatusCode status = __UA_Client_AsyncService(
        client.get(), &request, &UA_TYPES[UA_TYPES_CALLREQUEST], &Engine::OnAnswer,
        &UA_TYPES[UA_TYPES_CALLRESPONSE], kept.get(), nullptr);
    ticket->bytesOwner.reset(); // encoded
    if (status == UA_STATUSCODE_GOOD) {
        static_cast<void>(kept.release()); // belongs to OnAnswer
        return;
    }
    UA_CallResponse failed{};
    failed.responseHeader.serviceResult = status;
    TakeAnswer(ticket, failed);
}

void Engine::OnAnswer(UA_Client* client, void* userdata, UA_UInt32 /*request*/,
                      void* response) noexcept
{
    const std::unique_ptr<TicketPointer> ticket(static_cast<TicketPointer*>(userdata));
    auto& self = *static_cast<Engine*>(UA_Client_getContext(client));
    try {
        self.TakeAnswer(*ticket, *static_cast<const UA_CallResponse*>(response));
    } catch (const std::exception& failure) {
        RemoteNode::Lose(**ticket);
        self.Break(failure.what());
    }
}

void Engine::TakeAnswer(const TicketPointer& ticket, const UA_CallResponse& response)
{
    UA_StatusCode status = response.responseHeader.serviceResult;
    if (IsLoss(status)) {
        if (status == UA_STATUSCODE_BADTIMEOUT) {
            ticket->isOverdue = true;
            Break(DescribeOverdue(*ticket));
        }
        RemoteNode::Lose(*ticket);
        return;
    }
    if (status == UA_STATUSCODE_GOOD)
        status = response.resultsSize == 1 ? response.results[0].statusCode
                                           : UA_STATUSCODE_BADUNEXPECTEDERROR;
    // The library only reads what is left of it after this.
    UA_Variant* const output =
        status == UA_STATUSCODE_GOOD && response.results[0].outputArgumentsSize > 0
            ? &response.results[0].outputArguments[0]
            : nullptr;
    ticket->node->TakeAnswer(ticket, status, output);
}

std::string Engine::DescribeOverdue(const Ticket& ticket) const
{
    std::string text = GetName(ticket.method);
    const std::string& path = ticket.paths.empty() ? ticket.path : ticket.paths.front();
    if (!path.empty())
        text += " of '" + OpcUa::UnescapeFromUtf8(path) + "'";
    const auto seconds = std::chrono::duration<double>(options.answerTime).count();
    std::array<char, 32> number{};
    std::snprintf(number.data(), number.size(), "%g", seconds);
    return text + " had no answer for " + number.data() + " s";
}

void Engine::GiveUp(const std::string& reason)
{
    {
        const std::lock_guard lock(mutex);
        overdue = reason;
    }
    loop.Wake();
}

void Engine::TakeOverdue()
{
    std::string reason;
    {
        const std::lock_guard lock(mutex);
        reason.swap(overdue);
    }
    if (!reason.empty())
        Break(reason);
}

void Engine::Break(std::string_view reason) noexcept
{
    try {
        breakReason = reason;
    } catch (const std::exception&) {
        breakReason.clear(); // no memory to say why
    }
    loop.Break();
}

// Losing the connection and making it again

void Engine::Report(const std::string& text) const
{
    if (options.report)
        options.report(text);
}

void Engine::HandleLoss()
{
    const std::string reason = breakReason.empty() ? "the connection broke" : breakReason;
    breakReason.clear();
    isConnected = false;
    TellLost();
    TakePosted();
    for (const auto& ticket : std::exchange(ready, {}))
        RemoteNode::Lose(*ticket);
    if (HasEnded()) {
        Die("the connection to " + options.url + " was closed");
        return;
    }
    Report("lost the connection to " + options.url + ": " + reason);
    if (Reconnect())
        Report("connected to " + options.url + " again");
    else if (!isStopping)
        Die("the connection to " + options.url + " was lost: " + reason +
            ", and could not be made again: " + lastLog);
}

bool Engine::Reconnect()
{
    const auto deadline = steady_clock::now() + options.reconnectTime;
    for (auto pause = firstPause; !isStopping; pause = std::min(pause * 2, longestPause)) {
        if (steady_clock::now() >= deadline || HasEnded())
            return false;
        try {
            if (TryReconnect(deadline))
                return true;
        } catch (const RefusedException& refused) {
            lastLog = refused.what();
            if (refused.GetRefusal() != Refusal::Limit)
                return false;                     // trying again would not help
        } catch (const std::exception& failure) { // of memory, too
            lastLog = failure.what();
        }
        const auto resume = std::min(deadline, steady_clock::now() + pause);
        interruption.WaitUntil(
            [this] {
                const std::lock_guard lock(mutex);
                return isStopping || !departures.empty();
            },
            resume);
        RunDepartures();
    }
    return false;
}

bool Engine::TryReconnect(Waiter::Deadline deadline)
{
    UA_ClientConfig& configuration = *UA_Client_getConfig(client.get());
    configuration.timeout = static_cast<UA_UInt32>(options.connectTime.count());
    UA_Client_disconnectSecureChannel(client.get()); // what may be left of it
    lastLog.clear();
    const UA_StatusCode begun = UA_Client_connectAsync(client.get(), options.url.c_str());
    if (begun != UA_STATUSCODE_GOOD)
        ThrowNotConnected(begun);
    AwaitSession(std::min(deadline, steady_clock::now() + options.connectTime), nullptr);
    const std::string token = GetSessionToken();
    if (token != sessionToken) {
        subscriptions.clear(); // they ended with their session
        leftSubscriptions.clear();
        ReadNamespaces();
        DescribeTypes();
        sessionToken = token;
    }
    configuration.timeout = static_cast<UA_UInt32>(options.answerTime.count());
    DeleteLeftSubscriptions();
    TellConnected(token);
    isConnected = true;
    return true;
}

/// The connection may be lost again before all have heard of it. So each one's session is kept:
/// those who have not heard of a new one must not take it for theirs the next time.
void Engine::TellConnected(const std::string& session)
{
    try {
        for (auto& member : members) {
            member.listener->OnConnected(member.session == session);
            member.session = session;
        }
    } catch (...) {
        TellLost();
        throw;
    }
}

void Engine::TellLost()
{
    for (const auto& member : members)
        member.listener->OnLost();
}

void Engine::Die(const std::string& reason)
{
    if (isDead)
        return;
    std::vector<Function> waiting;
    {
        const std::lock_guard lock(mutex);
        isDead = true;
        lossReason = reason;
        waiting.swap(functions);
    }
    TakePosted();
    for (const auto& ticket : std::exchange(ready, {}))
        RemoteNode::Lose(*ticket);
    for (const auto& member : members)
        member.listener->OnDead();
    for (auto& [function, promise] : waiting)
        promise->set_exception(std::make_exception_ptr(ConnectionLostException(reason)));
}

std::string Engine::GetLossReason() const
{
    const std::lock_guard lock(mutex);
    return lossReason;
}

// Events

void Engine::Add(EventListener& listener)
{
    members.push_back({&listener, sessionToken});
}

void Engine::Subscribe(const UA_NodeId& node, EventListener& listener)
{
    Unsubscribe(listener);
    DeleteLeftSubscriptions(); // first: the server allows a number of them
    leftSubscriptions.reserve(leftSubscriptions.size() + subscriptions.size() + 1);
    UA_CreateSubscriptionRequest wanted = UA_CreateSubscriptionRequest_default();
    wanted.requestedPublishingInterval = publishingInterval;
    wanted.requestedLifetimeCount = lifetimeCount;
    wanted.requestedMaxKeepAliveCount = keepAliveCount;
    UA_CreateSubscriptionResponse made =
        UA_Client_Subscriptions_create(client.get(), wanted, nullptr, nullptr, nullptr);
    const UA_StatusCode status = made.responseHeader.serviceResult;
    const UA_UInt32 subscription = made.subscriptionId;
    UA_CreateSubscriptionResponse_clear(&made);
    RequireGood(status, "subscribing");
    subscriptions.insert_or_assign(subscription, &listener);

    struct Field
    {
        UA_UInt16 typeNamespace;
        UA_UInt32 type;
        UA_UInt16 nameNamespace;
        const char* name;
    };
    const UA_UInt16 files = namespaces.files;
    const std::array<Field, eventFields> fields{{
        {0, UA_NS0ID_BASEEVENTTYPE, 0, "EventType"},
        {0, UA_NS0ID_BASEEVENTTYPE, 0, "Time"},
        {files, ackEventType, files, "FileHandle"},
        {files, ackEventType, files, "Result"},
        {files, existsEventType, files, "Exist"},
        {files, listEventType, files, "Content"},
        {files, listEventType, files, "LimitExceeded"},
    }};
    std::array<UA_SimpleAttributeOperand, eventFields> operands{};
    std::array<UA_QualifiedName, eventFields> names{};
    for (std::size_t i = 0; i < fields.size(); ++i) {
        names[i] = {fields[i].nameNamespace, ViewOf(fields[i].name)};
        operands[i].typeDefinitionId = UA_NODEID_NUMERIC(fields[i].typeNamespace, fields[i].type);
        operands[i].attributeId = UA_ATTRIBUTEID_VALUE;
        operands[i].browsePath = &names[i];
        operands[i].browsePathSize = 1;
    }
    UA_EventFilter filter{};
    filter.selectClauses = operands.data();
    filter.selectClausesSize = operands.size();
    UA_MonitoredItemCreateRequest item = UA_MonitoredItemCreateRequest_default(node);
    item.itemToMonitor.attributeId = UA_ATTRIBUTEID_EVENTNOTIFIER;
    item.requestedParameters.queueSize = eventQueue;
    item.requestedParameters.samplingInterval = 0;
    UA_ExtensionObject_setValueNoDelete(&item.requestedParameters.filter, &filter,
                                        &UA_TYPES[UA_TYPES_EVENTFILTER]);
    UA_MonitoredItemCreateResult result = UA_Client_MonitoredItems_createEvent(
        client.get(), subscription, UA_TIMESTAMPSTORETURN_NEITHER, item, nullptr, &Engine::OnEvent,
        nullptr);
    const UA_StatusCode itemStatus = result.statusCode;
    UA_MonitoredItemCreateResult_clear(&result);
    if (itemStatus != UA_STATUSCODE_GOOD)
        Unsubscribe(listener); // deleted before the next one is made
    RequireGood(itemStatus, "listening to the events of the file system");
}

/// The listener hears nothing from now on. The room was made when it subscribed.
void Engine::Unsubscribe(EventListener& listener) noexcept
{
    for (auto entry = subscriptions.begin(); entry != subscriptions.end();) {
        if (entry->second != &listener) {
            ++entry;
            continue;
        }
        leftSubscriptions.push_back(entry->first);
        entry = subscriptions.erase(entry);
    }
}

/// What cannot be deleted now stays for the next connection.
void Engine::DeleteLeftSubscriptions() noexcept
{
    std::erase_if(leftSubscriptions, [this](UA_UInt32 subscription) {
        return !IsLoss(UA_Client_Subscriptions_deleteSingle(client.get(), subscription));
    });
}

void Engine::OnEvent(UA_Client* client, UA_UInt32 subscription, void* /*subscriptionContext*/,
                     UA_UInt32 /*item*/, void* /*itemContext*/, std::size_t count,
                     UA_Variant* fields) noexcept
{
    auto& self = *static_cast<Engine*>(UA_Client_getContext(client));
    const auto found = self.subscriptions.find(subscription);
    if (found == self.subscriptions.end())
        return;
    try {
        found->second->OnEvent(count, fields);
    } catch (const std::exception& failure) {
        // What it said will not be known; so nothing that waits may go on as if it had come.
        self.Break(failure.what());
    }
}

ServerInfo Engine::AskInfo()
{
    ServerInfo info;
    info.url = options.url;
    info.applicationName = applicationName;
    info.applicationUri = applicationUri;
    info.securityPolicy = securityPolicy;
    info.securityMode = securityMode;
    info.fingerprint = fingerprint;
    info.user = options.login ? options.login->user : "";
    info.sessionId = "talvensor-client " + std::to_string(getpid());
    info.sessionTimeout = milliseconds(sessionTimeout);
    info.namespaces = namespaces.uris;
    for (const auto& uri : namespaces.uris)
        if (uri.starts_with("urn:Talvensor:") && uri != hostUri && uri != coreUri)
            info.modules.push_back(uri);
    const auto build = ReadValue(*client, UA_NS0ID_SERVER_SERVERSTATUS_BUILDINFO);
    if (UA_Variant_hasScalarType(&*build, &UA_TYPES[UA_TYPES_BUILDINFO])) {
        const auto& told = *static_cast<const UA_BuildInfo*>(build->data);
        info.productName = BytesOf(told.productName);
        info.softwareVersion = BytesOf(told.softwareVersion);
    }
    info.maximumByteString =
        ReadNumber(*client, UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXBYTESTRINGLENGTH);
    info.maximumArray = ReadNumber(*client, UA_NS0ID_SERVER_SERVERCAPABILITIES_MAXARRAYLENGTH);
    info.maximumCalls = ReadNumber(
        *client, UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERMETHODCALL);
    UA_BrowseDescription description{};
    description.nodeId = UA_NODEID_NUMERIC(namespaces.host, fileSystemsFolder);
    description.resultMask = UA_BROWSERESULTMASK_ALL;
    description.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
    description.includeSubtypes = true;
    description.nodeClassMask = UA_NODECLASS_OBJECT;
    UA_BrowseRequest request{};
    request.nodesToBrowse = &description;
    request.nodesToBrowseSize = 1;
    UA_BrowseResponse response = UA_Client_Service_browse(client.get(), request);
    for (std::size_t i = 0; response.resultsSize == 1 && i < response.results[0].referencesSize;
         ++i) {
        const auto& reference = response.results[0].references[i];
        if (reference.nodeId.nodeId.identifierType == UA_NODEIDTYPE_STRING)
            info.sharedNodes.emplace_back(BytesOf(reference.browseName.name));
    }
    UA_BrowseResponse_clear(&response);
    return info;
}

// The connection as others see it

Connection::Connection(ConnectionOptions options, const Cancellation* cancellation)
    : engine(std::make_unique<Engine>(std::move(options), cancellation))
{}

Connection::~Connection() = default;

void Connection::Close() noexcept
{
    engine->Close();
}

void Connection::EndBy(std::chrono::steady_clock::time_point deadline) noexcept
{
    engine->EndBy(deadline);
}

ServerInfo Connection::GetInfo() const
{
    ServerInfo info;
    engine->Run([&] { info = engine->AskInfo(); });
    return info;
}

} // namespace Client
