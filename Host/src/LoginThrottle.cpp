#include "LoginThrottle.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <utility>
#include <vector>

namespace Host {

namespace {

constexpr std::size_t longestName = 64;

/// No user has a longer name, so all of these are one.
std::string GetUserKey(const std::string& user)
{
    return user.size() <= longestName ? user : std::string(longestName + 1, '-');
}

/// Whoever has an IPv6 address has a network of them.
std::string GetAddressKey(const std::string& address)
{
    in6_addr parsed = {};
    if (inet_pton(AF_INET6, address.c_str(), &parsed) != 1)
        return address.substr(0, INET6_ADDRSTRLEN);
    const std::string bytes(std::begin(parsed.s6_addr), std::end(parsed.s6_addr));
    constexpr std::size_t network = 8;
    return IN6_IS_ADDR_V4MAPPED(&parsed) ? bytes : bytes.substr(0, network);
}

} // namespace

LoginThrottle::LoginThrottle(TimeSource timeSource)
    : timeSource(std::move(timeSource))
{}

LoginThrottle::Clock::duration LoginThrottle::GetDelay(const std::string& user,
                                                       const std::string& address) const
{
    const auto now = timeSource();
    const std::lock_guard lock(mutex);
    return std::max(GetDelay(users, GetUserKey(user), now),
                    GetDelay(addresses, GetAddressKey(address), now));
}

LoginThrottle::Clock::duration LoginThrottle::ReportFailure(const std::string& user,
                                                            const std::string& address)
{
    const auto now = timeSource();
    const std::lock_guard lock(mutex);
    return std::max(Count(users, GetUserKey(user), now),
                    Count(addresses, GetAddressKey(address), now));
}

void LoginThrottle::ReportSuccess(const std::string& user)
{
    const std::lock_guard lock(mutex);
    users.erase(GetUserKey(user));
}

std::size_t LoginThrottle::GetSize() const
{
    const std::lock_guard lock(mutex);
    return users.size() + addresses.size();
}

LoginThrottle::Clock::duration LoginThrottle::GetDelay(const Record& record, Clock::time_point now)
{
    if (record.failures < freeFailures)
        return Clock::duration::zero();
    Clock::duration delay = firstDelay;
    for (auto failure = freeFailures; failure < record.failures && delay < longestDelay; ++failure)
        delay *= 2;
    const auto end = record.lastFailure + std::min<Clock::duration>(delay, longestDelay);
    return std::max(end - now, Clock::duration::zero());
}

LoginThrottle::Clock::duration
LoginThrottle::GetDelay(const Records& records, const std::string& key, Clock::time_point now)
{
    const auto found = records.find(key);
    return found == records.end() ? Clock::duration::zero() : GetDelay(found->second, now);
}

LoginThrottle::Clock::duration LoginThrottle::Count(Records& records, const std::string& key,
                                                    Clock::time_point now)
{
    if (records.find(key) == records.end() && records.size() >= mostRemembered)
        MakeRoom(records);
    auto& record = records[key];
    if (now - record.lastFailure >= memory)
        record.failures = 0;
    ++record.failures;
    record.lastFailure = now;
    return GetDelay(record, now);
}

/// Forgets the older half of what is remembered: one walk for many new records.
void LoginThrottle::MakeRoom(Records& records)
{
    std::vector<Clock::time_point> times;
    times.reserve(records.size());
    for (const auto& [key, record] : records)
        times.push_back(record.lastFailure);
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    std::erase_if(records, [oldest = *middle](const auto& each) {
        return each.second.lastFailure <= oldest;
    });
}

} // namespace Host
