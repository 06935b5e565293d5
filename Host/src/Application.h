#pragma once

#include "Configuration/Configuration.h"
#include "Core/Embedding/Runtime.h"
#include "Network/Addresses.h"
#include "Network/Admission.h"
#include "Process/Process.h"
#include "Process/Roots.h"
#include "Process/Sandbox.h"
#include "Users/Pki.h"
#include "Users/Users.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Host {

/// What the program's end says.
enum class ExitStatus
{
    Stopped = 0,
    Failed = 1,
    WrongConfiguration = 2, ///< or wrong flags
    DoorsOpen = 3,          ///< the host would have been open to others
    SandboxRefused = 4,
    NotDrained = 5, ///< stopped, but a node did not finish what was queued in its time
};

/// Everything that is opened, loaded or decided before the first client can connect. The process is
/// confined already, has one thread, and no node exists yet.
struct PreparedHost
{
    Configuration configuration;
    std::vector<Root> roots;
    std::vector<ListenAddress> addresses;
    std::unique_ptr<Users> users; ///< null: anybody may log in, see `admission`
    Pki pki;
    Admission admission;
    std::uint64_t descriptors = 0; ///< how many the process may have
    MemoryGauge memory;
    std::uint64_t memoryLimit = 0;
    /// With the modules and their models.
    std::unique_ptr<Core::Embedding::Runtime> runtime;
    SandboxReport sandbox;
};

enum class Preparation
{
    ToServe,
    /// Makes neither key nor log, but refuses all that cannot be served.
    ToCheck,
};

/// Opens and loads what lies outside the roots, and then closes the sandbox, in this order: signals
/// that must not kill, limits, addresses, users, key and certificates, admission, log, memory
/// gauge, modules and models, sandbox, listening for a moment. Throws what its parts throw,
/// ConfigurationException for files that others have put there meanwhile, OpenDoorsException, and
/// SandboxRefusedException. REQUIRES: the process has one thread.
[[nodiscard]] PreparedHost PrepareHost(Configuration configuration,
                                       Preparation preparation = Preparation::ToServe);

class SandboxRefusedException : public Core::InvalidStateException
{
public:
    using Core::InvalidStateException::InvalidStateException;
};

/// Serves until a signal asks to stop, and stops.
using ServeOperation = std::function<ExitStatus(PreparedHost& host, const StopSignals& stop)>;

/// Throws what would keep a host from serving.
using TryOperation = std::function<ExitStatus(PreparedHost& host)>;

/// Runs what the command line asks for; exceptions end it with a text on standard error and their
/// status. Texts that were asked for go to standard output.
[[nodiscard]] ExitStatus RunApplication(int argumentCount, const char* const* arguments,
                                        const ServeOperation& serve,
                                        const TryOperation& tryServing);

} // namespace Host
