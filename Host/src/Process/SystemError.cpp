#include "Process/SystemError.h"

#include "Core/Exception.h"

#include <cerrno>
#include <system_error>

namespace Host {

void ThrowSystemError(const std::string& whatFailed)
{
    const auto reason = std::generic_category().message(errno);
    throw Core::SystemException(whatFailed + ": " + reason);
}

} // namespace Host
