#include "Users/LoginThrottle.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdint>
#include <iterator>
#include <netinet/in.h>
#include <utility>
#include <vector>

namespace Host {

namespace {

constexpr std::size_t longestName = 64;

/// Names that are longer than a user's name can be all get the same key. A zero separates the
/// origin from the name, since no address contains one.
std::string GetKey(const std::string& user, const std::string& address)
{
    const bool isPossible = user.size() <= longestName;
    return GetOrigin(address) + '\0' + (isPossible ? user : std::string(longestName + 1, '-'));
}

} // namespace

std::string GetOrigin(const std::string& address)
{
    in6_addr parsed = {};
    if (inet_pton(AF_INET6, address.c_str(), &parsed) != 1)
        return address.substr(0, INET6_ADDRSTRLEN);
    constexpr std::size_t network = 8;
    std::fill(std::begin(parsed.s6_addr) +
                  (IN6_IS_ADDR_V4MAPPED(&parsed) ? sizeof(parsed) : network),
              std::end(parsed.s6_addr), std::uint8_t{0});
    std::array<char, INET6_ADDRSTRLEN> text{};
    return inet_ntop(AF_INET6, &parsed, text.data(), text.size());
}

LoginThrottle::LoginThrottle(TimeSource timeSource)
    : timeSource(std::move(timeSource))
{}

LoginThrottle::Clock::duration LoginThrottle::GetDelay(const std::string& user,
                                                       const std::string& address) const
{
    const auto now = timeSource();
    const Support::Lock lock(mutex);
    const auto found = records.find(GetKey(user, address));
    return found == records.end() ? Clock::duration::zero() : GetDelay(found->second, now);
}

LoginThrottle::Clock::duration LoginThrottle::ReportFailure(const std::string& user,
                                                            const std::string& address)
{
    const auto now = timeSource();
    const auto key = GetKey(user, address);
    const Support::Lock lock(mutex);
    if (records.find(key) == records.end() && records.size() >= mostRemembered)
        MakeRoom();
    auto& record = records[key];
    if (now - record.lastFailure >= memory)
        record.failures = 0;
    ++record.failures;
    record.lastFailure = now;
    return GetDelay(record, now);
}

void LoginThrottle::ReportSuccess(const std::string& user, const std::string& address)
{
    const Support::Lock lock(mutex);
    records.erase(GetKey(user, address));
}

std::size_t LoginThrottle::GetSize() const
{
    const Support::Lock lock(mutex);
    return records.size();
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

/// Removes the older half of the records: one pass makes room for many new ones.
void LoginThrottle::MakeRoom()
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
