#pragma once

#include <open62541/plugin/log.h>

namespace Host {

/// Sends what the OPC UA library logs to the host's log, category "OpcUa". Must outlive what uses
/// it.
class UaLogger
{
public:
    UaLogger() noexcept;

    [[nodiscard]] UA_Logger& Get() noexcept { return logger; }

private:
    UA_Logger logger;
};

} // namespace Host
