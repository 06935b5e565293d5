#pragma once

#include <cstdint>

/// Stands between a process and its libc: fopen, fread, fwrite and fclose are slowed and failed at
/// random, and every use of a stream is checked. Linked as a shared library, so that it comes
/// before libc for the executable and for everything it loads later; sanitizers chain to it.
/// Everything may be called from any thread.
namespace FaultyFiles {

/// The frequency of each fault, in calls out of a million.
struct Rates
{
    unsigned int openFails = 0;
    unsigned int readFails = 0;
    unsigned int writeFails = 0;
    unsigned int closeFails = 0; ///< reported only: the stream is closed
    unsigned int slowed = 0;     ///< of each call, by some microseconds to two milliseconds
};

/// The numbers of events since the process began.
struct Counts
{
    std::uint64_t opens = 0;
    std::uint64_t reads = 0;
    std::uint64_t writes = 0;
    std::uint64_t closes = 0;
    std::uint64_t openFailures = 0; ///< injected ones only, without those of the system
    std::uint64_t readFailures = 0;
    std::uint64_t writeFailures = 0;
    std::uint64_t closeFailures = 0;
    std::uint64_t slowed = 0;
    std::uint64_t streamsOpen = 0;  ///< at this moment
    std::uint64_t usesOfClosed = 0; ///< uses and closes of a stream that is not open
    std::uint64_t closesOfUsed = 0; ///< closes of a stream while another call uses it
};

__attribute__((visibility("default"))) void SetRates(const Rates& rates);
/// The start of the random sequences. The failures of a thread follow from the seed and the order
/// in which threads made their first call.
__attribute__((visibility("default"))) void SetSeed(std::uint64_t seed);
[[nodiscard]] __attribute__((visibility("default"))) Counts GetCounts();

} // namespace FaultyFiles
