#pragma once

#include <functional>
#include <string>
#include <thread>

namespace Host {

/// Starts a thread. Throws std::system_error with `purpose` if the system refuses.
[[nodiscard]] std::thread StartThread(const std::string& purpose, std::function<void()> function);

} // namespace Host
