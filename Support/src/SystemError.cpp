#include "Support/SystemError.h"

#include <cerrno>
#include <system_error>

namespace Support {

void ThrowSystemError(const std::string& whatFailed)
{
    throw std::system_error(errno, std::generic_category(), whatFailed);
}

} // namespace Support
