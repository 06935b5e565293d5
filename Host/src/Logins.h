#pragma once

#include "LoginThrottle.h"
#include "Users.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

namespace Host {

enum class LoginResult
{
    Accepted,
    Refused,
    TooSoon, ///< refused without a look at the password
};

/// Decides about logins and logs them, never with the password. Any thread, but not the network's:
/// it takes tens of milliseconds, and longer when others wait. One password is looked at at a time,
/// so that many logins at once neither get around the throttle nor use up the memory.
class Logins
{
public:
    /// Neither is owned.
    Logins(const Users& users, LoginThrottle& throttle);

    /// Throws SystemException when the hash cannot be computed; the login counts as failed then.
    [[nodiscard]] LoginResult TryLogin(const std::string& user, const std::string& password,
                                       const std::string& address);

    [[nodiscard]] std::uint64_t GetRefusedCount() const noexcept { return refused; }

private:
    LoginResult Decide(const std::string& user, const std::string& password,
                       const std::string& address, LoginThrottle::Clock::duration& delay);

    const Users& users;
    LoginThrottle& throttle;
    std::atomic<std::uint64_t> refused = 0;
    std::mutex deciding; // from the look at the throttle to the report to it
};

} // namespace Host
