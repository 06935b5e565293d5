#include "Network/TimeShare.h"

#include <algorithm>
#include <utility>

namespace Host {

TimeShare::TimeShare(TimeSource timeSource)
    : timeSource(std::move(timeSource))
{}

TimeShare::Clock::duration TimeShare::GetPause() const
{
    return std::max(paid - timeSource(), Clock::duration::zero());
}

void TimeShare::Count(Clock::duration taken)
{
    paid = std::max(paid, timeSource() - divisor * atOnce) + divisor * taken;
}

} // namespace Host
