#include "Endpoint/Housekeeping.h"

#include "Endpoint/Ua.h"
#include "Log/Log.h"

#include <fmt/format.h>

#include <exception>

#include <malloc.h>

namespace Host {

Housekeeping::Housekeeping(UA_Server& server, EventLoop& loop, Sessions& sessions,
                           ProvidedNodes& provided, const EndpointSettings& settings)
    : server(server)
    , loop(loop)
    , sessions(sessions)
    , provided(provided)
    , settings(settings)
{
    if (settings.readMemory)
        memoryTrim.emplace(settings.readMemory());
    constexpr double interval = 1'000; // ms
    const auto run = [](UA_Server* /*server*/, void* context) noexcept {
        try {
            static_cast<Housekeeping*>(context)->Run();
        } catch (const std::exception& exception) {
            Log(Core::LogLevel::Error, "Session",
                fmt::format("Cannot look after the sessions: {}", exception.what()));
        }
    };
    RequireGood(UA_Server_addRepeatedCallback(&server, run, this, interval, nullptr),
                "adding a timer");
    if (settings.aliveInterval)
        AddAliveTimer(*settings.aliveInterval);
}

void Housekeeping::AddAliveTimer(std::chrono::milliseconds interval)
{
    const auto run = [](UA_Server* /*server*/, void* context) noexcept {
        static_cast<const Housekeeping*>(context)->settings.onAlive();
    };
    RequireGood(UA_Server_addRepeatedCallback(&server, run, this,
                                              static_cast<double>(interval.count()), nullptr),
                "adding a timer");
}

void Housekeeping::Run()
{
    LogLeftOut();
    sessions.ReportUndrained(settings.drain);
    loop.CloseAbandonedConnections();
    loop.CloseOverdueConnections();
    sessions.CloseUnclaimed(server);
    provided.DropOld();
    GiveMemoryBack();
}

void Housekeeping::GiveMemoryBack()
{
    if (!memoryTrim || !memoryTrim->IsDue(settings.readMemory(), loop.CountBytes()))
        return;
    malloc_trim(0);
    memoryTrim->NoteTrimmed(settings.readMemory());
}

} // namespace Host
