#pragma once

#include <exception>

namespace Demo {

/// A signal asked the program to end.
class InterruptedException : public std::exception
{
public:
    [[nodiscard]] const char* what() const noexcept override { return "interrupted"; }
};

/// Makes the usual signals end the program in good order instead of at once, and makes writing to a
/// closed standard output an ordinary failure.
void CatchSignals();

/// Throws InterruptedException once such a signal has come.
void ThrowIfInterrupted();

} // namespace Demo
