#pragma once

#include "Commands/CommandRunner.h"
#include "Connection/Trust.h"
#include "Ending.h"
#include "Fleet/HostList.h"

#include <Support/Mutex.h>

#include <chrono>
#include <string>
#include <vector>

namespace Cli {

/// A command for many hosts, and what it needs on each.
struct SharedCommand
{
    Command command;
    OutputChoice choice;
    ConnectionSettings connection; ///< goes before that of each host
    Trust::Options trust;
};

/// The outcome of a command on one host.
struct HostResult
{
    std::string name;
    bool isBegun = false; ///< otherwise an interruption came first
    Ending ending;
    Totals totals;
    std::chrono::duration<double> time{0};
    std::string output;                ///< of its standard output
    std::vector<std::string> messages; ///< of its standard error
    std::string reason;                ///< of a failure, in one line

    [[nodiscard]] bool IsGood() const noexcept
    {
        return isBegun && !ending.isInterrupted && ending.status == ExitStatus::Done;
    }
};

/// The connections of all hosts that are under way, and their common end. Any thread.
class OpenConnections
{
public:
    /// Closes and forgets the connection when it goes. Both must outlive it.
    class Entry
    {
    public:
        Entry(OpenConnections& all, Client::Connection& connection);
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;
        ~Entry();

    private:
        OpenConnections& all;
        Client::Connection& connection;
    };

    /// Cancels all, those that come later too: each ends within the time that `Cancellation` gives
    /// for closing what is open.
    void End() EXCLUDES(mutex);

    [[nodiscard]] const Client::Cancellation& GetCancellation() const noexcept
    {
        return cancellation;
    }

private:
    Client::Cancellation cancellation;
    Support::Mutex mutex;
    std::vector<Client::Connection*> connections GUARDED_BY(mutex);
};

/// Throws InvalidArgumentException for a command that cannot be run on many hosts: one that reads
/// standard input or stays until it is ended, and one whose output is a file.
void CheckForManyHosts(const Command& command);

/// Runs the command on a host to its end. Asks nothing: neither for a password, which comes from a
/// file, nor for trust.
[[nodiscard]] HostResult RunOnHost(const NamedHost& host, const SharedCommand& shared,
                                   OpenConnections& connections);

} // namespace Cli
