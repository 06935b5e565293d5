#pragma once

#include <utility>

namespace Core {

/// Rethrows the current exception in a form that needs no code of a module: an exception of Core as
/// a copy of the nearest type of Core, an exception of a module's own type as a std::logic_error or
/// std::runtime_error with its text. REQUIRES: called inside a handler.
[[noreturn]] void RethrowWithoutModuleCode();

/// Runs foreign code. The exceptions that leave it may outlive the module that threw them.
template <typename Function>
void AtModuleBoundary(Function&& function)
{
    try {
        std::forward<Function>(function)();
    } catch (...) {
        RethrowWithoutModuleCode();
    }
}

} // namespace Core
