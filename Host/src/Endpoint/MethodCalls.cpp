#include "Endpoint/MethodCalls.h"

#include "Endpoint/Ua.h"
#include "Log/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <system_error>
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

// In flight for one session. With more, its connection is not read until half are answered.
constexpr std::size_t mostCalls = 1'000;
constexpr std::size_t mostWeight = 32'000'000;

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
                         const ProvidedNodes& provided, const Sessions& sessions, CallAudit& audit)
    : server(server)
    , loop(loop)
    , runtime(runtime)
    , namespaces(namespaces)
    , values(values)
    , objects(objects)
    , provided(provided)
    , sessions(sessions)
    , audit(audit)
    , arguments(*runtime.GetInformationModel(), types)
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

/// Takes the contents out of the server's request, which lives only until it is answered or given
/// up and is not looked at any more: a copy of a block to write would take long.
void MethodCalls::Take(const UA_CallMethodRequest& request, void* context)
{
    auto call = std::make_shared<Call>();
    call->context = context;
    call->number = book.Enter(context);
    ClientSession* session = sessions.Find(loop.GetCurrentConnection());
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): see above
    std::swap(*call->request, const_cast<UA_CallMethodRequest&>(request));
    call->weight = Weigh(call->request->inputArguments, call->request->inputArgumentsSize);
    UA_StatusCode status = UA_STATUSCODE_BADSESSIONIDINVALID;
    if (session != nullptr)
        status =
            IsTooMuch(*session) ? UA_STATUSCODE_BADTOOMANYOPERATIONS : Resolve(*call, *session);
    if (status != UA_STATUSCODE_GOOD) {
        call->result->statusCode = status;
        // Later: the server has not finished queueing the request.
        loop.Post([this, call] { Answer(call); });
        return;
    }
    call->session = session;
    CountIn(*call);
    session->worker.Post([this, call, session] {
        Run(*call, *session);
        loop.Post([this, call] { Answer(call); });
    });
}

/// True if further calls are refused: a connection that is held has read some already, and a
/// session may have had many connections.
bool MethodCalls::IsTooMuch(const ClientSession& session)
{
    return session.callsInFlight >= 10 * mostCalls || session.weightInFlight >= 2 * mostWeight;
}

/// Bounds the calls that wait for a session: the server looks through all calls in flight for each
/// answer, and a client may send faster than its calls are run.
void MethodCalls::CountIn(const Call& call)
{
    ClientSession& session = *call.session;
    ++session.callsInFlight;
    session.weightInFlight += call.weight;
    if (session.callsInFlight < mostCalls && session.weightInFlight < mostWeight)
        return;
    session.heldConnection = session.connection;
    loop.HoldConnection(session.heldConnection, true);
}

void MethodCalls::CountOut(const Call& call)
{
    ClientSession& session = *call.session;
    --session.callsInFlight;
    session.weightInFlight -= call.weight;
    if (session.heldConnection == 0 || session.callsInFlight > mostCalls / 2 ||
        session.weightInFlight > mostWeight / 2)
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
        const auto type = FindType(call, session);
        call.method = type ? FindMethod(*type, method) : nullptr;
        return call.method == nullptr ? UA_STATUSCODE_BADMETHODINVALID : UA_STATUSCODE_GOOD;
    } catch (const Core::Exception&) {
        return UA_STATUSCODE_BADNODEIDUNKNOWN;
    }
}

/// Returns the type of the object; nothing for a node of another kind, which the library has found.
/// Throws Core::NotFoundException for the object of another session.
std::optional<Core::NodeId> MethodCalls::FindType(const Call& call,
                                                  const ClientSession& session) const
{
    const ProjectedObject* object = objects.Find(call.object);
    if (object == nullptr)
        return provided.FindType(call.request->objectId);
    if (object->owner != nullptr && object->owner != &session)
        throw Core::NotFoundException(call.object.ToString() + " belongs to another session");
    return object->type;
}

const MethodDescription* MethodCalls::FindMethod(const Core::NodeId& type,
                                                 const Core::NodeId& method) const
{
    const auto known = methods.find(type);
    if (known == methods.end())
        return nullptr;
    const auto& candidates = known->second;
    const auto found = std::find_if(candidates.begin(), candidates.end(),
                                    [&method](const auto& each) { return each.id == method; });
    return found == candidates.end() ? nullptr : &*found;
}

/// Gives the call a result, whatever happens. On the session's worker thread.
void MethodCalls::Run(Call& call, ClientSession& session)
{
    const auto reason = TryExecute(call, session);
    if (!reason.empty())
        Log(Core::LogLevel::Warning, "Call",
            fmt::format("Cannot call {} of {}: {}", call.method->browseName.GetName(),
                        call.object.ToString(), reason));
    if (UA_StatusCode_isBad(call.result->statusCode))
        NoteRefusal(call, session, reason.empty() ? call.refusal : reason);
}

/// Returns the reason of a failure that is the host's or the module's.
std::string MethodCalls::TryExecute(Call& call, ClientSession& session)
{
    const auto fail = [&call](UA_StatusCode status, const std::string& reason) {
        call.result->statusCode = status;
        return reason;
    };
    try {
        if (session.ended)
            call.result->statusCode = UA_STATUSCODE_BADSESSIONCLOSED;
        else if (CheckArguments(call))
            Execute(call, session);
        return {};
    } catch (const Core::StatusException& exception) {
        Refuse(call, exception);
        return {};
    } catch (const Core::Exception& exception) {
        return fail(ToStatus(exception), exception.GetMessage());
    } catch (const UaException& exception) {
        return fail(exception.GetStatus(), exception.what());
    } catch (const std::system_error& exception) { // no thread, for example
        return fail(UA_STATUSCODE_BADRESOURCEUNAVAILABLE, exception.what());
    } catch (const std::exception& exception) {
        return fail(UA_STATUSCODE_BADINTERNALERROR, exception.what());
    }
}

