#include "Node.h"

#include <OpcUa/Text.h>
#include <OpcUa/Ua.h>

#include <open62541/client_highlevel.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <utility>

namespace Client {

using OpcUa::BytesOf;

std::optional<FileTime> ToFileTime(UA_DateTime time)
{
    if (time == 0)
        return std::nullopt;
    // Rounded down, also before 1970.
    const UA_DateTime ticks = time - UA_DATETIME_UNIX_EPOCH;
    UA_DateTime seconds = ticks / UA_DATETIME_SEC;
    if (ticks % UA_DATETIME_SEC < 0)
        --seconds;
    return FileTime(std::chrono::seconds(seconds));
}

UA_DateTime ToUaTime(FileTime time)
{
    return time.time_since_epoch().count() * UA_DATETIME_SEC + UA_DATETIME_UNIX_EPOCH;
}

std::vector<ListEntry> TakeEntries(const UA_Variant& content)
{
    std::vector<ListEntry> entries;
    if (content.type == nullptr || UA_Variant_isScalar(&content))
        return entries;
    entries.reserve(content.arrayLength);
    const auto add = [&entries](const ListItem& item) {
        entries.push_back({OpcUa::UnescapeFromUtf8(BytesOf(item.path)), ToFileTime(item.dateTime),
                           item.isDirectory});
    };
    if (content.type->memSize == sizeof(ListItem) &&
        content.type->typeKind == UA_DATATYPEKIND_STRUCTURE) {
        for (std::size_t i = 0; i < content.arrayLength; ++i)
            add(static_cast<const ListItem*>(content.data)[i]);
        return entries;
    }
    if (content.type != &UA_TYPES[UA_TYPES_EXTENSIONOBJECT])
        return entries;
    for (std::size_t i = 0; i < content.arrayLength; ++i) {
        const auto& object = static_cast<const UA_ExtensionObject*>(content.data)[i];
        const bool isDecoded = object.encoding == UA_EXTENSIONOBJECT_DECODED ||
                               object.encoding == UA_EXTENSIONOBJECT_DECODED_NODELETE;
        if (isDecoded && object.content.decoded.type->memSize == sizeof(ListItem))
            add(*static_cast<const ListItem*>(object.content.decoded.data));
    }
    return entries;
}

UA_UInt32 GetEventType(const UA_Variant& type, UA_UInt16 files)
{
    if (!UA_Variant_hasScalarType(&type, &UA_TYPES[UA_TYPES_NODEID]))
        return 0;
    const auto& id = *static_cast<const UA_NodeId*>(type.data);
    return id.namespaceIndex == files && id.identifierType == UA_NODEIDTYPE_NUMERIC
               ? id.identifier.numeric
               : 0;
}

bool IsOverflow(const UA_Variant& type)
{
    if (!UA_Variant_hasScalarType(&type, &UA_TYPES[UA_TYPES_NODEID]))
        return false;
    const UA_NodeId overflow = UA_NODEID_NUMERIC(0, UA_NS0ID_EVENTQUEUEOVERFLOWEVENTTYPE);
    return UA_NodeId_equal(static_cast<const UA_NodeId*>(type.data), &overflow);
}

RemoteNode::RemoteNode(Engine& engine)
    : engine(engine)
{}

RemoteNode::~RemoteNode()
{
    UA_NodeId_clear(&id);
}

void RemoteNode::Open()
{
    engine.Run([this] {
        Make();
        engine.Add(*this);
        BeginEpoch();
    });
}

void RemoteNode::Close() noexcept
{
    engine.Leave(*this);
}

void RemoteNode::Make()
{
    const UA_UInt16 host = engine.GetNamespaces().host;
    std::size_t count = 0;
    UA_Variant* outputs = nullptr;
    const UA_StatusCode status = UA_Client_call(
        engine.GetClient(), UA_NODEID_NUMERIC(host, fileSystemsFolder),
        UA_NODEID_NUMERIC(host, createFileSystemMethod), 0, nullptr, &count, &outputs);
    if (status == UA_STATUSCODE_BADRESOURCEUNAVAILABLE)
        throw RefusedException(Refusal::Limit, "the session has as many file systems as the "
                                               "server allows");
    RequireGood(status, "CreateFileSystem");
    UA_NodeId_clear(&id);
    if (count == 1 && UA_Variant_hasScalarType(outputs, &UA_TYPES[UA_TYPES_NODEID]))
        std::swap(id, *static_cast<UA_NodeId*>(outputs->data));
    UA_Array_delete(outputs, count, &UA_TYPES[UA_TYPES_VARIANT]);
    if (UA_NodeId_isNull(&id))
        throw CallRefusedException("CreateFileSystem returned no node",
                                   UA_STATUSCODE_BADUNEXPECTEDERROR);
    engine.Subscribe(id, *this);
}

RemoteNode::State RemoteNode::Await(Waiter& waiter, const Cancellation* cancellation)
{
    const auto isSettled = [this] {
        const std::lock_guard lock(mutex);
        return isReady || isDead;
    };
    {
        const std::lock_guard lock(mutex);
        waiters.insert(&waiter);
    }
    struct Leave
    {
        RemoteNode& node;
        Waiter& waiter;
        ~Leave()
        {
            const std::lock_guard lock(node.mutex);
            node.waiters.erase(&waiter);
        }
    };
    const Leave leave{*this, waiter};
    // Behind the connection there is the mark, which what was asked before it may hold up.
    const auto limit = engine.GetOptions().reconnectTime + engine.GetOptions().answerTime;
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (!waiter.WaitUntil(isSettled, cancellation, deadline)) {
        const auto later = GetLastLife() + limit;
        if (later <= deadline)
            throw ConnectionLostException("the server does not say that what was asked before the "
                                          "connection was lost is over");
        deadline = later;
    }
    const std::lock_guard lock(mutex);
    if (isDead)
        throw ConnectionLostException(engine.GetLossReason());
    return state;
}

void RemoteNode::ShowLife() noexcept
{
    lastLife = std::chrono::steady_clock::now().time_since_epoch().count();
}

// The connection comes and goes

void RemoteNode::OnConnected(bool isSameSession)
{
    if (!isSameSession) {
        Make();
        {
            const std::lock_guard lock(mutex);
            ++state.incarnation;
        }
        BeginEpoch();
        return;
    }
    engine.Subscribe(id, *this);
    SendMark();
}

void RemoteNode::SendMark()
{
    static std::random_device random;
    mark = std::uniform_int_distribution<std::uint32_t>()(random);
    UA_Variant input{};
    UA_Variant_setScalar(&input, &*mark, &UA_TYPES[UA_TYPES_UINT32]);
    std::size_t count = 0;
    UA_Variant* outputs = nullptr;
    const UA_StatusCode status = UA_Client_call(
        engine.GetClient(), id,
        UA_NODEID_NUMERIC(engine.GetNamespaces().files, static_cast<UA_UInt32>(Method::Close)), 1,
        &input, &count, &outputs);
    UA_Array_delete(outputs, count, &UA_TYPES[UA_TYPES_VARIANT]);
    RequireGood(status, "waiting for what was asked before the connection was lost");
}

void RemoteNode::BeginEpoch()
{
    mark.reset();
    const std::lock_guard lock(mutex);
    ++state.epoch;
    isReady = true;
    for (auto* const waiter : waiters)
        waiter->Notify();
}

void RemoteNode::OnLost()
{
    {
        const std::lock_guard lock(mutex);
        isReady = false;
        // Calls of this epoch that are still to be sent are lost as well.
        ++state.epoch;
    }
    mark.reset();
    LoseWaiting();
    handles->Lose();
}

void RemoteNode::OnDead()
{
    LoseWaiting();
    handles->Lose();
    const std::lock_guard lock(mutex);
    isReady = false;
    isDead = true;
    for (auto* const waiter : waiters)
        waiter->Notify();
}

void RemoteNode::Lose(Ticket& ticket) noexcept
{
    ticket.isLost = true;
    ticket.isAnswered = true;
    ticket.isEventIn = true;
    ticket.waiter->Notify();
}

void RemoteNode::LoseWaiting()
{
    for (auto* const queue : {&existsQueue, &listQueue, &deleteQueue, &createQueue})
        for (const auto& waiting : std::exchange(*queue, {}))
            Lose(*waiting.ticket);
}

// Calls

namespace {

/// Its answer brings a handle.
bool IsOpening(Method method) noexcept
{
    return method == Method::Open || method == Method::OpenWrite || method == Method::UploadFile;
}

} // namespace

RemoteNode::Queue* RemoteNode::FindQueue(Method method) noexcept
{
    switch (method) {
    case Method::Exists:
        return &existsQueue;
    case Method::List:
        return &listQueue;
    case Method::Delete:
        return &deleteQueue;
    case Method::CreateDirectory:
        return &createQueue;
    default:
        return nullptr;
    }
}

bool RemoteNode::TakeForSending(const TicketPointer& ticket)
{
    {
        const std::lock_guard lock(mutex);
        if (!isReady || ticket->epoch != state.epoch)
            return false;
    }
    ++sent;
    if (IsOpening(ticket->method))
        handles->BeginOpening();
    if (auto* const queue = FindQueue(ticket->method))
        queue->push_back({sent, ticket});
    return true;
}

void RemoteNode::TakeAnswer(const TicketPointer& ticket, UA_StatusCode status, UA_Variant* output)
{
    ShowLife();
    ticket->status = status;
    auto* const queue = FindQueue(ticket->method);
    if (status != UA_STATUSCODE_GOOD && queue != nullptr) {
        // No event will come for it.
        const auto found = std::find_if(queue->begin(), queue->end(), [&](const Waiting& waiting) {
            return waiting.ticket == ticket;
        });
        if (found != queue->end())
            queue->erase(found);
        ticket->isEventIn = true;
    }
    if (output != nullptr)
        TakeOutput(*ticket, *output);
    if (IsOpening(ticket->method))
        handles->EndOpening();
    ticket->isAnswered = true;
    ticket->waiter->Notify();
}

void RemoteNode::TakeOutput(Ticket& ticket, UA_Variant& output)
{
    switch (ticket.method) {
    case Method::Open:
    case Method::OpenWrite:
    case Method::UploadFile:
        if (!UA_Variant_hasScalarType(&output, &UA_TYPES[UA_TYPES_UINT32]))
            break;
        ticket.opened = handles->Add(*static_cast<const UA_UInt32*>(output.data), ticket.waiter);
        ticket.hasOutput = true;
        break;
    case Method::Read:
        if (!UA_Variant_hasScalarType(&output, &UA_TYPES[UA_TYPES_BYTESTRING]))
            break;
        ticket.read = UaBytes(*static_cast<UA_ByteString*>(output.data));
        ticket.hasOutput = true;
        break;
    case Method::GetDateTime:
        ticket.hasOutput = UA_Variant_hasScalarType(&output, &UA_TYPES[UA_TYPES_DATETIME]);
        ticket.readTime = GetScalar<UA_DateTime>(output, UA_TYPES_DATETIME, 0);
        break;
    case Method::GetPosition:
        ticket.hasOutput = UA_Variant_hasScalarType(&output, &UA_TYPES[UA_TYPES_UINT64]);
        ticket.readPosition = GetScalar<UA_UInt64>(output, UA_TYPES_UINT64, 0);
        break;
    default:
        break;
    }
}

// Events

void RemoteNode::OnEvent(std::size_t count, UA_Variant* fields)
{
    if (count != eventFields)
        return;
    ShowLife();
    if (IsOverflow(fields[typeField])) {
        engine.Break("the server dropped events");
        return;
    }
    const UA_UInt32 type = GetEventType(fields[typeField], engine.GetNamespaces().files);
    if (type == ackEventType) {
        TakeAcknowledgement(GetScalar<UA_UInt32>(fields[handleField], UA_TYPES_UINT32, 0),
                            GetScalar<UA_UInt32>(fields[resultField], UA_TYPES_UINT32, 0));
        return;
    }
    if (mark)
        return; // answers what was asked before the connection was lost
    if (type == existsEventType)
        TakeExists(GetScalar<UA_Boolean>(fields[existField], UA_TYPES_BOOLEAN, false));
    else if (type == listEventType)
        TakeList(fields);
    else if (type == deleteEventType)
        TakeFirst(deleteQueue);
    else if (type == createDirectoryEventType)
        TakeFirst(createQueue);
}

void RemoteNode::TakeAcknowledgement(std::uint32_t handle, std::uint32_t result)
{
    if (mark == handle)
        BeginEpoch();
    else
        handles->Acknowledge(handle, result);
}

void RemoteNode::FinishEvent(Ticket& ticket) noexcept
{
    ticket.isEventIn = true;
    ticket.waiter->Notify();
}

/// Takes the one that has waited longest, which has its event now.
TicketPointer RemoteNode::TakeFirst(Queue& queue)
{
    if (queue.empty())
        return nullptr;
    TicketPointer ticket = std::move(queue.front().ticket);
    queue.pop_front();
    FinishEvent(*ticket);
    return ticket;
}

void RemoteNode::TakeExists(bool exists)
{
    if (existsQueue.empty())
        return;
    const std::uint64_t number = existsQueue.front().number;
    existsQueue.front().ticket->exists = exists;
    // Earlier requests without an event so far never get one.
    for (auto* const queue : {&listQueue, &deleteQueue, &createQueue})
        while (!queue->empty() && queue->front().number < number) {
            queue->front().ticket->hasNoEvent = true;
            TakeFirst(*queue);
        }
    TakeFirst(existsQueue);
}

void RemoteNode::TakeList(const UA_Variant* fields)
{
    if (listQueue.empty())
        return;
    Ticket& ticket = *listQueue.front().ticket;
    ticket.entries = TakeEntries(fields[contentField]);
    ticket.hasNoContent = fields[contentField].type == nullptr;
    ticket.isLimitExceeded = GetScalar<UA_Boolean>(fields[limitField], UA_TYPES_BOOLEAN, false);
    TakeFirst(listQueue);
}

} // namespace Client
