#include "Endpoint/CallAudit.h"

#include "Core/Exception.h"

#include <fmt/format.h>
#include <open62541/types.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace Host {
namespace {

using namespace Core::Embedding;

/// Bounds the memory for clients that open without end, or close handles that nobody opened.
constexpr std::size_t mostWorks = 100'000;
constexpr std::size_t mostEarly = 4'096;

constexpr std::size_t mostRefusals = 100; // lines of a session in `refusalInterval`
constexpr std::chrono::seconds refusalInterval{10};

/// Returns null if there is no such argument, or the call has no value for it.
const Core::Value* FindValue(const std::vector<ArgumentDescription>& arguments,
                             const std::string& name, const std::vector<Core::Value>& values)
{
    if (name.empty())
        return nullptr;
    const auto found =
        std::find_if(arguments.begin(), arguments.end(),
                     [&name](const ArgumentDescription& each) { return each.name == name; });
    const auto index = static_cast<std::size_t>(std::distance(arguments.begin(), found));
    return index < std::min(arguments.size(), values.size()) ? &values[index] : nullptr;
}

/// Returns nothing for a null pointer and for a value that is no number.
std::optional<long> GetNumber(const Core::Value* value)
{
    if (value == nullptr)
        return std::nullopt;
    try {
        return value->Get<long>();
    } catch (const Core::Exception&) {
        return std::nullopt;
    }
}

/// True for a call that changes nothing by the value of an input.
bool IsExcepted(const MethodDescription& method, const std::vector<Core::Value>& inputs)
{
    const auto& change = *method.change;
    return GetNumber(FindValue(method.inputs, change.exceptArgument, inputs)) == change.exceptValue;
}

} // namespace

CallAudit::CallAudit(const InformationModel& model, const ProvidedNodes& provided, Write write)
    : provided(provided)
    , write(std::move(write))
    , outcomes(CollectOutcomes(model))
{}

CallAudit::OutcomesByType CallAudit::CollectOutcomes(const InformationModel& model)
{
    OutcomesByType all;
    for (const auto& type : model.GetObjectTypes()) {
        const auto& fields = type.eventFields;
        const auto handle = std::find_if(fields.begin(), fields.end(),
                                         [](const auto& field) { return field.isHandle; });
        const auto outcome = std::find_if(fields.begin(), fields.end(), [](const auto& field) {
            return field.outcome.has_value();
        });
        if (handle == fields.end() || outcome == fields.end())
            continue;
        const auto arguments = model.GetEventArguments(type.id);
        all.emplace(type.id,
                    OutcomeFields{arguments.GetFieldIndex(handle->browseName),
                                  arguments.GetFieldIndex(outcome->browseName), *outcome->outcome});
    }
    return all;
}

AuditRecord CallAudit::MakeRecord(const ClientSession& session, const Core::NodeId& object,
                                  const MethodDescription& method, const Values& inputs) const
{
    AuditRecord record;
    record.caller = {session.user, session.address, session.number};
    record.method = method.browseName.GetName();
    AddPaths(record, object, method, inputs);
    return record;
}

/// Adds the names of all things that a call changes: of several inputs, those that belong together
/// one behind the other.
void CallAudit::AddPaths(AuditRecord& record, const Core::NodeId& object,
                         const MethodDescription& method, const Values& inputs) const
{
    const auto& change = *method.change;
    std::vector<std::vector<std::string>> names;
    for (const auto& subject : change.subjects)
        if (const auto* value = FindValue(method.inputs, subject, inputs))
            names.push_back(GetNames(*value));
    if (change.subjects.empty())
        if (const auto own = provided.FindName(object))
            names.push_back({own->path});
    const auto* const child = FindValue(method.inputs, change.child, inputs);
    const auto below = child == nullptr ? std::vector<std::string>() : GetNames(*child);
    if (!below.empty() && !below.front().empty()) {
        if (names.empty() || names.back().empty())
            names.push_back({below.front()});
        else
            names.back().back() += "/" + below.front();
    }
    std::size_t longest = 0;
    for (const auto& each : names)
        longest = std::max(longest, each.size());
    for (std::size_t i = 0; i < longest; ++i)
        for (const auto& each : names)
            if (i < each.size())
                record.AddPath(each[i]);
}

