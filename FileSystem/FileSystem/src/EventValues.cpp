#include "EventValues.h"

namespace FileSystem {

std::vector<Core::Value> MakeEventValues(const Core::IObjectType& type, unsigned int eventTypeIndex)
{
    std::vector<Core::Value> values(type.GetEventArguments().GetFieldsSize());
    values.at(eventTypeIndex) = Core::Value(type.GetNodeId());
    return values;
}

} // namespace FileSystem
