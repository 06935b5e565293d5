#pragma once

#include "Audit/AuditRecord.h"
#include "Endpoint/Sessions.h"
#include "Users/Pki.h"
#include "Users/RefusedClients.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Host {

/// The addresses, keys, users and bounds of an endpoint.
struct EndpointSettings
{
    std::vector<std::string> addresses; ///< numeric, to listen on
    std::uint16_t port = 4840;          ///< 0: the system chooses one
    std::string applicationUri;
    std::string version;

    std::vector<unsigned char> certificate; ///< DER
    std::vector<unsigned char> key;         ///< DER
    bool allowsUnencrypted = false;
    bool trustsAnyClient = false;
    Trust trust;
    SessionRules sessions;

    std::vector<std::string> sharedNodes; ///< names
    std::chrono::milliseconds drain{10'000};

    std::size_t maximumMessage = 20'000'000;
    std::size_t maximumChunks = 400;
    std::size_t maximumSessions = 100;
    std::size_t subscriptionsPerSession = 20;
    std::size_t ownObjectsPerSession = 4;
    std::size_t waitingEvents = 64'000'000; ///< bytes, for each session
    std::size_t queuedOutput = 64'000'000;
    std::size_t queuedOutputPause = 4'000'000;
    /// Returns true while the process uses more memory than it should.
    std::function<bool()> isMemoryShort;
    /// Returns the resident memory in bytes; without it none is given back after a peak.
    std::function<std::uint64_t()> readMemory;
    /// How often to call `onAlive` on the thread that serves; nothing: never.
    std::optional<std::chrono::milliseconds> aliveInterval;
    std::function<void()> onAlive;
    /// Takes the audit records. Any thread calls it; it does not wait.
    std::function<void(AuditRecord)> audit = [](AuditRecord) {
    };
    /// Takes the clients whose certificates were refused. Called on the thread that serves; it does
    /// not wait.
    std::function<void(RefusedClient)> onRefused = [](RefusedClient) {
    };
};

} // namespace Host
