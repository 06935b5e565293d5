#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Endpoint/Namespaces.h"

#include <open62541/server.h>

namespace Host {

/// Adds an object below Server/Namespaces for each model that was loaded: its URI, version and day
/// as in its file. Call it before the server runs. Throws UaException.
void AddNamespaceMetadata(UA_Server& server, const Core::Embedding::InformationModel& model,
                          const Namespaces& namespaces);

} // namespace Host
