#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>

namespace Host {

/// Identifies where a client comes from: its address, or the network of an IPv6 address (64 bits),
/// since a client that has one address has them all.
[[nodiscard]] std::string GetOrigin(const std::string& address);

/// Slows down guessing: after the third failed login of a user from an origin, the next one has to
/// wait a second, and twice as long after each further one, up to a minute. A login that does not
/// wait is to be refused without a look at the password, and is no failure. Failures elsewhere, or
/// of other users, delay nobody. All operations may be called from any thread.
///
/// Failures are forgotten with a right login of the user from there, and after a quarter of an hour
/// without a failure. The latest ones are remembered.
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

    /// Returns how long this user still has to wait there; 0: a login may be tried.
    [[nodiscard]] Clock::duration GetDelay(const std::string& user,
                                           const std::string& address) const;

    /// Returns the delay before the next login.
    Clock::duration ReportFailure(const std::string& user, const std::string& address);
    void ReportSuccess(const std::string& user, const std::string& address);

    /// Pairs that are remembered.
    [[nodiscard]] std::size_t GetSize() const;

private:
    struct Record
    {
        unsigned int failures = 0;
        Clock::time_point lastFailure;
    };

    static Clock::duration GetDelay(const Record& record, Clock::time_point now);
    void MakeRoom();

    const TimeSource timeSource;
    mutable std::mutex mutex;
    std::unordered_map<std::string, Record> records; // guarded by mutex
};

} // namespace Host
