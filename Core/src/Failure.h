#pragma once

#include <string>

namespace Core {

/// A place in the source, as log entries name it.
struct SourcePlace
{
    /// Where this is written as a call or as a default argument of a call.
    [[nodiscard]] static constexpr SourcePlace Here(const char* file = __builtin_FILE(),
                                                    const char* function = __builtin_FUNCTION(),
                                                    int line = __builtin_LINE()) noexcept
    {
        return {file, function, line};
    }

    const char* file;
    const char* function;
    int line;
};

/// What an exception says.
struct Failure
{
    std::string message;
    std::string details;
    unsigned int code = 0; ///< of a Core::Exception; 0 for others
};

/// REQUIRES: called inside a handler.
[[nodiscard]] Failure DescribeCurrentException();

/// Writes an error entry of the category "Core" about the exception being handled: `what` could not
/// be done, and why. `origin` says on whose behalf. Loses the entry rather than throw.
/// REQUIRES: called inside a handler.
void LogCurrentException(const std::string& what, const std::string& origin = {},
                         SourcePlace place = SourcePlace::Here()) noexcept;

/// Writes a warning of the category "Core". Loses the entry rather than throw.
void LogWarning(const std::string& message, SourcePlace place = SourcePlace::Here()) noexcept;

} // namespace Core
