#include "Process/Process.h"

#include "Core/Exception.h"
#include "Support/SystemError.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <limits>
#include <linux/capability.h>
#include <poll.h>
#include <sched.h>
#include <string>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Host {

namespace {

std::atomic<int> firstSignal = 0;
std::atomic<int> stopDescriptor = -1;
std::atomic<int> reloadDescriptor = -1;
std::atomic<bool> outlivesTerminal = false; // started by nohup

// The signal handlers call only functions that are safe in one (signal-safety(7)).

/// Adds to the counter of an eventfd. Cannot fail: the counter does not become full.
void Count(int descriptor)
{
    const auto saved = errno;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(descriptor, &one, sizeof(one));
    errno = saved;
}

void HandleStopSignal(int number)
{
    int none = 0;
    if (!firstSignal.compare_exchange_strong(none, number))
        _exit(128 + number);
    Count(stopDescriptor);
}

/// The kernel sends the signal when the terminal has gone, everybody else to reload.
void HandleReloadSignal(int number, siginfo_t* origin, void* /*context*/)
{
    int none = 0;
    if (origin->si_code != SI_KERNEL)
        Count(reloadDescriptor);
    else if (!outlivesTerminal && firstSignal.compare_exchange_strong(none, number))
        Count(stopDescriptor);
}

/// The capabilities that a file server needs to handle files as root does. Those that open files
/// without a path (CAP_DAC_READ_SEARCH) or could undo the sandbox are not among them.
constexpr std::array keptByRoot = {CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_FOWNER, CAP_FSETID,
                                   CAP_NET_BIND_SERVICE};

/// As the kernel takes it; the C library has it from 2.41 on.
struct SchedulingAttributes
{
    std::uint32_t size = sizeof(SchedulingAttributes);
    std::uint32_t policy = 0;
    std::uint64_t flags = 0;
    std::int32_t nice = 0;
    std::uint32_t priority = 0;
    std::uint64_t runtime = 0; // of an ordinary thread: its slice, in nanoseconds
    std::uint64_t deadline = 0;
    std::uint64_t period = 0;
};

std::atomic<rlim_t> keptDescriptors = 0;

/// Sets the soft limit to the hard one less `kept`. If it cannot be set, opening a descriptor fails
/// later.
void MoveDescriptorLimit(rlim_t kept) noexcept
{
    rlimit limit = {};
    if (keptDescriptors == 0 || getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max - kept;
    static_cast<void>(setrlimit(RLIMIT_NOFILE, &limit));
}

/// Returns the memory limit of the process's control group; the largest number if there is none.
std::uint64_t GetGroupMemory()
{
    constexpr auto none = std::numeric_limits<std::uint64_t>::max();
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        constexpr std::string_view unified = "0::/";
        if (!line.starts_with(unified))
            continue;
        std::ifstream limit("/sys/fs/cgroup/" + line.substr(unified.size()) + "/memory.max");
        std::uint64_t bytes = 0;
        return limit >> bytes ? bytes : none; // "max": no limit
    }
    return none;
}

} // namespace

void IgnoreFatalSignals()
{
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    if (sigaction(SIGPIPE, &ignore, nullptr) != 0 || sigaction(SIGXFSZ, &ignore, nullptr) != 0)
        Support::ThrowSystemError("cannot ignore SIGPIPE and SIGXFSZ");
}

std::uint64_t RaiseDescriptorLimit(std::uint64_t kept)
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        Support::ThrowSystemError("cannot read the limit of descriptors");
    const rlim_t possible = std::min<rlim_t>(kept, limit.rlim_max / 2);
    limit.rlim_cur = limit.rlim_max - possible;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
        Support::ThrowSystemError("cannot raise the limit of descriptors");
    keptDescriptors = possible;
    return limit.rlim_cur;
}

KeptDescriptors::KeptDescriptors() noexcept
{
    MoveDescriptorLimit(0);
}

KeptDescriptors::~KeptDescriptors()
{
    MoveDescriptorLimit(keptDescriptors);
}

bool SettleDescriptors() noexcept
{
    int opened = -1;
    do {
        opened = open("/dev/null", O_RDWR); // gets the lowest number that is free
        if (opened < 0)
            return false;
    } while (opened <= STDERR_FILENO);
    closefrom(STDERR_FILENO + 1);
    return true;
}

void RefuseInspection()
{
    if (prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0)
        Support::ThrowSystemError("cannot protect the process's memory from other processes");
}

void RefuseNewPrivileges()
{
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        Support::ThrowSystemError("cannot switch off gaining privileges");
}

