#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Core/Events.h"
#include "Core/Value.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Core {

class INode;

/// The positions of the fields that every event has (OPC 10000-5, 6.4.2) in the value vectors of
/// one event type.
class BaseEventFields
{
public:
    /// The outcomes of fields, by position.
    using Outcomes = std::vector<std::pair<std::size_t, Embedding::OutcomeDescription>>;

    explicit BaseEventFields(const EventArguments& arguments, Outcomes outcomes = {});

    /// Fills the base fields that are empty. The message is `typeName` with the event's own fields.
    /// If a field reports a failure, the message describes it and the severity is higher.
    void Fill(std::vector<Value>& fields, const INode& source, const NodeId& type,
              const std::string& typeName) const;

private:
    enum Field : std::size_t
    {
        EventId,
        EventType,
        SourceNode,
        SourceName,
        Time,
        ReceiveTime,
        Message,
        Severity,
        Count,
    };

    template <typename MakeValue>
    void FillOne(std::vector<Value>& fields, Field field, const MakeValue& makeValue) const;

    /// A field that reports a failure, and the number that it has.
    struct FailedOutcome
    {
        const Embedding::OutcomeDescription* outcome = nullptr;
        long number = 0;
    };

    /// Returns the first one.
    [[nodiscard]] std::optional<FailedOutcome>
    FindFailedOutcome(const std::vector<Value>& fields) const;
    /// Returns a text such as "AckEvent: FileHandle 7, Result 0" or
    /// "AckEvent: closing failed (FileHandle 7, Result 3)".
    [[nodiscard]] std::string MakeMessage(const std::vector<Value>& fields,
                                          const std::string& typeName,
                                          const std::optional<FailedOutcome>& failure) const;
    [[nodiscard]] std::string ListOwn(const std::vector<Value>& fields) const;

    std::array<std::size_t, Count> positions{};
    std::vector<std::pair<std::size_t, std::string>> own; ///< other fields: position and name
    Outcomes outcomes;
};

} // namespace Core
