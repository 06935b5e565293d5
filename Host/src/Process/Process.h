#pragma once

#include "Support/Descriptor.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <optional>

namespace Host {

/// What the program does about the process that it runs in.
///
/// A pipe without a reader (SIGPIPE) and a file at its largest size (SIGXFSZ) become errors of the
/// operation. Throws SystemException.
void IgnoreFatalSignals();

/// Sets the soft limit of descriptors to the hard one, less those kept back for connections (half
/// of it at most), and returns it. Throws SystemException.
std::uint64_t RaiseDescriptorLimit(std::uint64_t kept);

/// While one lives, the process may use the descriptors that are kept back: whoever opens files
/// until nothing is left keeps nobody from connecting. Without effect before
/// `RaiseDescriptorLimit`. One at a time.
class KeptDescriptors
{
public:
    KeptDescriptors() noexcept;
    KeptDescriptors(const KeptDescriptors&) = delete;
    KeptDescriptors& operator=(const KeptDescriptors&) = delete;
    ~KeptDescriptors();
};

/// Closes the descriptors that the process was started with, but for standard input, output and
/// error; where one of these is closed it is opened on /dev/null, so that no file of a client takes
/// its place. The first thing that a program does. Returns false when /dev/null cannot be opened.
[[nodiscard]] bool SettleDescriptors() noexcept;

/// Keeps other processes of the host's user from looking into this one: its memory holds keys and
/// passwords. Also its files in /proc belong to root from now on. Throws SystemException.
void RefuseInspection();

/// A core file would hold keys and passwords. Throws SystemException.
void DisableCoreFiles();

[[nodiscard]] bool IsRoot() noexcept;

/// The memory of the machine, or of the control group that holds the process where that is less.
/// Throws SystemException. Call it before the sandbox is entered.
[[nodiscard]] std::uint64_t GetMachineMemory();

/// Reads how much memory the process has in use. To be made before the sandbox is entered.
class MemoryGauge
{
public:
    /// Throws SystemException.
    MemoryGauge();

    /// The resident memory in bytes: one system call, any thread. Throws SystemException.
    [[nodiscard]] std::uint64_t Read() const;

private:
    Support::Descriptor statistics;
};

/// Turns SIGINT and SIGTERM into a request to stop, for as long as it lives; the second signal ends
/// the process at once, whatever it does, with status 128 and the signal's number. There is one at
/// a time. Calls of the system that wait are restarted after the first signal.
class StopSignals
{
public:
    /// Throws InvalidStateException when there is one already, SystemException.
    StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    ~StopSignals();

    /// Readable from the first signal on, for `poll` and event loops; not to be read from.
    [[nodiscard]] int GetDescriptor() const noexcept { return requested.Get(); }

    /// The first signal; nothing before it. Any thread.
    [[nodiscard]] static std::optional<int> GetSignal() noexcept;

private:
    static constexpr std::array signals = {SIGINT, SIGTERM};

    Support::Descriptor requested;
    std::array<struct sigaction, signals.size()> previous{};
};

} // namespace Host
