#include "Version.h"

namespace Host {

const char* GetVersion() noexcept
{
    return TALVENSOR_VERSION;
}

} // namespace Host
