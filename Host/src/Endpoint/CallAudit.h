#pragma once

#include "Audit/AuditRecord.h"
#include "Core/Embedding/InformationModel.h"
#include "Core/Embedding/Runtime.h"
#include "Core/NodeId.h"
#include "Core/Value.h"
#include "Endpoint/ClientSession.h"
#include "Endpoint/ProvidedNodes.h"
#include "Support/Mutex.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Host {

/// Makes audit records of the calls that change something, as the model describes them in
/// ChangeDescription: one for a call that is complete by itself, two for work that takes several
/// calls with one handle. The first tells that it has begun, the last, from the module's event, the
/// outcome and the sums of all calls. If several sessions have used the handle, each gets a last
/// one.
///
/// Any thread may call any operation; the calls of one session come one after another.
class CallAudit
{
public:
    using MethodDescription = Core::Embedding::MethodDescription;
    using Values = std::vector<Core::Value>;

    /// Takes the records, on any thread, and does not wait.
    using Write = std::function<void(AuditRecord)>;

    /// `provided`, which outlives it, has all its nodes before the first call.
    CallAudit(const Core::Embedding::InformationModel& model, const ProvidedNodes& provided,
              Write write);
    CallAudit(const CallAudit&) = delete;
    CallAudit& operator=(const CallAudit&) = delete;

    /// A call that runs and needs a record when it has.
    struct Running
    {
        AuditRecord record;
        Core::NodeId object;
        const MethodDescription* method = nullptr;
        std::chrono::steady_clock::time_point begin;
        bool endsWork = false; ///< work has begun with the input handle, and ends with the answer
        long handle = 0;       ///< of that work
    };

    /// Notes a call before it runs. Returns nothing for one that changes nothing, or that goes on
    /// with work that has begun.
    [[nodiscard]] std::optional<Running>
    Begin(const ClientSession& session, const Core::NodeId& object, const MethodDescription& method,
          const Values& inputs, std::uint64_t bytes) EXCLUDES(mutex);

    /// Notes the outputs of a call that was answered without an error.
    void End(Running running, const Values& outputs) EXCLUDES(mutex);

    /// Notes a call that was answered with an error. `inputs` may be any.
    void Refuse(const ClientSession& session, const Core::NodeId& object,
                const MethodDescription& method, const Values& inputs, std::string reason)
        EXCLUDES(mutex);

    /// Notes an event of an object, which may tell the end of some work.
    void OnEvent(const Core::Embedding::Event& event) EXCLUDES(mutex);

    /// Makes the last records of a session that makes no more calls.
    void EndSession(const ClientSession& session) EXCLUDES(mutex);

private:
    using Clock = std::chrono::steady_clock;

    using Records = std::vector<AuditRecord>;

    /// The fields of an event type that tells the end of some work.
    struct OutcomeFields
    {
        std::size_t handle = 0;
        std::size_t outcome = 0;
        Core::Embedding::OutcomeDescription description;
    };

    using OutcomesByType = std::unordered_map<Core::NodeId, OutcomeFields, Core::HashNodeId>;

    struct Outcome
    {
        AuditResult result = AuditResult::Done;
        std::string reason;
    };

    /// A handle of an object.
    struct WorkId
    {
        Core::NodeId object;
        long handle = 0;
        friend bool operator==(const WorkId& left, const WorkId& right) noexcept
        {
            return left.handle == right.handle && left.object == right.object;
        }
    };
    struct HashWorkId
    {
        std::size_t operator()(const WorkId& id) const noexcept
        {
            return Core::HashNodeId()(id.object) * 31 + std::hash<long>()(id.handle);
        }
    };

    /// The outcome of work whose handle is not known yet.
    struct EarlyOutcome
    {
        Clock::time_point time;
        Outcome outcome;
    };

    /// The refused calls of a session.
    struct Refusals
    {
        Clock::time_point since; ///< the last time that `count` was 0
        std::size_t count = 0;
        std::uint64_t leftOut = 0; ///< since then and before
    };

    [[nodiscard]] static OutcomesByType
    CollectOutcomes(const Core::Embedding::InformationModel& model);
    [[nodiscard]] AuditRecord MakeRecord(const ClientSession& session, const Core::NodeId& object,
                                         const MethodDescription& method,
                                         const Values& inputs) const;
    void AddPaths(AuditRecord& record, const Core::NodeId& object, const MethodDescription& method,
                  const Values& inputs) const;
    [[nodiscard]] std::vector<std::string> GetNames(const Core::Value& subject) const;
    [[nodiscard]] Core::NodeId GetOwner(const Core::NodeId& object) const;
    [[nodiscard]] static Outcome MakeOutcome(const OutcomeFields& fields, long number);
    [[nodiscard]] bool Continue(const ClientSession& session, const WorkId& id,
                                const MethodDescription& method, std::uint64_t bytes)
        EXCLUDES(mutex);
    void EndWork(const WorkId& id, const Outcome& outcome) EXCLUDES(mutex);
    [[nodiscard]] static Outcome GetOutcome(const MethodDescription& method, const Values& outputs);
    [[nodiscard]] std::optional<Outcome> Enter(const WorkId& id, const Running& running)
        EXCLUDES(mutex);
    void KeepEarly(const WorkId& id, Outcome outcome) REQUIRES(mutex);
    [[nodiscard]] bool MayTellRefusal(const ClientSession& session) EXCLUDES(mutex);
    [[nodiscard]] Records TakeWorksOf(std::uint64_t session) EXCLUDES(mutex);
    void WriteEnd(Records records, const Outcome& outcome);

    const ProvidedNodes& provided;
    const Write write;
    const OutcomesByType outcomes;

    Support::Mutex mutex;
    /// Work that has begun: a record for each session that takes part, the beginner's first.
    std::unordered_map<WorkId, Records, HashWorkId> works GUARDED_BY(mutex);
    std::unordered_map<WorkId, EarlyOutcome, HashWorkId> early GUARDED_BY(mutex);
    std::deque<WorkId> earlyOrder GUARDED_BY(mutex);                        // the oldest first
    std::unordered_map<std::uint64_t, Refusals> refusals GUARDED_BY(mutex); // by session
};

} // namespace Host
