// The destructors of the interfaces. Defining them here gives each interface one table of virtual
// operations and one type description in the process.

#include "Core/Behaviour.h"
#include "Core/CoreContext.h"
#include "Core/Dispatcher.h"
#include "Core/Events.h"
#include "Core/Node.h"
#include "Core/NodeFactory.h"
#include "Core/NodeProvider.h"
#include "Core/Sessions.h"

namespace Core {

IBehaviour::~IBehaviour() = default;
IExecutableBehaviour::~IExecutableBehaviour() = default;
IBehaviourFactory::~IBehaviourFactory() = default;
INodeProvider::~INodeProvider() = default;
IEntryList::~IEntryList() = default;
IEventObserver::~IEventObserver() = default;
IReferenceObserver::~IReferenceObserver() = default;
INode::~INode() = default;
IObjectType::~IObjectType() = default;
IObject::~IObject() = default;
CoreContext::~CoreContext() = default;
Dispatcher::~Dispatcher() = default;
NodeFactory::~NodeFactory() = default;
SessionHandler::~SessionHandler() = default;
bool SessionHandler::IsClosed() const noexcept
{
    return false;
}
Sessions::~Sessions() = default;

} // namespace Core
