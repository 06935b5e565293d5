#pragma once

#include "Metrics/MetricsAddress.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Host {

/// Answers GET /metrics by HTTP, on a thread of its own. Takes a few connections at a time, one
/// request from each, and gives each a few seconds: a client that neither sends nor reads holds up
/// nobody.
class MetricsServer
{
public:
    /// Returns nothing if there are no metrics now. Called on the server's thread.
    using MakeText = std::function<std::optional<std::string>()>;

    /// Throws std::system_error.
    MetricsServer(MetricsListener listener, MakeText makeText);
    MetricsServer(const MetricsServer&) = delete;
    MetricsServer& operator=(const MetricsServer&) = delete;
    /// Closes all connections.
    ~MetricsServer();

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation;
};

} // namespace Host
