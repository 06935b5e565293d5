#pragma once

#include "Core/Export.h"
#include "Core/NodeId.h"

/// Well-known nodes of every address space.
namespace Core::Objects {

/// The root of all objects (i=85 of the base types).
[[nodiscard]] CORE_API const NodeId& ObjectsFolder();

/// The folder of session objects: each session's object is in it from its opening until its
/// removal is announced, and observers of the folder hear of both.
[[nodiscard]] CORE_API const NodeId& SessionsFolder();

} // namespace Core::Objects
