#include "Endpoint/CallAudit.h"

#include "Core/Exception.h"

#include <fmt/format.h>

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

void AddSubject(AuditRecord& record, const Core::Value& subject)
{
    try {
        if (!subject.IsArray())
            return record.AddPath(subject.GetText());
        for (const auto& text : subject.GetElements<std::string>())
            record.AddPath(text);
    } catch (const Core::Exception&) { // NOLINT(bugprone-empty-catch): refused for its type
    }
}

} // namespace

CallAudit::CallAudit(const InformationModel& model, Write write)
    : write(std::move(write))
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

AuditRecord CallAudit::MakeRecord(const ClientSession& session, const MethodDescription& method,
                                  const Values& inputs)
{
    AuditRecord record;
    record.caller = {session.user, session.address, session.number};
    record.method = method.browseName.GetName();
    if (const auto* subject = FindValue(method.inputs, method.change->subject, inputs))
        AddSubject(record, *subject);
    return record;
}

std::optional<CallAudit::Running> CallAudit::Begin(const ClientSession& session,
                                                   const Core::NodeId& object,
                                                   const MethodDescription& method,
                                                   const Values& inputs, std::uint64_t bytes)
{
    if (!method.change)
        return std::nullopt;
    const auto& change = *method.change;
    if (GetNumber(FindValue(method.inputs, change.exceptArgument, inputs)) == change.exceptValue)
        return std::nullopt;
    if (const auto handle = GetNumber(FindValue(method.inputs, change.handle, inputs))) {
        Continue(session, {object, *handle}, method, bytes);
        return std::nullopt;
    }
    Running running{MakeRecord(session, method, inputs), object, &method, Clock::now()};
    running.record.bytes = bytes;
    return running;
}

/// Adds to the record that the session has of the work. Handles that nobody has opened for a change
/// change nothing.
void CallAudit::Continue(const ClientSession& session, const WorkId& id,
                         const MethodDescription& method, std::uint64_t bytes)
{
    const Support::Lock lock(mutex);
    const auto found = works.find(id);
    if (found == works.end())
        return;
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
}

void CallAudit::End(Running running, const Values& outputs)
{
    const MethodDescription& method = *running.method;
    const auto handle = GetNumber(FindValue(method.outputs, method.change->handle, outputs));
    if (!handle)
        return write(std::move(running.record));
    if (!method.change->isLast) {
        auto begun = running.record;
        begun.result = AuditResult::Begun;
        write(std::move(begun));
    }
    if (const auto outcome = Enter({running.object, *handle}, running))
        WriteEnd({std::move(running.record)}, *outcome);
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

void CallAudit::Refuse(const ClientSession& session, const MethodDescription& method,
                       const Values& inputs, std::string reason)
{
    if (!method.change || !MayTellRefusal(session))
        return;
    auto record = MakeRecord(session, method, inputs);
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
    auto outcome = MakeOutcome(fields->second, *number);
    const WorkId id{event.source, *handle};
    Records records;
    {
        const Support::Lock lock(mutex);
        const auto found = works.find(id);
        if (found == works.end())
            return KeepEarly(id, std::move(outcome));
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