/// Returns nothing for a value of another type, for which the call is refused.
std::vector<std::string> CallAudit::GetNames(const Core::Value& subject) const
{
    try {
        if (subject.IsArray())
            return subject.GetElements<std::string>();
        if (subject.GetKind() != Core::ValueKind::NodeId)
            return {subject.GetText()};
        const auto id = subject.Get<Core::NodeId>();
        const auto name = provided.FindName(id);
        return {name ? name->path : id.ToString()};
    } catch (const Core::Exception&) {
        return {};
    }
}

/// Returns the object that counts the handles: that of the behaviour, for a provided one.
Core::NodeId CallAudit::GetOwner(const Core::NodeId& object) const
{
    const auto name = provided.FindName(object);
    return name ? name->provider : object;
}

std::optional<CallAudit::Running> CallAudit::Begin(const ClientSession& session,
                                                   const Core::NodeId& object,
                                                   const MethodDescription& method,
                                                   const Values& inputs, std::uint64_t bytes)
{
    if (!method.change || IsExcepted(method, inputs))
        return std::nullopt;
    const auto owner = GetOwner(object);
    if (const auto handle = GetNumber(FindValue(method.inputs, method.change->handle, inputs))) {
        if (!Continue(session, {owner, *handle}, method, bytes) || !method.change->endsWork)
            return std::nullopt;
        return Running{{}, owner, &method, Clock::now(), true, *handle};
    }
    Running running{MakeRecord(session, object, method, inputs), owner, &method, Clock::now()};
    running.record.bytes = bytes;
    return running;
}

/// Adds to the record that the session has of the work. Returns false for handles that nobody has
/// opened for a change: they change nothing.
bool CallAudit::Continue(const ClientSession& session, const WorkId& id,
                         const MethodDescription& method, std::uint64_t bytes)
{
    const Support::Lock lock(mutex);
    const auto found = works.find(id);
    if (found == works.end())
        return false;
    Records& records = found->second;
    auto record = std::find_if(records.begin(), records.end(), [&session](const auto& each) {
        return each.caller.session == session.number;
    });
    if (record == records.end()) {
        AuditRecord further = records.front();
        further.caller = {session.user, session.address, session.number};
        further.calls = 0;
        further.bytes = 0;
        record = records.insert(records.end(), std::move(further));
    }
    record->method = method.browseName.GetName();
    ++record->calls;
    record->bytes += bytes;
    return true;
}

void CallAudit::End(Running running, const Values& outputs)
{
    const MethodDescription& method = *running.method;
    if (running.endsWork)
        return EndWork({running.object, running.handle}, {});
    const auto outcome = GetOutcome(method, outputs);
    running.record.result = outcome.result;
    running.record.reason = outcome.reason;
    const auto handle = GetNumber(FindValue(method.outputs, method.change->handle, outputs));
    if (!handle || *handle == 0)
        return write(std::move(running.record));
    if (!method.change->isLast) {
        auto begun = running.record;
        begun.result = AuditResult::Begun;
        write(std::move(begun));
    }
    if (const auto known = Enter({running.object, *handle}, running))
        WriteEnd({std::move(running.record)}, *known);
}

/// Returns the outcome of a call that was answered without an error: a failure if one of its
/// statuses is.
CallAudit::Outcome CallAudit::GetOutcome(const MethodDescription& method, const Values& outputs)
{
    const auto* const statuses = FindValue(method.outputs, method.change->statuses, outputs);
    if (statuses == nullptr)
        return {AuditResult::Taken, {}};
    const auto& all = statuses->GetElements<unsigned int>();
    const auto bad = std::count_if(all.begin(), all.end(), [](auto each) { return each != 0; });
    if (bad == 0)
        return {};
    const auto first = std::find_if(all.begin(), all.end(), [](auto each) { return each != 0; });
    return {AuditResult::Failed,
            fmt::format("{} of {}: {}", bad, all.size(), UA_StatusCode_name(*first))};
}

/// Enters work that has begun. Returns its outcome if the event was faster than the answer.
std::optional<CallAudit::Outcome> CallAudit::Enter(const WorkId& id, const Running& running)
{
    const Support::Lock lock(mutex);
    if (const auto found = early.find(id);
        found != early.end() && found->second.time >= running.begin)
        return std::exchange(found->second.outcome, {});
    if (works.size() >= mostWorks)
        return Outcome{AuditResult::Taken, "too many handles are open to tell the end of the work"};
    works[id] = {running.record};
    return std::nullopt;
}

