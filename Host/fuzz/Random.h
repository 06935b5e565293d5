#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace Fuzz {

/// Draws what a run does: the same seed gives the same draws on every machine.
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

    /// Often a number at which something changes: a power of two, its neighbours, a count.
    [[nodiscard]] std::uint64_t Number();
    [[nodiscard]] double Real();
    /// Mostly short.
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
