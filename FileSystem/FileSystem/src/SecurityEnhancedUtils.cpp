#include "SecurityEnhancedUtils.h"

#include <cstring>

FILE* SecurityEnhancedUtils::fopen(const std::string& path, const std::string& mode)
{
    return std::fopen(path.c_str(), mode.c_str());
}

char* SecurityEnhancedUtils::strncpy(char* destination, const char* source, std::size_t count)
{
    if (source == nullptr || destination == nullptr)
        return nullptr;
    if (std::strlen(source) < count)
        return nullptr;
    // A zero is not added: the copy is exactly `count` characters, as promised.
    return std::strncpy(destination, source, count); // NOLINT(bugprone-not-null-terminated-result)
}

void* SecurityEnhancedUtils::memcpy(void* destination, std::size_t destinationSize,
                                    const void* source, std::size_t count)
{
    if (source == nullptr || destinationSize < count || destination == nullptr)
        return const_cast<void*>(source); // NOLINT(cppcoreguidelines-pro-type-const-cast): promised
    return std::memcpy(destination, source, count);
}
