#include "Endpoint/MethodCalls.h"

#include "Core/Exception.h"
#include "Endpoint/Ua.h"
#include "Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace Host {
namespace {

using namespace Core::Embedding;

auto CollectMethods(const InformationModel& model)
{
    std::unordered_map<Core::NodeId, std::vector<MethodDescription>, Core::HashNodeId> methods;
    for (const auto& type : model.GetObjectTypes())
        methods.emplace(type.id, model.GetMethods(type.id));
    return methods;
}

UA_StatusCode ToStatus(const Core::Exception& exception)
{
    switch (static_cast<Core::ErrorCode>(exception.GetErrorCode())) {
    case Core::ErrorCode::TypeMismatch:
        return UA_STATUSCODE_BADTYPEMISMATCH;
    case Core::ErrorCode::OutOfRange:
        return UA_STATUSCODE_BADOUTOFRANGE;
    case Core::ErrorCode::InvalidArgument:
        return UA_STATUSCODE_BADINVALIDARGUMENT;
    case Core::ErrorCode::NotFound:
        return UA_STATUSCODE_BADNODEIDUNKNOWN;
    case Core::ErrorCode::AlreadyExists:
        return UA_STATUSCODE_BADNODEIDEXISTS;
    case Core::ErrorCode::InvalidState:
        return UA_STATUSCODE_BADINVALIDSTATE;
    case Core::ErrorCode::SessionClosed:
        return UA_STATUSCODE_BADSESSIONCLOSED;
    case Core::ErrorCode::NotExecutable:
        return UA_STATUSCODE_BADNOTEXECUTABLE;
    default:
        return UA_STATUSCODE_BADINTERNALERROR;
    }
}

bool IsInteger(const UA_DataType& type)
{
    return (type.typeKind >= UA_DATATYPEKIND_SBYTE && type.typeKind <= UA_DATATYPEKIND_UINT64) ||
           type.typeKind == UA_DATATYPEKIND_ENUM;
}

std::uint64_t CountBytes(const UA_Variant& value)
{
    if (!UA_Variant_hasScalarType(&value, &UA_TYPES[UA_TYPES_BYTESTRING]))
        return 0;
    return static_cast<const UA_ByteString*>(value.data)->length;
}

std::uint64_t CountBytes(const UA_Variant* first, std::size_t count)
{
    std::uint64_t bytes = 0;
    for (std::size_t i = 0; i < count; ++i)
        bytes += CountBytes(first[i]);
    return bytes;
}

} // namespace

MethodCalls::MethodCalls(UA_Server& server, EventLoop& loop, Runtime& runtime,
                         const Namespaces& namespaces, const Values& values,
                         const StructureTypes& types, const Objects& objects,
                         const Sessions& sessions)
    : server(server)
    , loop(loop)
    , runtime(runtime)
    , namespaces(namespaces)
    , values(values)
    , types(types)
    , objects(objects)
    , sessions(sessions)
    , methods(CollectMethods(*runtime.GetInformationModel()))
{}

void MethodCalls::Add(HostMethod method)
{
    hostMethods.push_back(std::make_unique<HostMethod>(std::move(method)));
}

void MethodCalls::TakeAll()
{
    UA_AsyncOperationType type = UA_ASYNCOPERATIONTYPE_INVALID;
    const UA_AsyncOperationRequest* request = nullptr;
    void* context = nullptr;
    while (UA_Server_getAsyncOperationNonBlocking(&server, &type, &request, &context, nullptr))
        Take(request->callMethodRequest, context);
}

/// The server's request lives only until it is answered or given up, and the server looks at it no
/// more: its contents are taken from it, since a copy of a block to write takes long.
void MethodCalls::Take(const UA_CallMethodRequest& request, void* context)
{
    auto call = std::make_shared<Call>();
    call->context = context;
    ClientSession* session = sessions.Find(loop.GetCurrentConnection());
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): see above
    std::swap(*call->request, const_cast<UA_CallMethodRequest&>(request));
    call->bytes = CountBytes(call->request->inputArguments, call->request->inputArgumentsSize);
    const UA_StatusCode status =
        session == nullptr ? UA_STATUSCODE_BADSESSIONIDINVALID : Resolve(*call, *session);
    if (status != UA_STATUSCODE_GOOD) {
        call->result->statusCode = status;
        // Not here: the server has not finished queueing the request.
        loop.Post([this, call] { Answer(call); });
        return;
    }
    call->session = session;
    CountIn(*call);
    session->strand.Post([this, call, session] {
        Run(*call, *session);
        loop.Post([this, call] { Answer(call); });
    });
}

