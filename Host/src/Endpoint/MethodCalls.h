#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Core/Embedding/Runtime.h"
#include "Core/Exception.h"
#include "Endpoint/Arguments.h"
#include "Endpoint/CallAudit.h"
#include "Endpoint/CallBook.h"
#include "Endpoint/ClientSession.h"
#include "Endpoint/Namespaces.h"
#include "Endpoint/Objects.h"
#include "Endpoint/ProvidedNodes.h"
#include "Endpoint/Sessions.h"
#include "Endpoint/Ua.h"
#include "Endpoint/Values.h"
#include "Metrics/EndpointMetrics.h"
#include "Network/EventLoop.h"

#include <open62541/server.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Host {

/// A method of the host's own, beside those of the modules.
struct HostMethod
{
    Core::NodeId object;
    Core::NodeId method;
    /// Runs on the session's worker thread and returns the outputs. An exception becomes a status.
    std::function<std::vector<Core::Value>(ClientSession&)> run;
    Core::Embedding::MethodDescription description;
};

/// Takes the calls of the clients from the server, runs them off the network thread in the order of
/// each session, and answers them.
class MethodCalls
{
public:
    MethodCalls(UA_Server& server, EventLoop& loop, Core::Embedding::Runtime& runtime,
                const Namespaces& namespaces, const Values& values, const StructureTypes& types,
                const Objects& objects, const ProvidedNodes& provided, const Sessions& sessions,
                CallAudit& audit);

    void Add(HostMethod method);

    /// Enters the calls so far and those in flight. Loop thread.
    void Describe(EndpointMetrics& metrics) const;

    /// Takes everything that the server has queued. Loop thread, from the server's notification.
    void TakeAll();

private:
    using MethodDescription = Core::Embedding::MethodDescription;

    /// A call on its way, from the queue to its answer.
    struct Call
    {
        void* context = nullptr;          ///< the server's own
        CallBook::Number number = 0;      ///< in `book`
        ClientSession* session = nullptr; ///< null: not counted
        std::size_t weight = 0;           ///< of the inputs, see `Weigh`
        Ua<UA_CallMethodRequest> request;
        Core::NodeId object;
        const MethodDescription* method = nullptr;
        const HostMethod* hostMethod = nullptr; ///< null: a method of a module
        Ua<UA_CallMethodResult> result;
        std::string refusal; ///< the words of the behaviour, if it refused
        std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    };

    /// The answered calls of a method.
    struct Answered
    {
        std::unordered_map<UA_StatusCode, std::uint64_t> statuses;
        MethodMetrics times; ///< without `calls`
    };

    void Take(const UA_CallMethodRequest& request, void* context);
    [[nodiscard]] static bool IsTooMuch(const ClientSession& session);
    void CountIn(const Call& call);
    void CountOut(const Call& call);
    [[nodiscard]] UA_StatusCode Resolve(Call& call, const ClientSession& session) const;
    [[nodiscard]] std::optional<Core::NodeId> FindType(const Call& call,
                                                       const ClientSession& session) const;
    [[nodiscard]] const MethodDescription* FindMethod(const Core::NodeId& type,
                                                      const Core::NodeId& method) const;
    void Run(Call& call, ClientSession& session);
    [[nodiscard]] std::string TryExecute(Call& call, ClientSession& session);
    void Refuse(Call& call, const Core::StatusException& reason) const;
    void NoteRefusal(const Call& call, const ClientSession& session, const std::string& reason);
    [[nodiscard]] std::vector<Core::Value> ReadInputs(const Call& call) const;
    void Execute(Call& call, ClientSession& session);
    [[nodiscard]] bool CheckArguments(Call& call) const;
    void SetOutputs(Call& call, const std::vector<Core::Value>& outputs) const;
    void Answer(const std::shared_ptr<Call>& call);
    void CountAnswer(const Call& call);

    UA_Server& server;
    EventLoop& loop;
    Core::Embedding::Runtime& runtime;
    const Namespaces& namespaces;
    const Values& values;
    const Objects& objects;
    const ProvidedNodes& provided;
    const Sessions& sessions;
    CallAudit& audit;
    const Arguments arguments;
    CallBook book;                                                   // loop thread
    std::unordered_map<const MethodDescription*, Answered> answered; // loop thread; null: unknown
    /// The methods of each object type, inherited ones first; constant.
    const std::unordered_map<Core::NodeId, std::vector<MethodDescription>, Core::HashNodeId>
        methods;
    std::vector<std::unique_ptr<HostMethod>> hostMethods; // set before the server runs
};

} // namespace Host
