#pragma once

#include "Commands/CommandRunner.h"

namespace Cli {

// The commands that need no server. They throw ClientException.

/// Shows the client's own certificate, which is made where there is none.
[[nodiscard]] ExitStatus ShowCertificate(const CertificateCommand& command, OutputChoice choice,
                                         const Client::Cancellation& cancellation);

/// Lists the servers that are trusted, or takes the trust in some away.
[[nodiscard]] ExitStatus ShowKnownServers(const KnownCommand& command, OutputChoice choice,
                                          Console& console,
                                          const Client::Cancellation& cancellation);

} // namespace Cli
