#include "BaseEventFields.h"

#include "Core/DateTime.h"
#include "Core/Guid.h"
#include "Core/Node.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <span>
#include <utility>

namespace Core {

namespace {

// The severity of an event that has none, on the scale from 1 to 1000: informational, or a failure
// that may need attention.
constexpr unsigned short defaultSeverity = 100;
constexpr unsigned short failureSeverity = 500;

std::size_t Locate(const EventArguments& arguments, const char* name)
{
    const auto& fields = arguments.GetFields();
    return static_cast<std::size_t>(
        std::find(fields.begin(), fields.end(), QualifiedName(0, name)) - fields.begin());
}

/// Returns the readable form of a value. An array, such as a listing, gives its number of entries
/// only.
std::string Describe(const Value& value)
{
    if (!value.IsArray())
        return value.ToString();
    std::size_t count = 1;
    for (const auto length : value.GetArrayDimensions())
        count *= length;
    return count == 1 ? "1 entry" : std::to_string(count) + " entries";
}

/// Returns nothing for a value that is no number, or too large.
std::optional<long> ReadNumber(const Value& value)
{
    const ValueKind kind = value.GetKind();
    if (value.IsArray() || kind < ValueKind::Boolean || kind > ValueKind::Int64)
        return std::nullopt;
    return kind == ValueKind::Boolean ? static_cast<long>(value.Get<bool>()) : value.Get<long>();
}

/// Returns a fresh identifier: random for the process, then counted, which saves a system call for
/// each event.
Value MakeEventId()
{
    static const auto drawn = Guid::Random().GetBytes();
    static std::atomic<std::uint64_t> count = 0;
    Value::ByteString id(drawn.begin(), drawn.end());
    for (auto number = count++; auto& byte : std::span(id).last<sizeof(number)>()) {
        byte = static_cast<unsigned char>(byte ^ number);
        number >>= 8U;
    }
    return {std::move(id), true};
}

} // namespace

BaseEventFields::BaseEventFields(const EventArguments& arguments, Outcomes outcomes)
    : outcomes(std::move(outcomes))
{
    constexpr std::array<const char*, Count> names{"EventId",    "EventType", "SourceNode",
                                                   "SourceName", "Time",      "ReceiveTime",
                                                   "Message",    "Severity"};
    std::transform(names.begin(), names.end(), positions.begin(),
                   [&arguments](const char* name) { return Locate(arguments, name); });
    const auto& fields = arguments.GetFields();
    for (std::size_t position = 0; position < fields.size(); ++position) {
        if (std::find(positions.begin(), positions.end(), position) == positions.end())
            own.emplace_back(position, fields[position].GetName());
    }
}

template <typename MakeValue>
void BaseEventFields::FillOne(std::vector<Value>& fields, Field field,
                              const MakeValue& makeValue) const
{
    const auto position = positions[field];
    if (position < fields.size() && fields[position].IsEmpty())
        fields[position] = makeValue();
}

void BaseEventFields::Fill(std::vector<Value>& fields, const INode& source, const NodeId& type,
                           const std::string& typeName) const
{
    const auto now = DateTime::Now();
    const auto failure = FindFailedOutcome(fields);
    FillOne(fields, EventId, MakeEventId);
    FillOne(fields, EventType, [&] { return Value(type); });
    FillOne(fields, SourceNode, [&] { return Value(source.GetNodeId()); });
    FillOne(fields, SourceName, [&] { return Value(source.GetBrowseName().GetName()); });
    FillOne(fields, Time, [&] { return Value(now); });
    FillOne(fields, ReceiveTime, [&] { return Value(now); });
    FillOne(fields, Message, [&] { return Value(MakeMessage(fields, typeName, failure)); });
    FillOne(fields, Severity, [&] { return Value(failure ? failureSeverity : defaultSeverity); });
}

std::optional<BaseEventFields::FailedOutcome>
BaseEventFields::FindFailedOutcome(const std::vector<Value>& fields) const
{
    for (const auto& [position, outcome] : outcomes) {
        const auto number =
            position < fields.size() ? ReadNumber(fields[position]) : std::optional<long>();
        if (number && *number != outcome.success)
            return FailedOutcome{&outcome, *number};
    }
    return std::nullopt;
}

std::string BaseEventFields::MakeMessage(const std::vector<Value>& fields,
                                         const std::string& typeName,
                                         const std::optional<FailedOutcome>& failure) const
{
    const std::string list = ListOwn(fields);
    if (!failure)
        return list.empty() ? typeName : typeName + ": " + list;
    const auto& texts = failure->outcome->texts;
    const auto text = texts.find(failure->number);
    return typeName + ": " + (text == texts.end() ? "failed" : text->second) + " (" + list + ")";
}

std::string BaseEventFields::ListOwn(const std::vector<Value>& fields) const
{
    std::string list;
    for (const auto& [position, name] : own) {
        if (position < fields.size() && !fields[position].IsEmpty())
            list += (list.empty() ? "" : ", ") + name + ' ' + Describe(fields[position]);
    }
    return list;
}

} // namespace Core
