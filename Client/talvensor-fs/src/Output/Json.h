#pragma once

#include "Client/Certificates.h"
#include "Client/Connection.h"
#include "Client/FileObjects.h"
#include "Client/FileSystem.h"
#include "Client/Watch.h"
#include "Commands/Listing.h"
#include "Connection/Folders.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Cli {

/// The reader of the output: a terminal gets ASCII only, and so nothing that it could act on.
enum class JsonReader
{
    Program,
    Terminal,
};

[[nodiscard]] inline JsonReader GetReader(const Output& output) noexcept
{
    return output.IsTerminal() ? JsonReader::Terminal : JsonReader::Program;
}

/// The outcome of a command on one of many hosts.
struct HostSummary
{
    std::string host;
    std::string status;
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
    double seconds = 0;
    std::string reason; ///< empty: none
};

/// The outcome of a command that changes paths, for one of them.
struct ChangeSummary
{
    std::string path;
    std::optional<std::string> target; ///< of mv and cp: the new path
    std::optional<std::string> reason; ///< of a failure, in one line; otherwise it is done
};

/// The steps that a synchronisation took, or would take.
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

/// Size and permissions where they are known; `needsSize`: null where it is not.
[[nodiscard]] std::string ToJson(const ListRow& row, bool needsSize, JsonReader reader);
/// `hasAll`: with permissions and access.
[[nodiscard]] std::string ToJson(const std::string& path, const Client::EntryState& state,
                                 bool hasAll, JsonReader reader);
[[nodiscard]] std::string ToJson(const std::string& path, const char* kind, JsonReader reader);
/// The usage of a directory.
[[nodiscard]] std::string ToJson(const std::string& path, std::uint64_t bytes, std::uint64_t files,
                                 JsonReader reader);
[[nodiscard]] std::string ToJson(const Folder& folder, JsonReader reader);
[[nodiscard]] std::string ToJson(const Client::TransferResult& result, JsonReader reader);
[[nodiscard]] std::string ToJson(const Client::ServerInfo& info, const std::vector<Folder>& folders,
                                 JsonReader reader);
[[nodiscard]] std::string ToJson(const Client::OwnCertificate& own, JsonReader reader);
[[nodiscard]] std::string ToJson(const Client::KnownServer& known, JsonReader reader);
/// The servers of that name that are trusted no longer.
[[nodiscard]] std::string ToJson(const std::string& server, std::size_t forgotten,
                                 JsonReader reader);
[[nodiscard]] std::string ToJson(const Client::Event& event, JsonReader reader);
[[nodiscard]] std::string ToJson(const ChangeSummary& summary, JsonReader reader);
[[nodiscard]] std::string ToJson(const SyncSummary& summary, JsonReader reader);
/// A step that a synchronisation would do: "send", "delete" and so on.
[[nodiscard]] std::string ToJson(const char* action, const std::string& path, JsonReader reader);
[[nodiscard]] std::string ToJson(const HostSummary& summary, JsonReader reader);

/// Returns an object, as the functions above make it, with the host's name as its first member.
[[nodiscard]] std::string AddHost(const std::string& object, const std::string& host,
                                  JsonReader reader);

} // namespace Cli
