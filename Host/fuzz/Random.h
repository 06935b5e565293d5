#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace Fuzz {

/// Draws the random numbers of a run: the same seed gives the same numbers on every machine.
class Random
{
public:
    explicit Random(std::uint64_t seed)
        : engine(seed)
    {}

    /// REQUIRES: a bound above 0.
    [[nodiscard]] std::size_t Below(std::size_t bound) { return engine() % bound; }
    [[nodiscard]] bool Chance(std::size_t percent) { return Below(100) < percent; }
    [[nodiscard]] std::uint64_t Bits() { return engine(); }

    /// Draws a number, often one at which something changes: a power of two, its neighbours, a
    /// count.
    [[nodiscard]] std::uint64_t Number();
    [[nodiscard]] double Real();
    /// Draws a length, mostly a short one.
    [[nodiscard]] std::size_t Length();
    [[nodiscard]] std::string Bytes(std::size_t length);

    /// REQUIRES: not empty.
    template <typename Container>
    [[nodiscard]] auto& Pick(Container& container)
    {
        return container[Below(container.size())];
    }

private:
    std::mt19937_64 engine;
};

} // namespace Fuzz
