#pragma once

#include <open62541/plugin/log.h>

namespace Host {

/// A logger for the OPC UA library that writes to the host's log. It must outlive its users.
class UaLogger
{
public:
    enum class Source
    {
        Library,   ///< category "OpcUa"; warnings get the level Notice
        Transport, ///< category "Network": the host's event loop; warnings stay warnings
    };

    explicit UaLogger(Source source) noexcept;

    [[nodiscard]] UA_Logger& Get() noexcept { return logger; }

private:
    UA_Logger logger;
};

} // namespace Host
