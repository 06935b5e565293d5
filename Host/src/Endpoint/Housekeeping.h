#pragma once

#include "Endpoint/EndpointSettings.h"
#include "Endpoint/MemoryTrim.h"
#include "Endpoint/ProvidedNodes.h"
#include "Endpoint/Sessions.h"
#include "Network/EventLoop.h"

#include <open62541/server.h>

#include <chrono>
#include <optional>

namespace Host {

/// Looks after an endpoint once a second: closes connections and sessions that are overdue, logs
/// sessions that do not drain and the lines that were left out, and gives memory back. Also tells
/// that the loop is alive. Loop thread.
class Housekeeping
{
public:
    /// All must outlive it. Learns the memory of a host without clients. Throws UaException.
    Housekeeping(UA_Server& server, EventLoop& loop, Sessions& sessions, ProvidedNodes& provided,
                 const EndpointSettings& settings);
    Housekeeping(const Housekeeping&) = delete;
    Housekeeping& operator=(const Housekeeping&) = delete;

private:
    void AddAliveTimer(std::chrono::milliseconds interval);
    void Run();
    void GiveMemoryBack();

    UA_Server& server;
    EventLoop& loop;
    Sessions& sessions;
    ProvidedNodes& provided;
    const EndpointSettings& settings;
    std::optional<MemoryTrim> memoryTrim; // empty where memory cannot be read
};

} // namespace Host
