#pragma once

#include <cstdint>

namespace Host {

/// Decides when to give the memory that the allocator keeps for the next blocks back to the system:
/// not while much is transferred, since each block would then be made anew, page by page. Counts
/// looks instead of time. Not synchronised.
class MemoryTrim
{
public:
    static constexpr std::uint64_t megabyte = std::uint64_t{1} << 20U;
    /// Not worth it with less than this above the least that was ever resident.
    static constexpr std::uint64_t tolerance = 16 * megabyte;
    /// Less than this from one look to the next is idle.
    static constexpr std::uint64_t idleTraffic = megabyte;
    static constexpr unsigned int longestPause = 64; // looks

    /// Takes the process's resident memory before the first client comes: the first look may
    /// already find a peak.
    explicit MemoryTrim(std::uint64_t resident) noexcept
        : least(resident)
    {}

    /// Looks at the process's resident memory and at all bytes that were received and sent so far.
    /// Returns true if memory should be given back now; call `NoteTrimmed` after that. Call this
    /// about once a second.
    [[nodiscard]] bool IsDue(std::uint64_t resident, std::uint64_t transferred) noexcept;

    /// Takes the memory that is still resident. If little was given back, the memory is in use, and
    /// the pause until the next attempt doubles.
    void NoteTrimmed(std::uint64_t resident) noexcept;

private:
    std::uint64_t least;
    std::uint64_t lastResident{};
    std::uint64_t lastTransferred{};
    unsigned int pause = 1;
    unsigned int left = 0; // looks until the next attempt
};

} // namespace Host
