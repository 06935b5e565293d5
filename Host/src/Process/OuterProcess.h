#pragma once

#include "Support/Descriptor.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Host {

/// The result of a task. The descriptor may be closed.
struct OuterResult
{
    std::vector<std::string> texts;
    Support::Descriptor descriptor;
};

/// A child process that stays outside of the sandbox and opens files again for the confined host:
/// the user file, certificates and logs that an operator has changed or rotated. It also writes
/// what the host has to leave behind outside.
///
/// It knows its tasks from the beginning. A request is the name of one, never a path, so that a
/// host in the hands of an attacker gets no other file through it; a task that takes more than its
/// name has to take it as coming from an attacker. It runs no programs, makes no connections,
/// ignores the signals that end the host, and ends with it.
class OuterProcess
{
public:
    using Arguments = std::vector<std::string>;
    /// An exception that it throws is thrown by `Run`.
    using Task = std::function<OuterResult(const Arguments&)>;
    using Tasks = std::map<std::string, Task>;

    enum class Filter
    {
        SystemCalls,
        None, ///< for a host without a sandbox
    };

    /// Starts the process, which keeps copies of the tasks and of nothing else that is open.
    /// REQUIRES: the calling process has one thread. Throws std::system_error.
    OuterProcess(const Tasks& tasks, Filter filter);
    OuterProcess(const OuterProcess&) = delete;
    OuterProcess& operator=(const OuterProcess&) = delete;
    ~OuterProcess() = default; // the process notices that its socket is closed

    /// Runs a task there. Throws std::runtime_error with the task's text if it has thrown, and if
    /// the process is gone or `interruption` becomes readable before the result is there; after
    /// that no further task can be run. One thread at a time.
    OuterResult Run(const std::string& task, int interruption, const Arguments& arguments = {});

private:
    Support::Descriptor socket;
};

} // namespace Host
