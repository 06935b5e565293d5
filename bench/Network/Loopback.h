#pragma once

#include "Samples.h"

#include <cstddef>

namespace Bench {

struct LoopbackResult
{
    Samples roundTrips;     ///< with one request in flight
    double perSecond = 0.0; ///< answers
};

/// Measures requests and answers of these sizes over a TCP connection of loopback, between two
/// threads that do nothing else, with this many in flight.
[[nodiscard]] LoopbackResult MeasureLoopback(std::size_t requestBytes, std::size_t answerBytes,
                                             std::size_t count, std::size_t inFlight);

} // namespace Bench
