#pragma once

#include "Client/Connection.h"
#include "Client/FileSystem.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Client {

enum class EventKind
{
    Acknowledgement,
    ExistsResult,
    DeleteResult,
    CreateDirectoryResult,
    ListResult,
    Overflow, ///< events were lost since they were not taken in time
};

/// Returns the name of the event's type, "AckEvent" and so on.
[[nodiscard]] const char* GetName(EventKind kind) noexcept;

/// An event of a shared node. Which fields there are depends on the kind.
struct Event
{
    EventKind kind = EventKind::Acknowledgement;
    std::chrono::system_clock::time_point time; ///< the server's
    std::uint32_t handle = 0;                   ///< Acknowledgement
    std::uint32_t result = 0;                   ///< Acknowledgement: 0 to 5
    bool exists = false;                        ///< ExistsResult
    std::vector<ListEntry> entries;             ///< ListResult
    bool isLimitExceeded = false;               ///< ListResult
};

/// Describes the result of an acknowledgement: "done" for 0, "the file could not be opened" for 1.
[[nodiscard]] const char* DescribeResult(std::uint32_t result) noexcept;

/// Hears a node that all clients share. Connection::GetInfo names them. Threads: one at a time.
class Watch
{
public:
    /// Subscribes. `connection` must outlive it. Throws OperationFailedException when there is no
    /// such node, ConnectionLostException.
    Watch(Connection& connection, const std::string& sharedNode);
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch();

    /// Waits for the next event. Throws CancelledException, and ConnectionLostException when the
    /// connection broke: events may have been missed.
    [[nodiscard]] Event Next(const Cancellation* cancellation = nullptr);

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation;
};

} // namespace Client
