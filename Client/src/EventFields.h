#pragma once

#include <open62541/types.h>
#include <open62541/types_generated.h>

#include <array>
#include <cstddef>

namespace Client {

// The event types by their published numbers.
constexpr UA_UInt32 ackEventType = 54;
constexpr UA_UInt32 existsEventType = 64;
constexpr UA_UInt32 deleteEventType = 66;
constexpr UA_UInt32 createDirectoryEventType = 67;
constexpr UA_UInt32 listEventType = 68;

// The fields of events in the order in which they are subscribed to.
constexpr std::size_t typeField = 0;
constexpr std::size_t timeField = 1;
constexpr std::size_t handleField = 2;
constexpr std::size_t resultField = 3;
constexpr std::size_t existField = 4;
constexpr std::size_t contentField = 5;
constexpr std::size_t limitField = 6;
constexpr std::size_t eventFields = 7;

/// The event filter that selects these fields.
class EventFilter
{
public:
    /// `files`: the index of the namespace of the event types.
    explicit EventFilter(UA_UInt16 files);
    EventFilter(const EventFilter&) = delete;
    EventFilter& operator=(const EventFilter&) = delete;

    [[nodiscard]] UA_EventFilter& Get() noexcept { return filter; }

private:
    std::array<UA_SimpleAttributeOperand, eventFields> operands{};
    std::array<UA_QualifiedName, eventFields> names{};
    UA_EventFilter filter{};
};

/// Returns the number of the event's type; 0 for types of other namespaces than `files`.
[[nodiscard]] UA_UInt32 GetEventType(const UA_Variant& type, UA_UInt16 files);
/// Returns true if the event says that others were dropped.
[[nodiscard]] bool IsOverflow(const UA_Variant& type);

template <typename T>
T GetScalar(const UA_Variant& value, std::size_t type, T otherwise)
{
    return UA_Variant_hasScalarType(&value, &UA_TYPES[type]) ? *static_cast<const T*>(value.data)
                                                             : otherwise;
}

} // namespace Client
