#include "ModuleIdentifiers.h"

#include "Core/NamespaceMap.h"

namespace FileSystem {

namespace {

Core::NodeId MakeNodeId(unsigned int numericId)
{
    return {Core::NamespaceMap::GetNamespaceIndex(Module::GetURI()), numericId};
}

} // namespace

const std::string& Module::GetName()
{
    static const std::string name = "Talvensor.FileSystem";
    return name;
}

const std::string& Module::GetURI()
{
    static const std::string uri = "urn:Talvensor:FileSystem";
    return uri;
}

// The numbers are published; their gaps and their order stay.

const Core::NodeId& ObjectTypes::FileSystem()
{
    static const Core::NodeId nodeId = MakeNodeId(1);
    return nodeId;
}

const Core::NodeId& ObjectTypes::AckEvent()
{
    static const Core::NodeId nodeId = MakeNodeId(54);
    return nodeId;
}

const Core::NodeId& ObjectTypes::ExistsResultEvent()
{
    static const Core::NodeId nodeId = MakeNodeId(64);
    return nodeId;
}

const Core::NodeId& ObjectTypes::DeleteResultEvent()
{
    static const Core::NodeId nodeId = MakeNodeId(66);
    return nodeId;
}

const Core::NodeId& ObjectTypes::CreateDirectoryResultEvent()
{
    static const Core::NodeId nodeId = MakeNodeId(67);
    return nodeId;
}

const Core::NodeId& ObjectTypes::ListResultEvent()
{
    static const Core::NodeId nodeId = MakeNodeId(68);
    return nodeId;
}

const Core::NodeId& DataTypes::OpenModeEnum()
{
    static const Core::NodeId nodeId = MakeNodeId(33);
    return nodeId;
}

const Core::NodeId& DataTypes::ModeEnum()
{
    static const Core::NodeId nodeId = MakeNodeId(51);
    return nodeId;
}

const Core::NodeId& DataTypes::ListItem()
{
    static const Core::NodeId nodeId = MakeNodeId(50);
    return nodeId;
}

} // namespace FileSystem
