#include "Support/WriteAll.h"

#include <cerrno>
#include <unistd.h>

namespace Support {

std::size_t WriteAll(int descriptor, std::string_view text) noexcept
{
    std::size_t done = 0;
    while (done < text.size()) {
        const auto written = write(descriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR)
            break;
        if (written > 0)
            done += static_cast<std::size_t>(written);
    }
    return done;
}

} // namespace Support