void CallAudit::Refuse(const ClientSession& session, const Core::NodeId& object,
                       const MethodDescription& method, const Values& inputs, std::string reason)
{
    if (!method.change || IsExcepted(method, inputs) || !MayTellRefusal(session))
        return;
    auto record = MakeRecord(session, object, method, inputs);
    record.result = AuditResult::Refused;
    record.reason = std::move(reason);
    write(std::move(record));
}

bool CallAudit::MayTellRefusal(const ClientSession& session)
{
    const auto now = Clock::now();
    const Support::Lock lock(mutex);
    auto& own = refusals[session.number];
    if (now - own.since > refusalInterval) {
        own.since = now;
        own.count = 0;
    }
    if (own.count >= mostRefusals) {
        ++own.leftOut;
        return false;
    }
    ++own.count;
    return true;
}

CallAudit::Outcome CallAudit::MakeOutcome(const OutcomeFields& fields, long number)
{
    const auto& description = fields.description;
    if (number == description.success)
        return {};
    const auto text = description.texts.find(number);
    return {AuditResult::Failed,
            text == description.texts.end() ? fmt::format("outcome {}", number) : text->second};
}

void CallAudit::OnEvent(const Event& event)
{
    const auto fields = outcomes.find(event.type->GetNodeId());
    if (fields == outcomes.end())
        return;
    const auto handle = GetNumber(&event.fields.at(fields->second.handle));
    const auto number = GetNumber(&event.fields.at(fields->second.outcome));
    if (!handle || !number)
        return;
    EndWork({event.source, *handle}, MakeOutcome(fields->second, *number));
}

void CallAudit::EndWork(const WorkId& id, const Outcome& outcome)
{
    Records records;
    {
        const Support::Lock lock(mutex);
        const auto found = works.find(id);
        if (found == works.end())
            return KeepEarly(id, outcome);
        records = std::move(found->second);
        works.erase(found);
    }
    WriteEnd(std::move(records), outcome);
}

/// Keeps an outcome for a call that has not been answered yet. Most of these are of handles that
/// were not opened for a change.
void CallAudit::KeepEarly(const WorkId& id, Outcome outcome)
{
    if (early.insert_or_assign(id, EarlyOutcome{Clock::now(), std::move(outcome)}).second)
        earlyOrder.push_back(id);
    if (earlyOrder.size() <= mostEarly)
        return;
    early.erase(earlyOrder.front());
    earlyOrder.pop_front();
}

void CallAudit::EndSession(const ClientSession& session)
{
    WriteEnd(TakeWorksOf(session.number), {AuditResult::Ended, "the session has ended"});
    std::uint64_t leftOut = 0;
    {
        const Support::Lock lock(mutex);
        if (const auto own = refusals.extract(session.number))
            leftOut = own.mapped().leftOut;
    }
    if (leftOut == 0)
        return;
    AuditRecord record;
    record.caller = {session.user, session.address, session.number};
    record.method = "-";
    record.result = AuditResult::Refused;
    record.reason = "refused calls beyond those shown";
    record.calls = leftOut;
    write(std::move(record));
}

/// Returns the session's records of work, and those of others on work that this session has begun.
CallAudit::Records CallAudit::TakeWorksOf(std::uint64_t session)
{
    Records taken;
    const Support::Lock lock(mutex);
    for (auto work = works.begin(); work != works.end();) {
        Records& records = work->second;
        const bool isBeginner = records.front().caller.session == session;
        const auto isTaken = [session, isBeginner](const AuditRecord& each) {
            return isBeginner || each.caller.session == session;
        };
        std::copy_if(records.begin(), records.end(), std::back_inserter(taken), isTaken);
        std::erase_if(records, isTaken);
        work = records.empty() ? works.erase(work) : std::next(work);
    }
    return taken;
}

void CallAudit::WriteEnd(Records records, const Outcome& outcome)
{
    for (auto& record : records) {
        record.result = outcome.result;
        record.reason = outcome.reason;
        write(std::move(record));
    }
}

} // namespace Host
