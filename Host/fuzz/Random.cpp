#include "Random.h"

#include <array>
#include <limits>

namespace Fuzz {

std::uint64_t Random::Number()
{
    switch (Below(4)) {
    case 0:
        return Below(16);
    case 1:
        return (std::uint64_t{1} << Below(64)) + Below(3) - 1;
    case 2:
        return ~std::uint64_t{0} - Below(3);
    default:
        return Bits() >> Below(64);
    }
}

double Random::Real()
{
    static constexpr std::array reals{0.0,
                                      -1.0,
                                      0.5,
                                      10.0,
                                      1e300,
                                      -1e300,
                                      std::numeric_limits<double>::infinity(),
                                      std::numeric_limits<double>::quiet_NaN(),
                                      std::numeric_limits<double>::denorm_min()};
    return Pick(reals);
}

std::size_t Random::Length()
{
    const std::size_t draw = Below(1000);
    if (draw < 900)
        return Below(40);
    return draw < 995 ? Below(5000) : Below(200'000);
}

std::string Random::Bytes(std::size_t length)
{
    std::string bytes(length, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(Bits());
    return bytes;
}

} // namespace Fuzz
