#pragma once

#include "Core/Embedding/Runtime.h"
#include "Endpoint/Sessions.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Host {

/// What the endpoint is to be.
struct EndpointSettings
{
    std::vector<std::string> addresses; ///< numeric ones to listen on
    std::uint16_t port = 4840;          ///< 0: the system chooses
    std::string applicationUri;
    std::string version;

    std::vector<unsigned char> certificate; ///< DER
    std::vector<unsigned char> key;         ///< DER
    bool allowsUnencrypted = false;
    bool trustsAnyClient = false;
    std::vector<std::vector<unsigned char>> trusted; ///< certificates of clients, DER or PEM
    std::vector<std::vector<unsigned char>> issuers;
    std::vector<std::vector<unsigned char>> revocationLists;
    SessionRules sessions;

    std::vector<std::string> sharedNodes; ///< their names
    std::chrono::milliseconds drain{10'000};

    std::size_t maximumMessage = 20'000'000;
    std::size_t maximumChunks = 400;
    std::size_t maximumSessions = 100;
    std::size_t subscriptionsPerSession = 20;
    std::size_t ownObjectsPerSession = 4;
    std::size_t waitingEvents = 64'000'000; ///< bytes, for each session
    std::size_t queuedOutput = 64'000'000;
    std::size_t queuedOutputPause = 4'000'000;
    /// True while the process uses more memory than it should.
    std::function<bool()> isMemoryShort;
    /// Returns the resident memory in bytes; without it none is given back after a peak.
    std::function<std::uint64_t()> readMemory;
};

/// Serves the address space of a runtime to OPC UA clients: its types, its objects below the folder
/// "FileSystems", their methods and events, and objects of a session's own (the folder's
/// method CreateFileSystem). Knows no module's types: the objects are of the one type in the
/// runtime's models that has a behaviour.
class Endpoint
{
public:
    /// Makes the shared nodes and listens. `runtime` must outlive it, with all its models loaded
    /// and no others to come. Throws UaException, and what the runtime throws.
    Endpoint(Core::Embedding::Runtime& runtime, EndpointSettings settings,
             Authenticate authenticate);
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;
    /// REQUIRES: `Run` is not running. Waits for what the sessions still do.
    ~Endpoint();

    /// "opc.tcp://ADDRESS:PORT" for each address by which clients reach it, with the real port.
    [[nodiscard]] std::vector<std::string> GetUrls() const;

    /// Serves on the calling thread until `Stop`; then ends the sessions and lets their work drain.
    /// False when some of it was still at work after the time limit. Once.
    bool Run();

    /// Makes `Run` return. Any thread.
    void Stop();

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation;
};

} // namespace Host
