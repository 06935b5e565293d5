#pragma once

#include <utility>

namespace Core {

/// Throws the exception being handled on, as one that needs no code of a module: one of Core as a
/// copy of the nearest type of Core, a module's own as a std::logic_error or std::runtime_error
/// with its text. REQUIRES: called inside a handler.
[[noreturn]] void RethrowWithoutModuleCode();

/// Runs foreign code. Exceptions that leave it can be kept longer than the module that threw them.
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
