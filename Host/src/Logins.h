#pragma once

#include "LoginThrottle.h"
#include "Users.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

namespace Host {

enum class LoginResult
{
    Accepted,
    Refused,
    TooSoon, ///< refused without a look at the password
};

/// Decides about logins and logs them, never with the password. Any thread. A user's first login,
/// and each refused one, takes tens of milliseconds; the throttle bounds how many. One password is
/// looked at at a time, so that many logins at once neither get around the throttle nor use up the
/// memory.
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
    using Tag = std::array<unsigned char, 32>;

    bool MaySayTooSoon();
    static Tag MakeRandomTag();
    [[nodiscard]] Tag MakeTag(const std::string& user, const std::string& password) const;
    [[nodiscard]] bool WasRightBefore(const std::string& user, const Tag& tag) const;
    LoginResult Decide(const std::string& user, const std::string& password,
                       const std::string& address, LoginThrottle::Clock::duration& delay);

    const Users& users;
    LoginThrottle& throttle;
    std::atomic<std::uint64_t> refused = 0;
    std::mutex deciding; // from the look at the throttle to the report to it
    /// Tags of the passwords that were right before, by user: only a user's first login takes the
    /// time of the hash. Guarded by deciding.
    std::unordered_map<std::string, Tag> rightTags;
    std::chrono::steady_clock::time_point nextTooSoonLine; // guarded by deciding
    const Tag key = MakeRandomTag();                       // never leaves this process
};

} // namespace Host
