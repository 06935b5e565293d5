#include "Support/Wrap.h"

#include <sstream>

namespace Support {

std::string Wrap(std::string_view text, std::size_t width)
{
    std::istringstream words{std::string(text)};
    std::string wrapped;
    words >> wrapped;
    std::size_t column = wrapped.size(); // the length of the last line
    for (std::string word; words >> word;) {
        const bool isFull = column + 1 + word.size() > width;
        wrapped += isFull ? '\n' : ' ';
        wrapped += word;
        column = word.size() + (isFull ? 0 : column + 1);
    }
    return wrapped;
}

} // namespace Support
