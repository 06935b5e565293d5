#pragma once

#include "Core/Embedding/Runtime.h"
#include "Endpoint/EndpointSettings.h"
#include "Metrics/EndpointMetrics.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Host {

/// Serves the address space of a runtime to OPC UA clients: its types, its objects below the folder
/// "FileSystems", their methods and events, and objects of a session's own (the folder's method
/// CreateFileSystem). Knows no module's types: the objects are of the one type in the runtime's
/// models that has a behaviour.
class Endpoint
{
public:
    /// Checks the OPC UA library, makes the shared nodes and listens. `runtime` must outlive it and
    /// have all its models. Throws OpcUa::LibraryException for a library that does not fit,
    /// UaException, and what the runtime throws.
    Endpoint(Core::Embedding::Runtime& runtime, EndpointSettings settings,
             Authenticate authenticate);
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;
    /// Waits for the jobs of the sessions. REQUIRES: `Run` is not running.
    ~Endpoint();

    /// Returns "opc.tcp://ADDRESS:PORT" for each address by which clients reach it, with the real
    /// port.
    [[nodiscard]] std::vector<std::string> GetUrls() const;

    /// Serves on the calling thread until `Stop`, then ends the sessions and lets their jobs drain.
    /// Returns false if some have not ended within the limit. Call it once.
    bool Run();

    /// Makes `Run` return. Any thread may call it.
    void Stop();

    // The following take effect soon after they return, in the order of the calls. Any thread may
    // call them.

    /// Replaces the trusted certificates. Closes the sessions of clients that they do not include,
    /// unless any client is trusted. Throws as ClientTrust, and changes nothing then.
    void SetTrust(const Trust& trust);

    /// Closes the sessions of the users for whom `mayStay` returns false. It is called on the
    /// thread that serves, not for anonymous users.
    void CloseSessionsUnless(std::function<bool(const std::string& user)> mayStay);

    /// Calls `take` with the state of the endpoint, on the thread that serves.
    void ReadMetrics(std::function<void(const EndpointMetrics&)> take);

    /// Calls a function on the thread that serves.
    void Post(std::function<void()> function);

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation;
};

} // namespace Host