/// Answers with the status that the behaviour has chosen, and its words as far as there is a place
/// for them: the library makes the answer of results alone (integrateOperationResult in
/// server/ua_server_async.c), which have diagnostic texts for arguments and none for the call.
void MethodCalls::Refuse(Call& call, const Core::StatusException& reason) const
{
    UA_CallMethodResult& result = *call.result;
    result.statusCode = reason.GetStatus();
    call.refusal = reason.GetMessage();
    const std::size_t count = call.request->inputArgumentsSize;
    if (count == 0 || call.refusal.empty())
        return;
    result.inputArgumentDiagnosticInfos =
        static_cast<UA_DiagnosticInfo*>(UA_Array_new(count, &UA_TYPES[UA_TYPES_DIAGNOSTICINFO]));
    if (result.inputArgumentDiagnosticInfos == nullptr)
        return; // the status is worth more than the text
    result.inputArgumentDiagnosticInfosSize = count;
    UA_DiagnosticInfo& first = result.inputArgumentDiagnosticInfos[0];
    const std::string text = EscapeToUtf8(call.refusal);
    const UA_String view = ViewOf(text);
    first.hasAdditionalInfo = UA_String_copy(&view, &first.additionalInfo) == UA_STATUSCODE_GOOD;
}

void MethodCalls::NoteRefusal(const Call& call, const ClientSession& session,
                              const std::string& reason)
{
    if (!call.method->change)
        return;
    std::vector<Core::Value> inputs;
    try {
        inputs = ReadInputs(call);
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): refused for its inputs
    }
    const std::string status = UA_StatusCode_name(call.result->statusCode);
    audit.Refuse(session, call.object, *call.method, inputs,
                 reason.empty() ? status : status + ": " + reason);
}

std::vector<Core::Value> MethodCalls::ReadInputs(const Call& call) const
{
    std::vector<Core::Value> inputs;
    for (std::size_t i = 0; i < call.request->inputArgumentsSize; ++i)
        inputs.push_back(values.ToCore(call.request->inputArguments[i]));
    return inputs;
}

void MethodCalls::Execute(Call& call, ClientSession& session)
{
    const auto sent = CountBytes(call.request->inputArguments, call.request->inputArgumentsSize);
    ++session.calls;
    session.bytes += sent;
    if (call.hostMethod != nullptr) {
        SetOutputs(call, call.hostMethod->run(session));
        return;
    }
    const auto inputs = ReadInputs(call);
    auto audited = audit.Begin(session, call.object, *call.method, inputs, sent);
    const CallResult result =
        runtime.Call(session.session, call.object, call.method->browseName.GetName(), inputs);
    // Names and numbers of inputs were checked before: only a behaviour that is stopping refuses.
    if (!result.taken) {
        call.result->statusCode = UA_STATUSCODE_BADSHUTDOWN;
        return;
    }
    if (audited)
        audit.End(std::move(*audited), result.outputs);
    SetOutputs(call, result.outputs);
    session.bytes += CountBytes(call.result->outputArguments, call.result->outputArgumentsSize);
}

bool MethodCalls::CheckArguments(Call& call) const
{
    std::vector<UA_StatusCode> results;
    UA_CallMethodResult& result = *call.result;
    result.statusCode = arguments.Check(call.method->inputs, call.request->inputArguments,
                                        call.request->inputArgumentsSize, results);
    if (result.statusCode != UA_STATUSCODE_BADINVALIDARGUMENT)
        return result.statusCode == UA_STATUSCODE_GOOD;
    RequireGood(UA_Array_copy(results.data(), results.size(),
                              reinterpret_cast<void**>(&result.inputArgumentResults),
                              &UA_TYPES[UA_TYPES_STATUSCODE]),
                "copying the results of the arguments");
    result.inputArgumentResultsSize = results.size();
    return false;
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

/// Answers a call on the loop's thread: elsewhere the server might give it up at the same moment. A
/// call that was cancelled is not answered: its context may be that of another one by now.
void MethodCalls::Answer(const std::shared_ptr<Call>& call)
{
    CountAnswer(*call);
    if (book.Remove(call->context, call->number)) {
        UA_AsyncOperationResponse response{};
        response.callMethodResult = *call->result;
        UA_Server_setAsyncOperationResult(&server, &response, call->context);
        loop.FlushAnswers();
    }
    if (call->session != nullptr)
        CountOut(*call);
}

void MethodCalls::CountAnswer(const Call& call)
{
    auto& counts = answered[call.method];
    ++counts.statuses[call.result->statusCode];
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - call.begin;
    constexpr auto& bounds = MethodMetrics::bounds;
    const auto bound = std::lower_bound(bounds.begin(), bounds.end(), time.count());
    if (bound != bounds.end())
        ++counts.times.times.at(static_cast<std::size_t>(bound - bounds.begin()));
    ++counts.times.count;
    counts.times.seconds += time.count();
}

/// Methods of the same name count as one: several types can have it.
void MethodCalls::Describe(EndpointMetrics& metrics) const
{
    for (const auto& [method, counts] : answered) {
        auto& sums = metrics.methods[method == nullptr ? "unknown" : method->browseName.GetName()];
        for (const auto& [status, count] : counts.statuses)
            sums.calls[UA_StatusCode_name(status)] += count;
        for (std::size_t i = 0; i < sums.times.size(); ++i)
            sums.times.at(i) += counts.times.times.at(i);
        sums.count += counts.times.count;
        sums.seconds += counts.times.seconds;
    }
}

} // namespace Host
