#include "Process/StartThread.h"

#include <system_error>
#include <utility>

namespace Host {

std::thread StartThread(const std::string& purpose, std::function<void()> function)
{
    try {
        return std::thread(std::move(function));
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "cannot start a thread " + purpose);
    }
}

} // namespace Host
