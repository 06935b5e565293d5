#pragma once

#include <functional>
#include <string>
#include <thread>

namespace Host {

/// Starts a thread. Throws std::system_error, which says what the thread was for, when the system
/// gives none.
[[nodiscard]] std::thread StartThread(const std::string& purpose, std::function<void()> function);

} // namespace Host
