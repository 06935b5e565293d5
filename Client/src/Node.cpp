#include "Node.h"

#include "EventFields.h"
#include "ListItem.h"
#include "Status.h"

#include <open62541/client_highlevel.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <utility>

namespace Client {

namespace {

constexpr UA_UInt32 createFileSystemMethod = 2; // its published number

} // namespace

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
        const Support::Lock lock(mutex);
        return isReady || isDead;
    };
    {
        const Support::Lock lock(mutex);
        waiters.insert(&waiter);
    }
    struct Leave
    {
        RemoteNode& node;
        Waiter& waiter;
        ~Leave()
        {
            const Support::Lock lock(node.mutex);
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
            throw ConnectionLostException("the server does not report the end of the work from "
                                          "before the connection was lost");
        deadline = later;
    }
    const Support::Lock lock(mutex);
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
            const Support::Lock lock(mutex);
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
    RequireGood(status, "waiting for the end of the work from before the connection was lost");
}

void RemoteNode::BeginEpoch()
{
    mark.reset();
    const Support::Lock lock(mutex);
    ++state.epoch;
    isReady = true;
    for (auto* const waiter : waiters)
        waiter->Notify();
}

void RemoteNode::OnLost()
{
    {
        const Support::Lock lock(mutex);
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
    const Support::Lock lock(mutex);
    isReady = false;
    isDead = true;
    for (auto* const waiter : waiters)
        waiter->Notify();
}

void RemoteNode::LoseWaiting()
{
    for (auto* const queue : {&existsQueue, &listQueue, &deleteQueue, &createQueue})
        for (const auto& waiting : std::exchange(*queue, {}))
            waiting.call->Lose(false);
}

// Calls

RemoteNode::Queue* RemoteNode::FindQueue(Events events) noexcept
{
    switch (events) {
    case Events::None:
        return nullptr;
    case Events::Exists:
        return &existsQueue;
    case Events::List:
        return &listQueue;
    case Events::Delete:
        return &deleteQueue;
    case Events::CreateDirectory:
        return &createQueue;
    }
    return nullptr;
}

bool RemoteNode::TakeForSending(const CallPointer& call)
{
    {
        const Support::Lock lock(mutex);
        if (!isReady || call->epoch != state.epoch)
            return false;
    }
    ++sent;
    const MethodDescription& method = Describe(call->request.method);
    if (method.Opens())
        handles->BeginOpening();
    if (auto* const queue = FindQueue(method.events))
        queue->push_back({sent, call});
    return true;
}

void RemoteNode::TakeAnswer(const CallPointer& call, UA_StatusCode status, UA_Variant* output)
{
    ShowLife();
    const MethodDescription& method = Describe(call->request.method);
    Outcome& outcome = call->outcome;
    outcome.status = status;
    auto* const queue = FindQueue(method.events);
    if (status != UA_STATUSCODE_GOOD && queue != nullptr) {
        // No event will come for it.
        const auto found = std::find_if(queue->begin(), queue->end(), [&](const Waiting& waiting) {
            return waiting.call == call;
        });
        if (found != queue->end())
            queue->erase(found);
        outcome.hasEvent = true;
    }
    if (output != nullptr)
        TakeOutput(*call, *output);
    if (method.Opens())
        handles->EndOpening();
    outcome.isAnswered = true;
    call->waiter->Notify();
}

void RemoteNode::TakeOutput(Call& call, UA_Variant& output)
{
    const auto is = [&](std::size_t type) {
        return UA_Variant_hasScalarType(&output, &UA_TYPES[type]);
    };
    Outcome& outcome = call.outcome;
    switch (Describe(call.request.method).output) {
    case Output::None:
        break;
    case Output::Handle:
        if (is(UA_TYPES_UINT32))
            outcome.opened = handles->Add(*static_cast<const UA_UInt32*>(output.data), call.waiter);
        break;
    case Output::Bytes:
        if (is(UA_TYPES_BYTESTRING))
            outcome.bytes.emplace(*static_cast<UA_ByteString*>(output.data));
        break;
    case Output::Time:
        if (is(UA_TYPES_DATETIME))
            outcome.time = *static_cast<const UA_DateTime*>(output.data);
        break;
    case Output::Position:
        if (is(UA_TYPES_UINT64))
            outcome.position = *static_cast<const UA_UInt64*>(output.data);
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

void RemoteNode::FinishEvent(Call& call) noexcept
{
    call.outcome.hasEvent = true;
    call.waiter->Notify();
}

/// Takes the one that has waited longest, which has its event now.
CallPointer RemoteNode::TakeFirst(Queue& queue)
{
    if (queue.empty())
        return nullptr;
    CallPointer call = std::move(queue.front().call);
    queue.pop_front();
    FinishEvent(*call);
    return call;
}

void RemoteNode::TakeExists(bool exists)
{
    if (existsQueue.empty())
        return;
    const std::uint64_t number = existsQueue.front().number;
    existsQueue.front().call->outcome.exists = exists;
    // Earlier requests without an event so far never get one.
    for (auto* const queue : {&listQueue, &deleteQueue, &createQueue})
        while (!queue->empty() && queue->front().number < number) {
            queue->front().call->outcome.hasNoResult = true;
            TakeFirst(*queue);
        }
    TakeFirst(existsQueue);
}

void RemoteNode::TakeList(const UA_Variant* fields)
{
    if (listQueue.empty())
        return;
    Outcome& outcome = listQueue.front().call->outcome;
    outcome.entries = TakeEntries(fields[contentField]);
    outcome.hasNoContent = fields[contentField].type == nullptr;
    outcome.isLimitExceeded = GetScalar<UA_Boolean>(fields[limitField], UA_TYPES_BOOLEAN, false);
    TakeFirst(listQueue);
}

} // namespace Client
