#include "Diagnostics.h"

#include <stdexcept>

namespace FileSystem {

void CheckCondition(bool holds, const char* condition, const char* file, std::int32_t line)
{
    if (holds)
        return;
    std::ostringstream text;
    text << " Condition '" << condition << "' failed in " << file << ':' << line;
    throw std::logic_error(text.str());
}

} // namespace FileSystem
