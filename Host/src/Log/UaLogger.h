#pragma once

#include <open62541/plugin/log.h>

namespace Host {

/// Sends what is logged in the way of the OPC UA library to the host's log. Must outlive what uses
/// it.
class UaLogger
{
public:
    enum class Source
    {
        Library,   ///< category "OpcUa"; its warnings are of a lower level than the host's
        Transport, ///< category "Network": the host's own event loop, whose warnings are warnings
    };

    explicit UaLogger(Source source) noexcept;

    [[nodiscard]] UA_Logger& Get() noexcept { return logger; }

private:
    UA_Logger logger;
};

} // namespace Host
