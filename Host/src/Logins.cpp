#include "Logins.h"

#include "Core/Exception.h"
#include "Log.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <chrono>

namespace Host {

namespace {

constexpr const char* category = "Host.Login";
constexpr std::size_t longestLoggedName = 64; // as long as a user's name may be
constexpr auto none = LoginThrottle::Clock::duration::zero();

std::string ToSeconds(LoginThrottle::Clock::duration delay)
{
    return std::to_string(std::chrono::ceil<std::chrono::seconds>(delay).count()) + " s";
}

} // namespace

Logins::Logins(const Users& users, LoginThrottle& throttle)
    : users(users)
    , throttle(throttle)
{}

LoginResult Logins::TryLogin(const std::string& user, const std::string& password,
                             const std::string& address)
{
    LoginThrottle::Clock::duration delay{};
    const auto result = Decide(user, password, address, delay);
    const auto who = "user '" + user.substr(0, longestLoggedName) + "' from " + address;
    if (result == LoginResult::Accepted) {
        Log(Core::LogLevel::Notice, category, "Login of " + who);
        return result;
    }
    ++refused;
    if (result == LoginResult::TooSoon && !MaySayTooSoon())
        return result;
    if (result == LoginResult::TooSoon)
        Log(Core::LogLevel::Warning, category,
            "Login of " + who + " refused unseen: it comes too soon, " + ToSeconds(delay) +
                " are left to wait");
    else if (delay > none)
        Log(Core::LogLevel::Warning, category,
            "Login of " + who + " refused; the next one has to wait " + ToSeconds(delay));
    else
        Log(Core::LogLevel::Warning, category, "Login of " + who + " refused");
    return result;
}

/// Whoever does not wait shall not fill the log either.
bool Logins::MaySayTooSoon()
{
    const std::lock_guard lock(deciding);
    const auto now = std::chrono::steady_clock::now();
    if (now < nextTooSoonLine)
        return false;
    nextTooSoonLine = now + std::chrono::seconds(1);
    return true;
}

LoginResult Logins::Decide(const std::string& user, const std::string& password,
                           const std::string& address, LoginThrottle::Clock::duration& delay)
{
    const std::lock_guard lock(deciding);
    delay = throttle.GetDelay(user, address);
    if (delay > none)
        return LoginResult::TooSoon;
    const Tag tag = MakeTag(user, password);
    try {
        if (WasRightBefore(user, tag) || users.Verify(user, password)) {
            rightTags.insert_or_assign(user, tag);
            throttle.ReportSuccess(user);
            return LoginResult::Accepted;
        }
    } catch (...) {
        throttle.ReportFailure(user, address);
        throw;
    }
    delay = throttle.ReportFailure(user, address);
    return LoginResult::Refused;
}

Logins::Tag Logins::MakeRandomTag()
{
    Tag tag{};
    if (RAND_bytes(tag.data(), static_cast<int>(tag.size())) != 1)
        throw Core::SystemException("there are no random numbers");
    return tag;
}

/// The name is closed off, so that no part of it passes for the password.
Logins::Tag Logins::MakeTag(const std::string& user, const std::string& password) const
{
    std::string text = user + '\0' + password;
    Tag tag{};
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const auto* made = HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), bytes,
                            text.size(), tag.data(), nullptr);
    OPENSSL_cleanse(text.data(), text.size());
    if (made == nullptr)
        throw Core::SystemException("a password cannot be looked at");
    return tag;
}

bool Logins::WasRightBefore(const std::string& user, const Tag& tag) const
{
    const auto found = rightTags.find(user);
    return found != rightTags.end() &&
           CRYPTO_memcmp(found->second.data(), tag.data(), tag.size()) == 0;
}

} // namespace Host
