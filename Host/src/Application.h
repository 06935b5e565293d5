#pragma once

#include "Configuration/Configuration.h"
#include "Core/Embedding/Runtime.h"
#include "Log/AppendedFile.h"
#include "Log/LogFile.h"
#include "Metrics/MetricsAddress.h"
#include "Network/Addresses.h"
#include "Network/Admission.h"
#include "Process/OuterProcess.h"
#include "Process/Process.h"
#include "Process/Roots.h"
#include "Process/Sandbox.h"
#include "Process/ServiceNotifier.h"
#include "Users/Pki.h"
#include "Users/Users.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Host {

/// The exit status of the program.
enum class ExitStatus
{
    Stopped = 0,
    Failed = 1,
    WrongConfiguration = 2, ///< or wrong flags
    DoorsOpen = 3,          ///< refused to start: the host would be open to others
    SandboxRefused = 4,
    NotDrained = 5, ///< stopped, but a node did not finish its queued work in time
};

/// Everything that is opened, loaded or decided before the first client can connect. The process is
/// confined, has one thread, and no nodes exist.
struct PreparedHost
{
    Configuration configuration;
    std::vector<Root> roots;
    std::vector<ListenAddress> addresses;
    std::unique_ptr<Users> users; ///< null: anybody may log in, see `admission`
    Pki pki;
    Admission admission;
    MetricsListener metrics;                 ///< not open: metrics are not served
    std::shared_ptr<AppendedFile> auditFile; ///< null: audit lines go to the log alone
    std::uint64_t descriptors = 0;           ///< the number that the process may have
    MemoryGauge memory;
    std::uint64_t memoryLimit = 0;
    /// Has loaded the modules and their models.
    std::unique_ptr<Core::Embedding::Runtime> runtime;
    SandboxReport sandbox;
    ServiceNotifier notifier;
    std::unique_ptr<OuterProcess> outerProcess; ///< null when it only checks
    std::shared_ptr<LogFile> logFile;           ///< null: it logs to standard error
};

enum class Preparation
{
    ToServe,
    /// Makes neither key nor log; throws what `ToServe` would throw.
    ToCheck,
};

/// Opens and loads everything outside the roots, and then enters the sandbox. The order: signals,
/// limits, the process that stays outside, addresses, users, key and certificates,
/// admission, logs, memory gauge, modules and models, sandbox, a test of listening. Throws what its
/// parts throw, ConfigurationException for files that others have replaced meanwhile,
/// OpenDoorsException, and SandboxRefusedException. REQUIRES: the process has one thread.
[[nodiscard]] PreparedHost PrepareHost(Configuration configuration,
                                       Preparation preparation = Preparation::ToServe);

class SandboxRefusedException : public Core::InvalidStateException
{
public:
    using Core::InvalidStateException::InvalidStateException;
};

/// Serves until a signal comes, and stops.
using ServeOperation = std::function<ExitStatus(PreparedHost& host, const Signals& signals)>;

/// Throws if the host could not serve.
using TryOperation = std::function<ExitStatus(PreparedHost& host)>;

/// Runs the command of the command line. Prints the text of an exception to standard error and
/// returns its status. Help and version go to standard output.
[[nodiscard]] ExitStatus RunApplication(int argumentCount, const char* const* arguments,
                                        const ServeOperation& serve,
                                        const TryOperation& tryServing);

} // namespace Host