/// What waits for a session is bounded: the server looks through all calls in flight for each
/// answer, and a client may send faster than its calls are run.
void MethodCalls::CountIn(const Call& call)
{
    constexpr std::size_t mostCalls = 1'000;
    constexpr std::size_t mostBytes = 32'000'000;
    ClientSession& session = *call.session;
    ++session.callsInFlight;
    session.bytesInFlight += call.bytes;
    if (session.callsInFlight < mostCalls && session.bytesInFlight < mostBytes)
        return;
    session.heldConnection = session.connection;
    loop.HoldConnection(session.heldConnection, true);
}

void MethodCalls::CountOut(const Call& call)
{
    constexpr std::size_t fewCalls = 500;
    constexpr std::size_t fewBytes = 16'000'000;
    ClientSession& session = *call.session;
    --session.callsInFlight;
    session.bytesInFlight -= call.bytes;
    if (session.heldConnection == 0 || session.callsInFlight > fewCalls ||
        session.bytesInFlight > fewBytes)
        return;
    loop.HoldConnection(std::exchange(session.heldConnection, 0), false);
}

UA_StatusCode MethodCalls::Resolve(Call& call, const ClientSession& session) const
{
    try {
        call.object = namespaces.ToCore(call.request->objectId);
        const Core::NodeId method = namespaces.ToCore(call.request->methodId);
        for (const auto& hostMethod : hostMethods)
            if (hostMethod->object == call.object && hostMethod->method == method) {
                call.hostMethod = hostMethod.get();
                call.method = &hostMethod->description;
                return UA_STATUSCODE_GOOD;
            }
        const ProjectedObject* object = objects.Find(call.object);
        if (object == nullptr) // but a node: the library has looked
            return UA_STATUSCODE_BADMETHODINVALID;
        if (object->owner != nullptr && object->owner != &session)
            return UA_STATUSCODE_BADNODEIDUNKNOWN;
        call.method = FindMethod(object->type, method);
        return call.method == nullptr ? UA_STATUSCODE_BADMETHODINVALID : UA_STATUSCODE_GOOD;
    } catch (const Core::Exception&) {
        return UA_STATUSCODE_BADNODEIDUNKNOWN;
    }
}

const MethodDescription* MethodCalls::FindMethod(const Core::NodeId& type,
                                                 const Core::NodeId& method) const
{
    const auto& candidates = methods.at(type);
    const auto found = std::find_if(candidates.begin(), candidates.end(),
                                    [&method](const auto& each) { return each.id == method; });
    return found == candidates.end() ? nullptr : &*found;
}

/// On the session's strand. Whatever happens, the call has a result afterwards.
void MethodCalls::Run(Call& call, ClientSession& session)
{
    const auto fail = [&](UA_StatusCode status, const std::string& reason) {
        call.result->statusCode = status;
        Log(Core::LogLevel::Warning, "Call",
            fmt::format("Cannot call {} of {}: {}", call.method->browseName.GetName(),
                        call.object.ToString(), reason));
    };
    try {
        if (session.ended)
            call.result->statusCode = UA_STATUSCODE_BADSESSIONCLOSED;
        else if (CheckArguments(call))
            Execute(call, session);
    } catch (const Core::Exception& exception) {
        fail(ToStatus(exception), exception.GetMessage());
    } catch (const UaException& exception) {
        fail(exception.GetStatus(), exception.what());
    } catch (const std::exception& exception) {
        fail(UA_STATUSCODE_BADINTERNALERROR, exception.what());
    }
}

