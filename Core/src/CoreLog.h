#pragma once

#include <string>

namespace Core {

/// A place in the source, as log entries name it.
struct SourcePlace
{
    /// Returns the place of this call, or of the call whose default argument this is.
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

/// The texts and the code of an exception.
struct ExceptionDescription
{
    std::string message;
    std::string details;
    unsigned int code = 0; ///< of a Core::Exception; 0 for others
};

/// REQUIRES: called inside a handler.
[[nodiscard]] ExceptionDescription DescribeCurrentException();

/// Writes an error entry of the category "Core" about the exception being handled: `what` failed,
/// and the exception's text. `origin` names the source of the failed work. If the entry cannot be
/// written, it is lost.
/// REQUIRES: called inside a handler.
void LogCurrentException(const std::string& what, const std::string& origin = {},
                         SourcePlace place = SourcePlace::Here()) noexcept;

/// Writes a warning of the category "Core". If it cannot be written, it is lost.
void LogWarning(const std::string& message, SourcePlace place = SourcePlace::Here()) noexcept;

} // namespace Core
