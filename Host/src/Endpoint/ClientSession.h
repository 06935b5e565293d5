#pragma once

#include "Core/Embedding/Runtime.h"
#include "Core/NodeId.h"
#include "Endpoint/EventGate.h"
#include "Endpoint/Ua.h"
#include "Endpoint/WorkerThread.h"
#include "Network/EventLoop.h"
#include "Network/TimeShare.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

namespace Host {

/// A client's session. Owned by `Sessions`, which keeps it until its last job has run, so jobs on
/// the worker thread and functions that they post to the loop may refer to it.
struct ClientSession
{
    // Constant.
    Ua<UA_NodeId> id;
    std::uint64_t number = 0; ///< counts the sessions of this process from 1 on
    std::string user;         ///< empty: anonymous
    std::string address;
    std::string certificate; ///< the client's, in DER form; empty: the connection is not encrypted
    std::chrono::steady_clock::time_point since = std::chrono::steady_clock::now();

    // Loop thread only.
    ConnectionId connection = 0;     ///< the one on which it was last activated
    std::size_t callsInFlight = 0;   ///< taken and not answered yet
    std::size_t weightInFlight = 0;  ///< of their inputs, see `Weigh`
    ConnectionId heldConnection = 0; ///< not read while too much is in flight; 0: none
    TimeShare filterTime;            ///< for the library's checks of event filters
    std::uint64_t graceTimer = 0;    ///< runs while the connection is gone; 0: none
    std::shared_ptr<Core::Embedding::Session> opened; ///< null until it is open
    std::chrono::steady_clock::time_point detachedAt; ///< when the connection went

    std::chrono::steady_clock::time_point endedAt; ///< once `ended`
    bool isReported = false;                       ///< logged as not draining

    // Any thread.
    const std::shared_ptr<EventGate> eventGate = std::make_shared<EventGate>(); ///< of its objects
    std::atomic<std::size_t> ownObjectCount{0}; ///< made, or being made, and not yet drained
    std::atomic<bool> ended{false};
    std::atomic<std::uint64_t> calls{0};
    std::atomic<std::uint64_t> bytes{0}; ///< in byte strings, both ways

    // Jobs on the worker thread only.
    std::shared_ptr<Core::Embedding::Session> session; ///< opened by the first job
    /// The objects that only this session may use, and its hearing of their events.
    std::unordered_map<Core::NodeId, Core::Embedding::EventSubscription, Core::HashNodeId>
        ownObjects;

    WorkerThread worker; // last: its jobs use the members above
};

} // namespace Host
