#pragma once

#include "Support/Descriptor.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <optional>

namespace Host {

// Settings of the process that the program runs in. All throw std::system_error if the system
// refuses.

/// Ignores SIGPIPE and SIGXFSZ: writing to a pipe without a reader or beyond the largest file size
/// fails with an error instead.
void IgnoreFatalSignals();

/// Sets the soft limit of descriptors to the hard one less `kept`, which are for connections (half
/// of the hard limit at most), and returns it.
std::uint64_t RaiseDescriptorLimit(std::uint64_t kept);

/// While one exists, the process may use the kept descriptors: connections can be accepted even if
/// files use all others. Has no effect before `RaiseDescriptorLimit`. One at a time.
class KeptDescriptors
{
public:
    KeptDescriptors() noexcept;
    KeptDescriptors(const KeptDescriptors&) = delete;
    KeptDescriptors& operator=(const KeptDescriptors&) = delete;
    ~KeptDescriptors();
};

/// Closes all descriptors but standard input, output and error, and opens these on /dev/null if
/// they are closed, so that no file of a client takes their place. Call it first of all. Returns
/// false if /dev/null cannot be opened.
[[nodiscard]] bool SettleDescriptors() noexcept;

/// Keeps other processes of the host's user from reading this one's memory, which holds keys and
/// passwords. The process's files in /proc belong to root from then on.
void RefuseInspection();

/// Keeps the process and its threads from gaining privileges by running a program.
void RefuseNewPrivileges();

enum class KeptCapabilities
{
    None,
    OfFileServer, ///< those of root for files and low ports, as far as the process has them
};

/// Gives up all other capabilities, for good. REQUIRES: the process has one thread.
void DropCapabilities(KeptCapabilities which);

/// Switches off core files, which would hold keys and passwords.
void DisableCoreFiles();

/// Has the scheduler give the calling thread, and those that it starts from then on, short slices
/// of a processor: a thread that has something to do then waits less for one that computes. None
/// gets more time by that. Without effect before Linux 6.12.
void AskForShortSlices() noexcept;

[[nodiscard]] bool IsRoot() noexcept;

/// Returns the memory of the machine in bytes, or the limit of the process's control group if that
/// is less. Call it before the sandbox is entered.
[[nodiscard]] std::uint64_t GetMachineMemory();

/// Reads how much memory the process uses. Construct it before the sandbox is entered.
class MemoryGauge
{
public:
    MemoryGauge();

    /// Returns the resident memory in bytes. Makes one system call; any thread may call it.
    [[nodiscard]] std::uint64_t Read() const;

private:
    Support::Descriptor statistics;
};

/// Turns SIGINT and SIGTERM into a request to stop, and SIGHUP into one to reload, while it exists.
/// The second signal to stop ends the process at once with status 128 + the signal's number. A
/// SIGHUP because the terminal has gone is a request to stop, and ignored under nohup. System calls
/// that wait are restarted after a signal. One at a time.
class Signals
{
public:
    /// Throws InvalidStateException if there is one already.
    Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    ~Signals();

    /// Returns a descriptor that is readable from the first signal to stop on. Do not read from it.
    [[nodiscard]] int GetDescriptor() const noexcept { return requested.Get(); }

    /// Returns the first signal to stop, nothing before it. Any thread may call it.
    [[nodiscard]] static std::optional<int> GetSignal() noexcept;

    enum class Request
    {
        Stop,
        Reload, ///< counts as answered once it is returned
        Other,
    };

    /// Waits for a request; `Other`: the descriptor is readable. One thread at a time.
    [[nodiscard]] Request Wait(int descriptor) const;

private:
    static constexpr std::array signals = {SIGINT, SIGTERM};

    Support::Descriptor requested;
    Support::Descriptor reloadRequested;
    std::array<struct sigaction, signals.size()> previous{};
    struct sigaction previousReload = {};
};

} // namespace Host
