#pragma once

#include "Core/Export.h"

namespace Core {

class CoreContext;

} // namespace Core

/// The entry of a module, which defines it: registers the module's factories with
/// `context.GetNodeFactory()` and returns 1; any other result refuses the load. May throw. The host
/// looks it up by this plain name and calls it once for each load, on the thread that loads the
/// module. `context` lives as long as the module is loaded.
extern "C" CORE_API int RegisterFactories(Core::CoreContext& context);
