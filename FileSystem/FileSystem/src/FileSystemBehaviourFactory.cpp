#include "FileSystemBehaviourFactory.h"

#include "Core/Guid.h"
#include "Core/NodeFactory.h"
#include "FileSystemBehaviour.h"

namespace FileSystem {

std::shared_ptr<Core::IBehaviour> FileSystemBehaviourFactory::MakeBehaviour(Core::INode& node) const
{
    return std::make_shared<FileSystemBehaviour>(node);
}

void RegisterFactories(Core::CoreContext& context)
{
    Core::NodeFactory& nodeFactory = context.GetNodeFactory();
    auto factory = std::make_shared<FileSystemBehaviourFactory>();
    // Published: the information model ties the object type to the factory by this identifier.
    const Core::Guid identifier("f3fff72d2665419db0820fe66246027f");
    nodeFactory.RegisterBehaviourFactory(identifier, std::move(factory));
}

} // namespace FileSystem

int RegisterFactories(Core::CoreContext& context)
{
    FileSystem::RegisterFactories(context);
    return 1;
}
