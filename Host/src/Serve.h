#pragma once

#include "Application.h"

namespace Host {

/// Serves clients from a prepared host until a signal asks to stop; prints where it can be found.
/// When work is left that does not come to an end in its time, the process ends here, with the
/// status `NotDrained`: waiting for it could take forever.
[[nodiscard]] ExitStatus Serve(PreparedHost& host, const StopSignals& stop);

/// Starts to serve, and stops before any client is answered. Throws what keeps it from serving.
[[nodiscard]] ExitStatus TryServing(PreparedHost& host);

} // namespace Host
