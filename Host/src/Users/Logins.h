#pragma once

#include "Network/TimeShare.h"
#include "Users/LoginThrottle.h"
#include "Users/Users.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace Host {

enum class LoginResult
{
    Accepted,
    Refused,
    TooSoon, ///< refused without a look at the password
};

/// Decides about logins and logs them, never with the password. Any thread.
///
/// A password that was right before is known again at once. The look at any other one takes tens of
/// milliseconds of the calling thread; it waits for the throttle, and all of them together have
/// their share of the time (`GetPause`). One password is looked at at a time, so that many logins
/// at once neither get around the throttle nor use up the memory.
class Logins
{
public:
    /// Neither `users` nor `throttle` is owned. `hashing` is for the looks at passwords.
    Logins(const Users& users, LoginThrottle& throttle, TimeShare hashing = TimeShare());

    /// Throws SystemException when the hash cannot be computed; the login counts as failed then.
    [[nodiscard]] LoginResult TryLogin(const std::string& user, const std::string& password,
                                       const std::string& address);

    /// The same for a user who comes back to a session: only a password that was right before is
    /// accepted, at once and whatever failed meanwhile.
    [[nodiscard]] LoginResult TryReturn(const std::string& user, const std::string& password,
                                        const std::string& address);

    /// Returns how long the next look at a password that is not known has to wait. A login that
    /// does not wait may be refused unseen.
    [[nodiscard]] LoginThrottle::Clock::duration GetPause() const;

    [[nodiscard]] std::uint64_t GetRefusedCount() const noexcept { return refused; }

private:
    using Clock = LoginThrottle::Clock;
    using Tag = std::array<unsigned char, 32>;

    /// A user who has logged in.
    struct KnownUser
    {
        Tag tag{};                        ///< of the password that was right
        std::vector<std::string> origins; ///< of right logins, the latest last
        Clock::time_point nextLook;       ///< full of looks before their time, see MayLookEarly
    };

    static Tag MakeRandomTag();
    [[nodiscard]] Tag MakeTag(const std::string& user, const std::string& password) const;
    [[nodiscard]] bool IsKnown(const std::string& user, const Tag& tag) const;
    bool MayLookEarly(const std::string& user, const std::string& address);
    void Remember(const std::string& user, const Tag& tag, const std::string& address);
    bool Verify(const std::string& user, const std::string& password);
    LoginResult Decide(const std::string& user, const std::string& password,
                       const std::string& address, Clock::duration& delay);

    const Users& users;
    LoginThrottle& throttle;
    std::atomic<std::uint64_t> refused = 0;
    mutable std::mutex deciding; // from the look at the throttle to the report to it
    TimeShare hashing;           // guarded by deciding
    std::unordered_map<std::string, KnownUser> known; // by user; guarded by deciding
    const Tag key = MakeRandomTag();                  // never leaves this process
};

} // namespace Host
