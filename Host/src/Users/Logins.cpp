#include "Users/Logins.h"

#include "Core/Exception.h"
#include "Log/Log.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iterator>
#include <utility>

namespace Host {

namespace {

constexpr const char* loginCategory = "Host.Login";
constexpr std::size_t longestLoggedName = 64; // as long as a user's name may be
constexpr auto none = LoginThrottle::Clock::duration::zero();

/// Returns the time of the calling thread, which does not depend on how busy the machine is.
std::chrono::nanoseconds GetProcessorTime()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::string ToSeconds(LoginThrottle::Clock::duration delay)
{
    return std::to_string(std::chrono::ceil<std::chrono::seconds>(delay).count()) + " s";
}

} // namespace

Logins::Logins(Users users, LoginThrottle& throttle, TimeShare hashing)
    : throttle(throttle)
    , users(std::move(users))
    , hashing(std::move(hashing))
{}

void Logins::Replace(Users newUsers)
{
    const Support::Lock lock(deciding);
    std::swap(users, newUsers);
    for (auto each = known.begin(); each != known.end();)
        each = users.AgreeOn(each->first, newUsers) ? std::next(each) : known.erase(each);
}

LoginResult Logins::TryLogin(const std::string& user, const std::string& password,
                             const std::string& address)
{
    LoginThrottle::Clock::duration delay{};
    const auto result = Decide(user, password, address, delay);
    const auto who = "user '" + user.substr(0, longestLoggedName) + "' from " + address;
    if (result == LoginResult::Accepted) {
        Log(Core::LogLevel::Notice, loginCategory, "Login of " + who);
        return result;
    }
    ++refused;
    if (result == LoginResult::TooSoon)
        Log(Core::LogLevel::Warning, loginCategory,
            "Login of " + who + " refused: too many failed logins, try again in " +
                ToSeconds(delay));
    else if (delay > none)
        Log(Core::LogLevel::Warning, loginCategory,
            "Login of " + who + " refused; the next login must wait " + ToSeconds(delay));
    else
        Log(Core::LogLevel::Warning, loginCategory, "Login of " + who + " refused");
    return result;
}

LoginResult Logins::TryReturn(const std::string& user, const std::string& password,
                              const std::string& address)
{
    const Tag tag = MakeTag(user, password);
    const Support::Lock lock(deciding);
    const bool isRight = IsKnown(user, tag);
    const auto who = "user '" + user.substr(0, longestLoggedName) + "' from " + address;
    if (isRight)
        Log(Core::LogLevel::Information, loginCategory, "Return of " + who + " to a session");
    else
        Log(Core::LogLevel::Warning, loginCategory, "Return of " + who + " to a session refused");
    refused += isRight ? 0U : 1U;
    return isRight ? LoginResult::Accepted : LoginResult::Refused;
}

LoginThrottle::Clock::duration Logins::GetPause() const
{
    const Support::Lock lock(deciding);
    return hashing.GetPause();
}

/// A password that was right before needs no hash, and is not delayed if its user has logged in
/// from there before: a few checks may come early for that.
LoginResult Logins::Decide(const std::string& user, const std::string& password,
                           const std::string& address, Clock::duration& delay)
{
    const Tag tag = MakeTag(user, password);
    const Support::Lock lock(deciding);
    delay = throttle.GetDelay(user, address);
    const bool mayCheck = delay <= none || MayCheckEarly(user, address);
    if (mayCheck && IsKnown(user, tag)) {
        Remember(user, tag, address);
        return LoginResult::Accepted;
    }
    delay = std::max(delay, hashing.GetPause());
    if (delay > none)
        return LoginResult::TooSoon;
    try {
        if (Verify(user, password)) {
            Remember(user, tag, address);
            return LoginResult::Accepted;
        }
    } catch (...) {
        throttle.ReportFailure(user, address);
        throw;
    }
    delay = throttle.ReportFailure(user, address);
    return LoginResult::Refused;
}

bool Logins::Verify(const std::string& user, const std::string& password)
{
    const auto start = GetProcessorTime();
    const bool isRight = users.Verify(user, password);
    hashing.Count(GetProcessorTime() - start);
    return isRight;
}

void Logins::Remember(const std::string& user, const Tag& tag, const std::string& address)
{
    constexpr std::size_t mostOrigins = 64;
    throttle.ReportSuccess(user, address);
    KnownUser& right = known[user];
    right.tag = tag;
    const auto origin = GetOrigin(address);
    std::erase(right.origins, origin);
    if (right.origins.size() >= mostOrigins)
        right.origins.erase(right.origins.begin());
    right.origins.push_back(origin);
}

/// Allows ten early checks at once and then one a second, only from an origin of an earlier login:
/// early checks do not help to guess a password.
bool Logins::MayCheckEarly(const std::string& user, const std::string& address)
{
    constexpr std::chrono::seconds interval{1};
    constexpr int atOnce = 10;
    const auto found = known.find(user);
    if (found == known.end())
        return false;
    KnownUser& right = found->second;
    const auto origin = GetOrigin(address);
    if (std::find(right.origins.begin(), right.origins.end(), origin) == right.origins.end())
        return false;
    const auto now = Clock::now();
    const auto next = std::max(right.nextCheck, now) + interval;
    if (next > now + atOnce * interval)
        return false;
    right.nextCheck = next;
    return true;
}

Logins::Tag Logins::MakeRandomTag()
{
    Tag tag{};
    if (RAND_bytes(tag.data(), static_cast<int>(tag.size())) != 1)
        throw Core::SystemException("OpenSSL has no random numbers");
    return tag;
}

/// A zero ends the name, so that no part of it counts as part of the password.
Logins::Tag Logins::MakeTag(const std::string& user, const std::string& password) const
{
    std::string text = user + '\0' + password;
    Tag tag{};
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const auto* made = HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), bytes,
                            text.size(), tag.data(), nullptr);
    OPENSSL_cleanse(text.data(), text.size());
    if (made == nullptr)
        throw Core::SystemException("OpenSSL cannot check a password");
    return tag;
}

bool Logins::IsKnown(const std::string& user, const Tag& tag) const
{
    const auto found = known.find(user);
    return found != known.end() &&
           CRYPTO_memcmp(found->second.tag.data(), tag.data(), tag.size()) == 0;
}

} // namespace Host
