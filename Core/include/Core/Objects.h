#pragma once

#include "Core/Export.h"
#include "Core/NodeId.h"

/// Well-known nodes of every address space.
namespace Core::Objects {

/// The root of all objects (i=85 of the base types).
[[nodiscard]] CORE_API const NodeId& ObjectsFolder();

/// The folder of session objects. It holds each session's object from the session's opening until
/// its removal is announced; observers of the folder hear of both.
[[nodiscard]] CORE_API const NodeId& SessionsFolder();

} // namespace Core::Objects
