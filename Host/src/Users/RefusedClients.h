#pragma once

#include "OpcUa/Certificates.h"
#include "Support/Descriptor.h"
#include "Support/Mutex.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Host {

/// A client whose certificate was refused.
struct RefusedClient
{
    OpcUa::Bytes certificate; ///< DER
    std::string address;      ///< numeric; empty: not known
};

/// Hands refused clients from the thread that serves to the one that has their certificates kept.
/// Takes `atOnce` of them, then one every `interval`, and forgets the others: clients that send one
/// certificate after another do not keep the disk busy. Any thread may call any function.
class RefusedClients
{
public:
    using Clock = std::chrono::steady_clock;
    using TimeSource = std::function<Clock::time_point()>;

    static constexpr std::size_t atOnce = 20;
    static constexpr std::chrono::milliseconds interval{200};

    /// Throws std::system_error.
    explicit RefusedClients(TimeSource timeSource = &Clock::now);

    void Add(RefusedClient client) EXCLUDES(mutex);

    /// Returns a descriptor that is readable while clients wait. Do not read from it.
    [[nodiscard]] int GetDescriptor() const noexcept { return available.Get(); }

    [[nodiscard]] std::vector<RefusedClient> TakeAll() EXCLUDES(mutex);

private:
    const TimeSource timeSource;
    const Support::Descriptor available;
    Support::Mutex mutex;
    std::vector<RefusedClient> waiting GUARDED_BY(mutex);
    Clock::time_point full GUARDED_BY(mutex); ///< from then on, `atOnce` may come again
};

} // namespace Host
