#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace Host {

/// The calls of one method so far.
struct MethodMetrics
{
    /// Upper bounds of the times that are counted apart, in seconds.
    static constexpr std::array<double, 7> bounds{0.0001, 0.001, 0.01, 0.1, 1, 10, 100};

    std::map<std::string, std::uint64_t> calls; ///< by the name of the status that answered them
    /// The calls that took no longer than a bound and longer than the one before.
    std::array<std::uint64_t, bounds.size()> times{};
    std::uint64_t count = 0;
    double seconds = 0; ///< of all calls, from being taken to being answered
};

/// The state of an endpoint at one moment, and its counts so far. Says nothing of single clients.
struct EndpointMetrics
{
    std::size_t sessions = 0;       ///< active
    std::size_t endingSessions = 0; ///< that have ended and are still at work
    std::size_t connections = 0;
    std::uint64_t connectionsSoFar = 0;
    std::uint64_t received = 0; ///< bytes
    std::uint64_t sent = 0;     ///< bytes
    std::size_t callsInFlight = 0;
    std::size_t inputsInFlight = 0; ///< bytes of their inputs
    std::size_t waitingEvents = 0;  ///< that wait to be raised
    std::size_t waitingEventBytes = 0;
    bool isMemoryBrakeOn = false;
    std::map<std::string, MethodMetrics> methods; ///< by name
};

/// The state of the host beside its endpoint.
struct HostMetrics
{
    std::uint64_t refusedLogins = 0;
    std::uint64_t lostAuditLines = 0;
    std::uint64_t memory = 0; ///< resident, in bytes
    std::uint64_t memoryLimit = 0;
};

/// Returns the text that Prometheus reads.
[[nodiscard]] std::string FormatMetrics(const EndpointMetrics& endpoint, const HostMetrics& host);

} // namespace Host