void MethodCalls::Execute(Call& call, ClientSession& session)
{
    ++session.calls;
    session.bytes += call.bytes;
    if (call.hostMethod != nullptr) {
        SetOutputs(call, call.hostMethod->run(session));
        return;
    }
    std::vector<Core::Value> inputs;
    for (std::size_t i = 0; i < call.request->inputArgumentsSize; ++i)
        inputs.push_back(values.ToCore(call.request->inputArguments[i]));
    const CallResult result =
        runtime.Call(session.session, call.object, call.method->browseName.GetName(), inputs);
    // Names and numbers of inputs were looked at before: what is refused now is refused by a
    // behaviour that is stopping.
    if (result.taken)
        SetOutputs(call, result.outputs);
    else
        call.result->statusCode = UA_STATUSCODE_BADSHUTDOWN;
    session.bytes += CountBytes(call.result->outputArguments, call.result->outputArgumentsSize);
}

bool MethodCalls::CheckArguments(Call& call) const
{
    const auto& declared = call.method->inputs;
    const std::size_t count = call.request->inputArgumentsSize;
    if (count != declared.size()) {
        call.result->statusCode = count < declared.size() ? UA_STATUSCODE_BADARGUMENTSMISSING
                                                          : UA_STATUSCODE_BADTOOMANYARGUMENTS;
        return false;
    }
    std::vector<UA_StatusCode> statuses;
    for (std::size_t i = 0; i < count; ++i)
        statuses.push_back(Accepts(declared[i], call.request->inputArguments[i])
                               ? UA_STATUSCODE_GOOD
                               : UA_STATUSCODE_BADTYPEMISMATCH);
    if (std::all_of(statuses.begin(), statuses.end(),
                    [](UA_StatusCode status) { return status == UA_STATUSCODE_GOOD; }))
        return true;
    call.result->statusCode = UA_STATUSCODE_BADINVALIDARGUMENT;
    RequireGood(UA_Array_copy(statuses.data(), count,
                              reinterpret_cast<void**>(&call.result->inputArgumentResults),
                              &UA_TYPES[UA_TYPES_STATUSCODE]),
                "copying the results of the arguments");
    call.result->inputArgumentResultsSize = count;
    return false;
}

/// Integers of every width pass, since they convert where they fit; so does a scalar where a list
/// is declared: what it means is for the behaviour to say.
bool MethodCalls::Accepts(const ArgumentDescription& argument, const UA_Variant& value) const
{
    if (value.type == nullptr)
        return false;
    const UA_DataType& declared = types.Get(argument.dataType);
    const bool isArray = !UA_Variant_isScalar(&value);
    if (isArray && argument.valueRank == UA_VALUERANK_SCALAR)
        return false;
    return value.type->typeKind == declared.typeKind ||
           declared.typeKind == UA_DATATYPEKIND_VARIANT ||
           (IsInteger(*value.type) && IsInteger(declared));
}

void MethodCalls::SetOutputs(Call& call, const std::vector<Core::Value>& outputs) const
{
    const auto& declared = call.method->outputs;
    if (outputs.empty())
        return;
    UA_CallMethodResult& result = *call.result;
    result.outputArguments =
        static_cast<UA_Variant*>(UA_Array_new(outputs.size(), &UA_TYPES[UA_TYPES_VARIANT]));
    if (result.outputArguments == nullptr)
        throw UaException("making the outputs of a call", UA_STATUSCODE_BADOUTOFMEMORY);
    result.outputArgumentsSize = outputs.size();
    for (std::size_t i = 0; i < outputs.size(); ++i)
        result.outputArguments[i] = values.ToUa(outputs[i], declared.at(i).dataType).Release();
}

/// On the loop's thread: elsewhere the server might give the call up at the same moment.
void MethodCalls::Answer(const std::shared_ptr<Call>& call)
{
    UA_AsyncOperationResponse response{};
    response.callMethodResult = *call->result;
    UA_Server_setAsyncOperationResult(&server, &response, call->context);
    loop.FlushAnswers();
    if (call->session != nullptr)
        CountOut(*call);
}

} // namespace Host
