#pragma once

#include "Core/Events.h"
#include "Core/Value.h"

#include <array>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Core {

class INode;

/// Where the fields that every event has (OPC 10000-5, 6.4.2) are in the value vectors of one event
/// type.
class BaseEventFields
{
public:
    explicit BaseEventFields(const EventArguments& arguments);

    /// Fills those that are empty. The message is `typeName` with the event's own fields.
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

    /// For people: "AckEvent: FileHandle 7, Result 1".
    [[nodiscard]] std::string MakeMessage(const std::vector<Value>& fields,
                                          const std::string& typeName) const;

    std::array<std::size_t, Count> positions{};
    std::vector<std::pair<std::size_t, std::string>> own; ///< other fields: position and name
};

} // namespace Core
