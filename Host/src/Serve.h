#pragma once

#include "Application.h"

namespace Host {

/// Prints the address and serves clients until a signal comes. If work does not finish in time,
/// ends the process with the status `NotDrained`: waiting for it could take forever.
[[nodiscard]] ExitStatus Serve(PreparedHost& host, const Signals& signals);

/// Starts to serve, and stops before it answers a client. Throws if the host cannot serve.
[[nodiscard]] ExitStatus TryServing(PreparedHost& host);

} // namespace Host
