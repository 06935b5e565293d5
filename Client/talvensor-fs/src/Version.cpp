#include "Version.h"

namespace Cli {

const char* GetVersion() noexcept
{
    return TALVENSOR_VERSION;
}

} // namespace Cli
