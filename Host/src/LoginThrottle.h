#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>

namespace Host {

/// Slows down guessing: after the third failed login of a user, or from an address, the next one
/// has to wait a second, and twice as long after each further one, up to a minute. A delay that is
/// not kept is refused without a look at the password, and is no failure. All operations may be
/// called from any thread.
///
/// A login sets its user right, not its address: otherwise one who knows one password could guess
/// others'. What failed is forgotten after a quarter of an hour without a failure. It is remembered
/// for a limited number of users and addresses, the latest ones; an IPv6 network (64 bits) counts
/// as one address.
class LoginThrottle
{
public:
    using Clock = std::chrono::steady_clock;
    using TimeSource = std::function<Clock::time_point()>;

    static constexpr unsigned int freeFailures = 3;
    static constexpr std::chrono::seconds firstDelay{1};
    static constexpr std::chrono::seconds longestDelay{60};
    static constexpr std::chrono::minutes memory{15};
    static constexpr std::size_t mostRemembered = 4096; ///< users, and as many addresses

    explicit LoginThrottle(TimeSource timeSource = &Clock::now);

    /// How long this user, or this address, still has to wait; 0: a login may be tried.
    [[nodiscard]] Clock::duration GetDelay(const std::string& user,
                                           const std::string& address) const;

    /// Returns the delay before the next login.
    Clock::duration ReportFailure(const std::string& user, const std::string& address);
    void ReportSuccess(const std::string& user);

    /// Users and addresses that are remembered.
    [[nodiscard]] std::size_t GetSize() const;

private:
    struct Record
    {
        unsigned int failures = 0;
        Clock::time_point lastFailure;
    };
    using Records = std::unordered_map<std::string, Record>;

    static Clock::duration GetDelay(const Record& record, Clock::time_point now);
    static Clock::duration GetDelay(const Records& records, const std::string& key,
                                    Clock::time_point now);
    static Clock::duration Count(Records& records, const std::string& key, Clock::time_point now);
    static void MakeRoom(Records& records);

    const TimeSource timeSource;
    mutable std::mutex mutex;
    Records users;     // guarded by mutex
    Records addresses; // guarded by mutex
};

} // namespace Host
