#include "Version.h"

namespace Host {

const char* GetVersion() noexcept
{
    return TALVENSOR_VERSION;
}

BuildDate GetBuildDate() noexcept
{
    return {TALVENSOR_BUILD_DATE};
}

} // namespace Host
