#pragma once

#include "Support/Mutex.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <unordered_map>

namespace Host {

/// Returns the origin of a client: its IPv4 address, or the network of its IPv6 address (64 bits),
/// since a client can use all addresses of its network.
[[nodiscard]] std::string GetOrigin(const std::string& address);

/// Slows down guessing of passwords. After the third failed login of a user from an origin, the
/// next login must wait a second, and twice as long after each further failure, up to a minute. The
/// caller refuses a login that comes earlier, without checking the password and without reporting a
/// failure. Failures of other users or from other origins do not count.
///
/// A successful login of the user from the origin clears its failures, and so does a quarter of an
/// hour without a failure. Only the latest `mostRemembered` pairs are kept. Any thread may call any
/// function.
class LoginThrottle
{
public:
    using Clock = std::chrono::steady_clock;
    using TimeSource = std::function<Clock::time_point()>;

    static constexpr unsigned int freeFailures = 3;
    static constexpr std::chrono::seconds firstDelay{1};
    static constexpr std::chrono::seconds longestDelay{60};
    static constexpr std::chrono::minutes memory{15};
    static constexpr std::size_t mostRemembered = 4096; ///< pairs of a user and an origin

    explicit LoginThrottle(TimeSource timeSource = &Clock::now);

    /// Returns how long the next login of this user from this address must wait; 0 if it may be
    /// tried now.
    [[nodiscard]] Clock::duration GetDelay(const std::string& user,
                                           const std::string& address) const EXCLUDES(mutex);

    /// Returns how long the next login must wait.
    Clock::duration ReportFailure(const std::string& user, const std::string& address)
        EXCLUDES(mutex);
    void ReportSuccess(const std::string& user, const std::string& address) EXCLUDES(mutex);

    /// Returns the number of pairs that are kept.
    [[nodiscard]] std::size_t GetSize() const EXCLUDES(mutex);

private:
    struct Record
    {
        unsigned int failures = 0;
        Clock::time_point lastFailure;
    };

    static Clock::duration GetDelay(const Record& record, Clock::time_point now);
    void MakeRoom() REQUIRES(mutex);

    const TimeSource timeSource;
    mutable Support::Mutex mutex;
    std::unordered_map<std::string, Record> records GUARDED_BY(mutex);
};

} // namespace Host
