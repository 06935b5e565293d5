#include "Network/Port.h"

#include <charconv>
#include <system_error>

namespace Host {

std::optional<std::uint16_t> ReadPort(std::string_view digits) noexcept
{
    std::uint16_t port = 0;
    const char* const end = digits.data() + digits.size();
    const auto [rest, error] = std::from_chars(digits.data(), end, port);
    if (digits.empty() || error != std::errc{} || rest != end)
        return std::nullopt;
    return port;
}

} // namespace Host
