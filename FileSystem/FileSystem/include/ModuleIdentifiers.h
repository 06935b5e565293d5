#pragma once

#include "Core/NodeId.h"
#include "Export.h"

#include <string>

/// The module's identity and the identifiers of its types in the published information model
/// (`model/Talvensor.FileSystem.NodeSet2.xml`).
///
/// Each function makes its object on the first call and returns the same object from then on; any
/// thread. The identifiers take their namespace index from `Core::NamespaceMap`: before the host
/// has registered the module's URI they throw Core::NotFoundException, and the next call tries
/// again.
namespace FileSystem {

namespace Module {
FILESYSTEM_API const std::string& GetName();
FILESYSTEM_API const std::string& GetURI();
} // namespace Module

namespace ObjectTypes {
FILESYSTEM_API const Core::NodeId& FileSystem();
FILESYSTEM_API const Core::NodeId& AckEvent();
FILESYSTEM_API const Core::NodeId& ExistsResultEvent();
FILESYSTEM_API const Core::NodeId& DeleteResultEvent();
FILESYSTEM_API const Core::NodeId& CreateDirectoryResultEvent();
FILESYSTEM_API const Core::NodeId& ListResultEvent();
} // namespace ObjectTypes

namespace DataTypes {
FILESYSTEM_API const Core::NodeId& OpenModeEnum();
FILESYSTEM_API const Core::NodeId& ModeEnum();
FILESYSTEM_API const Core::NodeId& ListItem();
} // namespace DataTypes

} // namespace FileSystem
