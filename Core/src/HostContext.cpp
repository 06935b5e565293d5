#include "HostContext.h"

#include "Core/Exception.h"

namespace Core {

HostContext::HostContext()
    : dispatcher(std::make_shared<DispatcherImplementation>())
    , addressSpace(std::make_shared<AddressSpace>())
    , sessions(std::make_shared<SessionRegistry>(addressSpace))
{}

HostContext::~HostContext() = default;

std::shared_ptr<INode> HostContext::GetNode(const NodeId& nodeId)
{
    return addressSpace->Get(nodeId);
}

std::shared_ptr<IObjectType> HostContext::GetObjectType(const NodeId& nodeId)
{
    auto type = std::dynamic_pointer_cast<IObjectType>(addressSpace->Find(nodeId));
    if (!type)
        throw NotFoundException("There is no object type " + nodeId.ToString());
    return type;
}

unsigned int HostContext::AssignAffinityId()
{
    unsigned int id = 0;
    while (id == 0)
        id = ++lastAffinityId;
    return id;
}

NodeEnvironment HostContext::GetEnvironment()
{
    return {shared_from_this(), dispatcher};
}

} // namespace Core
