#include "Logins.h"

#include "Log.h"

#include <chrono>

namespace Host {

namespace {

constexpr const char* category = "Host.Login";
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
    const auto who = "user '" + user + "' from " + address;
    if (result == LoginResult::Accepted) {
        Log(Core::LogLevel::Notice, category, "Login of " + who);
        return result;
    }
    ++refused;
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

LoginResult Logins::Decide(const std::string& user, const std::string& password,
                           const std::string& address, LoginThrottle::Clock::duration& delay)
{
    const std::lock_guard lock(deciding);
    delay = throttle.GetDelay(user, address);
    if (delay > none)
        return LoginResult::TooSoon;
    try {
        if (users.Verify(user, password)) {
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

} // namespace Host
