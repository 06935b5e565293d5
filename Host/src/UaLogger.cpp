#include "UaLogger.h"

#include "Core/Logger.h"
#include "Log.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <string_view>

namespace Host {
namespace {

constexpr const char* category = "OpcUa";

/// What the library calls a warning is mostly what a client did wrong: of interest to few.
Core::LogLevel ToLevel(UA_LogLevel level)
{
    switch (level) {
    case UA_LOGLEVEL_FATAL:
    case UA_LOGLEVEL_ERROR:
        return Core::LogLevel::Error;
    case UA_LOGLEVEL_WARNING:
        return Core::LogLevel::Notice;
    case UA_LOGLEVEL_INFO:
        return Core::LogLevel::Detail;
    default:
        return Core::LogLevel::Debug;
    }
}

/// Lines about the objects in which the library describes sessions and subscriptions to everybody:
/// the host refuses to have them, and each refusal would be a line. Told by the format, which
/// clients have no part in.
bool IsOfNoInterest(std::string_view format)
{
    constexpr std::array<std::string_view, 3> texts{
        "Creating the subscription diagnostics object failed",
        "Creating the session diagnostics object failed",
        "Adding child nodes failed",
    };
    return std::any_of(texts.begin(), texts.end(), [format](std::string_view text) {
        return format.find(text) != std::string_view::npos;
    });
}

[[gnu::format(printf, 4, 0)]] void Write(void* /*context*/, UA_LogLevel level,
                                         UA_LogCategory /*category*/, const char* format,
                                         va_list arguments) noexcept
{
    try {
        if (!Core::Logger::Instance().IsEnabledForEntry(ToLevel(level), category) ||
            IsOfNoInterest(format))
            return;
        std::array<char, 1024> text{};
        std::vsnprintf(text.data(), text.size(), format, arguments);
        LogOfKind(format, ToLevel(level), category, text.data());
    } catch (const std::exception&) {
        // A line that cannot be written is lost; nobody could be told but by another line.
    }
}

} // namespace

UaLogger::UaLogger() noexcept
    : logger{Write, nullptr, nullptr}
{}

} // namespace Host