void DropCapabilities(KeptCapabilities which)
{
    __user_cap_header_struct header = {};
    header.version = _LINUX_CAPABILITY_VERSION_3;
    std::array<__user_cap_data_struct, 2> held{};
    if (syscall(SYS_capget, &header, held.data()) != 0)
        Support::ThrowSystemError("cannot read the process's capabilities");
    unsigned int kept = 0;
    if (which == KeptCapabilities::OfFileServer) {
        for (const auto capability : keptByRoot)
            kept |= 1U << static_cast<unsigned int>(capability); // all of them below 32
    }
    held[0].permitted &= kept;
    held[0].effective &= kept;
    held[0].inheritable = 0;
    held[1] = {};
    if (syscall(SYS_capset, &header, held.data()) != 0)
        Support::ThrowSystemError("cannot give up capabilities");
}

void DisableCoreFiles()
{
    const rlimit none = {};
    if (setrlimit(RLIMIT_CORE, &none) != 0)
        Support::ThrowSystemError("cannot switch off core files");
}

void AskForShortSlices() noexcept
{
    constexpr std::chrono::nanoseconds slice =
        std::chrono::microseconds{200}; // otherwise 1 to 3 ms
    SchedulingAttributes attributes;
    if (syscall(SYS_sched_getattr, 0, &attributes, sizeof(attributes), 0) != 0 ||
        attributes.policy != SCHED_OTHER)
        return;
    attributes.runtime = slice.count();
    syscall(SYS_sched_setattr, 0, &attributes, 0); // goes on with the usual slices if refused
}

bool IsRoot() noexcept
{
    return geteuid() == 0;
}

std::uint64_t GetMachineMemory()
{
    const auto pages = sysconf(_SC_PHYS_PAGES);
    const auto pageSize = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0)
        Support::ThrowSystemError("cannot read the size of the machine's memory");
    return std::min(static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize),
                    GetGroupMemory());
}

MemoryGauge::MemoryGauge()
    : statistics(open("/proc/self/statm", O_RDONLY | O_CLOEXEC))
{
    if (!statistics.IsOpen())
        Support::ThrowSystemError("cannot open /proc/self/statm");
}

std::uint64_t MemoryGauge::Read() const
{
    std::array<char, 128> text{};
    const auto length = pread(statistics.Get(), text.data(), text.size(), 0);
    if (length <= 0)
        Support::ThrowSystemError("cannot read /proc/self/statm");
    // "size resident shared ...", in pages.
    const std::string_view fields(text.data(), static_cast<std::size_t>(length));
    const auto resident = fields.substr(std::min(fields.find(' ') + 1, fields.size()));
    std::uint64_t pages = 0;
    std::from_chars(resident.data(), resident.data() + resident.size(), pages);
    return pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

Signals::Signals()
    : requested(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    , reloadRequested(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!requested.IsOpen() || !reloadRequested.IsOpen())
        Support::ThrowSystemError("cannot handle signals");
    int none = -1;
    if (!stopDescriptor.compare_exchange_strong(none, requested.Get()))
        throw Core::InvalidStateException("signals are handled already");
    firstSignal = 0;
    struct sigaction action = {};
    action.sa_handler = &HandleStopSignal;
    action.sa_flags = SA_RESTART;
    for (std::size_t index = 0; index < signals.size(); ++index)
        sigaction(signals.at(index), &action, &previous.at(index));
    reloadDescriptor = reloadRequested.Get();
    action.sa_sigaction = &HandleReloadSignal;
    action.sa_flags |= SA_SIGINFO;
    sigaction(SIGHUP, nullptr, &previousReload);
    outlivesTerminal = previousReload.sa_handler == SIG_IGN;
    sigaction(SIGHUP, &action, nullptr);
}

Signals::~Signals()
{
    sigaction(SIGHUP, &previousReload, nullptr);
    for (std::size_t index = 0; index < signals.size(); ++index)
        sigaction(signals.at(index), &previous.at(index), nullptr);
    stopDescriptor = -1;
    reloadDescriptor = -1;
}

Signals::Request Signals::Wait(int descriptor) const
{
    std::array<pollfd, 3> waiting{pollfd{requested.Get(), POLLIN, 0},
                                  pollfd{reloadRequested.Get(), POLLIN, 0},
                                  pollfd{descriptor, POLLIN, 0}};
    while (poll(waiting.data(), waiting.size(), -1) < 0 && errno == EINTR)
        continue;
    if (waiting[0].revents != 0)
        return Request::Stop;
    std::uint64_t count = 0;
    if (read(reloadRequested.Get(), &count, sizeof(count)) == sizeof(count))
        return Request::Reload;
    return waiting[2].revents != 0 ? Request::Other : Request::Stop;
}

std::optional<int> Signals::GetSignal() noexcept
{
    const int number = firstSignal;
    return number == 0 ? std::nullopt : std::optional(number);
}

} // namespace Host
