#include "Log/UaLogger.h"

#include "Core/Logger.h"
#include "Log/Log.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <string_view>

namespace Host {
namespace {

struct Voice
{
    const char* category;
    Core::LogLevel warning;
};

/// The library's warnings are mostly about mistakes of clients, so they get a lower level.
constexpr Voice library{"OpcUa", Core::LogLevel::Notice};
constexpr Voice transport{"Network", Core::LogLevel::Warning};

Core::LogLevel ToLevel(UA_LogLevel level, const Voice& voice)
{
    switch (level) {
    case UA_LOGLEVEL_FATAL:
    case UA_LOGLEVEL_ERROR:
        return Core::LogLevel::Error;
    case UA_LOGLEVEL_WARNING:
        return voice.warning;
    case UA_LOGLEVEL_INFO:
        return Core::LogLevel::Detail;
    default:
        return Core::LogLevel::Debug;
    }
}

/// Returns true for lines about the objects in which the library describes sessions and
/// subscriptions to all clients. The host refuses these objects, and each refusal would be a line.
/// The format identifies the lines, since clients cannot choose it.
bool IsAboutDiagnostics(std::string_view format)
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

[[gnu::format(printf, 4, 0)]] void Write(void* context, UA_LogLevel uaLevel,
                                         UA_LogCategory /*category*/, const char* format,
                                         va_list arguments) noexcept
{
    try {
        const auto& voice = *static_cast<const Voice*>(context);
        const auto level = ToLevel(uaLevel, voice);
        if (!Core::Logger::Instance().IsEnabledForEntry(level, voice.category) ||
            IsAboutDiagnostics(format))
            return;
        std::array<char, 1024> text{};
        std::vsnprintf(text.data(), text.size(), format, arguments);
        LogOfKind(format, level, voice.category, text.data());
    } catch (const std::exception&) {
        // The line is lost: only another line could report it.
    }
}

} // namespace

UaLogger::UaLogger(Source source) noexcept
    // The library's type has no const form; only `Write` is given it.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
    : logger{Write, const_cast<Voice*>(source == Source::Transport ? &transport : &library),
             nullptr}
{}

} // namespace Host
