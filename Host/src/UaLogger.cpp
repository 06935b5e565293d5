#include "UaLogger.h"

#include "Core/Logger.h"
#include "Log.h"

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

/// Clients may not add nodes, and for a node about a subscription the library asks as if one did.
/// It would say so for each of them.
bool IsOfNoInterest(std::string_view text)
{
    return text.find("Creating the subscription diagnostics object failed") !=
           std::string_view::npos;
}

[[gnu::format(printf, 4, 0)]] void Write(void* /*context*/, UA_LogLevel level,
                                         UA_LogCategory /*category*/, const char* format,
                                         va_list arguments) noexcept
{
    try {
        if (!Core::Logger::Instance().IsEnabledForEntry(ToLevel(level), category))
            return;
        std::array<char, 1024> text{};
        std::vsnprintf(text.data(), text.size(), format, arguments);
        if (!IsOfNoInterest(text.data()))
            Log(ToLevel(level), category, text.data());
    } catch (const std::exception&) {
        // A line that cannot be written is lost; nobody could be told but by another line.
    }
}

} // namespace

UaLogger::UaLogger() noexcept
    : logger{Write, nullptr, nullptr}
{}

} // namespace Host
