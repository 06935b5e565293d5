#include "Process/ServiceNotifier.h"

#include "Core/Exception.h"
#include "Support/SystemError.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Host {

namespace {

std::string ReadEnvironment(const char* name)
{
    // Read before any thread could change it.
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    return value == nullptr ? "" : value;
}

std::optional<std::uint64_t> ReadNumber(const char* name)
{
    const auto text = ReadEnvironment(name);
    std::uint64_t number = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc{} || rest != text.data() + text.size())
        return std::nullopt;
    return number;
}

Support::Descriptor ConnectTo(const std::string& name)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const bool isPath = name.front() == '/';
    const bool isAbstract = name.front() == '@';
    if ((!isPath && !isAbstract) || name.size() >= sizeof(address.sun_path))
        throw Core::InvalidArgumentException(
            "NOTIFY_SOCKET '" + name +
            "' is neither an absolute path nor an abstract name of at most " +
            std::to_string(sizeof(address.sun_path) - 1) + " bytes");
    std::copy(name.begin(), name.end(), std::begin(address.sun_path));
    if (isAbstract)
        address.sun_path[0] = '\0';
    // A zero ends a path, but would belong to an abstract name.
    const auto size = offsetof(sockaddr_un, sun_path) + name.size() + (isPath ? 1 : 0);

    Support::Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.IsOpen() || connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address),
                                    static_cast<socklen_t>(size)) != 0)
        Support::ThrowSystemError("cannot reach the service manager at '" + name + "'");
    return socket;
}

/// The manager sets WATCHDOG_PID to the process that it watches.
std::optional<std::chrono::milliseconds> ReadAliveInterval()
{
    const auto limit = ReadNumber("WATCHDOG_USEC");
    const auto watched = ReadNumber("WATCHDOG_PID");
    if (!limit || *limit == 0 || (watched && *watched != static_cast<std::uint64_t>(getpid())))
        return std::nullopt;
    const auto half = std::chrono::microseconds(*limit / 2);
    return std::max(std::chrono::duration_cast<std::chrono::milliseconds>(half),
                    std::chrono::milliseconds(1));
}

/// Returns the monotonic clock in microseconds.
std::uint64_t GetMonotonicTime()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec) / 1'000;
}

} // namespace

ServiceNotifier ServiceNotifier::Connect()
{
    ServiceNotifier notifier;
    const auto name = ReadEnvironment("NOTIFY_SOCKET");
    if (!name.empty()) {
        notifier.socket = ConnectTo(name);
        notifier.aliveInterval = ReadAliveInterval();
    }
    return notifier;
}

void ServiceNotifier::NotifyReady(const std::string& status) const
{
    Send("READY=1\nSTATUS=" + status, 0);
}

void ServiceNotifier::NotifyReloading() const
{
    Send("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(GetMonotonicTime()) +
             "\nSTATUS=Reading users, certificates and log files again",
         0);
}

void ServiceNotifier::NotifyStopping() const
{
    Send("STOPPING=1\nSTATUS=Finishing queued work", 0);
}

void ServiceNotifier::NotifyAlive() const
{
    Send("WATCHDOG=1", MSG_DONTWAIT); // the next one comes in time
}

/// Errors are ignored: a manager that does not listen acts by itself.
void ServiceNotifier::Send(std::string_view text, int flags) const
{
    if (!socket.IsOpen())
        return;
    while (send(socket.Get(), text.data(), text.size(), MSG_NOSIGNAL | flags) < 0 && errno == EINTR)
        continue;
}

} // namespace Host
