#pragma once

#include "Samples.h"

#include <cstddef>

namespace Bench {

struct LoopbackResult
{
    Samples roundTrips;     ///< with one in flight alone
    double perSecond = 0.0; ///< answers
};

/// Requests and answers of these sizes over a TCP connection of loopback, between two threads that
/// do nothing else; so many in flight.
[[nodiscard]] LoopbackResult MeasureLoopback(std::size_t requestBytes, std::size_t answerBytes,
                                             std::size_t count, std::size_t inFlight);

} // namespace Bench
