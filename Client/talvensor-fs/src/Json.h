#pragma once

#include "Client/Connection.h"
#include "Client/FileSystem.h"
#include "Client/Watch.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Cli {

/// The reader of the output: a terminal gets ASCII only, and so nothing that it could act on.
enum class JsonReader
{
    Program,
    Terminal,
};

/// What came of a command on one of many hosts.
struct HostSummary
{
    std::string host;
    std::string status;
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
    double seconds = 0;
    std::string reason; ///< empty: none
};

/// What a synchronisation did, or would do.
struct SyncSummary
{
    bool isTrial = false;
    bool isComplete = false; ///< nothing failed
    std::uint64_t sent = 0;
    std::uint64_t same = 0;
    std::uint64_t newer = 0;
    std::uint64_t deleted = 0;
    std::uint64_t directories = 0; ///< made
    std::uint64_t bytes = 0;
    double seconds = 0;
};

// Each makes one object on one line, without the line's end. A path that is not UTF-8 has its bytes
// in "pathHex" too, as hexadecimal digits. Times are in UTC.

[[nodiscard]] std::string ToJson(const Client::ListEntry& entry, JsonReader reader);
/// With a size, null where it is not known.
[[nodiscard]] std::string ToJson(const Client::ListEntry& entry, std::optional<std::uint64_t> size,
                                 JsonReader reader);
[[nodiscard]] std::string ToJson(const Client::TransferResult& result, JsonReader reader);
[[nodiscard]] std::string ToJson(const Client::ServerInfo& info, JsonReader reader);
[[nodiscard]] std::string ToJson(const Client::Event& event, JsonReader reader);
[[nodiscard]] std::string ToJson(const SyncSummary& summary, JsonReader reader);
/// A step that a synchronisation would do: "send", "delete" and so on.
[[nodiscard]] std::string ToJson(const char* action, const std::string& path, JsonReader reader);
[[nodiscard]] std::string ToJson(const HostSummary& summary, JsonReader reader);

/// Returns an object, as the functions above make it, with the host's name as its first member.
[[nodiscard]] std::string AddHost(const std::string& object, const std::string& host,
                                  JsonReader reader);

} // namespace Cli
