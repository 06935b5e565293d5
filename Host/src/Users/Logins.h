#pragma once

#include "Network/TimeShare.h"
#include "Support/Mutex.h"
#include "Users/LoginThrottle.h"
#include "Users/Users.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace Host {

enum class LoginResult
{
    Accepted,
    Refused,
    TooSoon, ///< refused without checking the password
};

/// Decides about logins and logs them, without the password. Any thread may call any function.
///
/// A password that was right before is recognised at once. Checking any other one takes tens of
/// milliseconds of the calling thread; the throttle can delay it, and all checks together get a
/// limited share of the time (`GetPause`). One password is checked at a time, so that many logins
/// at once neither get around the throttle nor use up the memory.
class Logins
{
public:
    /// `throttle` must outlive this object. `hashing` is the share of the time for checking
    /// passwords.
    Logins(Users users, LoginThrottle& throttle, TimeShare hashing = TimeShare());

    /// Replaces the users. Passwords that were right before and are so no more are forgotten.
    void Replace(Users newUsers) EXCLUDES(deciding);

    /// Throws std::system_error if the hash cannot be computed; the login counts as failed then.
    [[nodiscard]] LoginResult TryLogin(const std::string& user, const std::string& password,
                                       const std::string& address) EXCLUDES(deciding);

    /// As `TryLogin`, for a user who comes back to a session: accepts only a password that was
    /// right before, at once and whatever failed meanwhile.
    [[nodiscard]] LoginResult TryReturn(const std::string& user, const std::string& password,
                                        const std::string& address) EXCLUDES(deciding);

    /// Returns how long the next check of an unknown password must wait. A login that comes earlier
    /// may be refused without a check.
    [[nodiscard]] LoginThrottle::Clock::duration GetPause() const EXCLUDES(deciding);

    [[nodiscard]] std::uint64_t GetRefusedCount() const noexcept { return refused; }

private:
    using Clock = LoginThrottle::Clock;
    using Tag = std::array<unsigned char, 32>;

    /// A user who has logged in successfully.
    struct KnownUser
    {
        Tag tag{};                        ///< of the password that was right
        std::vector<std::string> origins; ///< of right logins, the latest last
        Clock::time_point nextCheck;      ///< limits early checks, see MayCheckEarly
    };

    static Tag MakeRandomTag();
    [[nodiscard]] Tag MakeTag(const std::string& user, const std::string& password) const;
    [[nodiscard]] bool IsKnown(const std::string& user, const Tag& tag) const REQUIRES(deciding);
    bool MayCheckEarly(const std::string& user, const std::string& address) REQUIRES(deciding);
    void Remember(const std::string& user, const Tag& tag, const std::string& address)
        REQUIRES(deciding);
    bool Verify(const std::string& user, const std::string& password) REQUIRES(deciding);
    LoginResult Decide(const std::string& user, const std::string& password,
                       const std::string& address, Clock::duration& delay) EXCLUDES(deciding);

    LoginThrottle& throttle;
    std::atomic<std::uint64_t> refused = 0;
    mutable Support::Mutex deciding; // held from asking the throttle to reporting to it
    Users users GUARDED_BY(deciding);
    TimeShare hashing GUARDED_BY(deciding);
    std::unordered_map<std::string, KnownUser> known GUARDED_BY(deciding); // by name
    const Tag key = MakeRandomTag(); // never leaves this process
};

} // namespace Host
