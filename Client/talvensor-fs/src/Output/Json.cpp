#include "Output/Json.h"

#include "Output/Text.h"
#include "Output/Times.h"
#include "Support/Utf8.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <chrono>

namespace Cli {

namespace {

/// Keeps the order in which the members are added.
using Json = nlohmann::ordered_json;

std::string Dump(const Json& json, JsonReader reader)
{
    return json.dump(-1, ' ', reader == JsonReader::Terminal, Json::error_handler_t::replace);
}

std::string ToHex(const std::string& bytes)
{
    std::string digits;
    for (const char byte : bytes)
        digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    return digits;
}

void AddPath(Json& json, const std::string& name, const std::string& path)
{
    json[name] = path;
    if (!Support::IsUtf8(path))
        json[name + "Hex"] = ToHex(path);
}

Json MakePath(const std::string& path)
{
    Json json;
    AddPath(json, "path", path);
    return json;
}

template <typename Value>
Json OrNull(const std::optional<Value>& value)
{
    return value ? Json(*value) : Json(nullptr);
}

Json OrNull(const std::optional<Client::FileTime>& time)
{
    return time ? Json(FormatUtcTime(*time)) : Json(nullptr);
}

/// For a text that is empty where there is none.
Json TextOrNull(const std::string& text)
{
    return text.empty() ? Json(nullptr) : Json(text);
}

/// With a number of 0 for what the server does not name.
Json LimitOrNull(std::uint32_t limit)
{
    return limit == 0 ? Json(nullptr) : Json(limit);
}

Json Make(const Client::ListEntry& entry)
{
    auto json = MakePath(entry.path);
    json["kind"] = entry.isDirectory ? "directory" : "file";
    json["time"] = OrNull(entry.time);
    return json;
}

std::string FormatOctal(std::uint32_t permissions)
{
    return fmt::format("{:04o}", permissions);
}

Json Make(const Folder& folder)
{
    auto json = MakePath(folder.path);
    json["readOnly"] = folder.isReadOnly;
    json["totalBytes"] = folder.space ? Json(folder.space->total) : Json(nullptr);
    json["freeBytes"] = folder.space ? Json(folder.space->free) : Json(nullptr);
    return json;
}

const char* GetName(Client::FailureKind kind)
{
    switch (kind) {
    case Client::FailureKind::LocalSystem:
        return "localSystem";
    case Client::FailureKind::RemoteResult:
        return "remoteResult";
    case Client::FailureKind::RemoteReason:
        return "remoteReason";
    case Client::FailureKind::RemoteUnknown:
        return "remoteUnknown";
    case Client::FailureKind::Refused:
        return "refused";
    case Client::FailureKind::ConnectionLost:
        return "connectionLost";
    case Client::FailureKind::Unsafe:
        return "unsafe";
    case Client::FailureKind::Different:
        return "different";
    case Client::FailureKind::Skipped:
        return "skipped";
    }
    return "";
}

Json Make(const Client::Failure& failure)
{
    auto json = MakePath(failure.path);
    json["side"] = failure.side == Client::Side::Local ? "local" : "remote";
    json["step"] = Client::GetName(failure.step);
    json["kind"] = GetName(failure.kind);
    json["cause"] = failure.cause;
    if (failure.systemError != 0)
        json["systemError"] = failure.systemError;
    if (failure.remoteResult != 0)
        json["remoteResult"] = failure.remoteResult;
    return json;
}

std::string FormatMilliseconds(std::chrono::system_clock::time_point time)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - seconds);
    auto text = FormatUtcTime(seconds);
    if (text.ends_with('Z'))
        text.insert(text.size() - 1, fmt::format(".{:03}", rest.count()));
    return text;
}

} // namespace

std::string ToJson(const ListRow& row, bool needsSize, JsonReader reader)
{
    auto json = Make(row.entry);
    if (row.size || needsSize)
        json["size"] = OrNull(row.size);
    if (row.permissions)
        json["permissions"] = FormatOctal(*row.permissions);
    return Dump(json, reader);
}

std::string ToJson(const std::string& path, const Client::EntryState& state, bool hasAll,
                   JsonReader reader)
{
    auto json = MakePath(path);
    const bool isDirectory = state.kind == Client::Kind::Directory;
    json["kind"] = isDirectory ? "directory" : state.isSpecial ? "special" : "file";
    json["time"] = FormatUtcTime(state.time);
    if (!isDirectory)
        json["size"] = state.size;
    if (hasAll) {
        json["permissions"] = FormatOctal(state.permissions);
        json["readable"] = state.isReadable;
        json["writable"] = state.isWritable;
        json["inReadOnlyFolder"] = state.isInReadOnlyFolder;
    }
    return Dump(json, reader);
}

std::string ToJson(const std::string& path, const char* kind, JsonReader reader)
{
    auto json = MakePath(path);
    json["kind"] = kind;
    return Dump(json, reader);
}

std::string ToJson(const std::string& path, std::uint64_t bytes, std::uint64_t files,
                   JsonReader reader)
{
    auto json = MakePath(path);
    json["size"] = bytes;
    json["files"] = files;
    return Dump(json, reader);
}

std::string ToJson(const Folder& folder, JsonReader reader)
{
    return Dump(Make(folder), reader);
}

std::string ToJson(const Client::TransferResult& result, JsonReader reader)
{
    Json json;
    json["complete"] = result.IsComplete();
    json["files"] = result.files;
    json["directories"] = result.directories;
    json["skippedFiles"] = result.skippedFiles;
    json["bytes"] = result.bytes;
    json["resumedBytes"] = result.resumedBytes;
    json["seconds"] = std::chrono::duration<double>(result.duration).count();
    json["cancelled"] = result.isCancelled;
    json["connectionLost"] = result.isConnectionLost;
    json["failures"] = Json::array();
    for (const auto& failure : result.failures)
        json["failures"].push_back(Make(failure));
    json["notes"] = Json::array();
    for (const auto& note : result.notes)
        json["notes"].push_back(Make(note));
    json["unfinished"] = Json::array();
    for (const auto& path : result.unfinished)
        json["unfinished"].push_back(MakePath(path));
    return Dump(json, reader);
}

std::string ToJson(const Client::ServerInfo& info, const std::vector<Folder>& folders,
                   JsonReader reader)
{
    Json json{{"endpoint", info.url},
              {"applicationName", info.applicationName},
              {"applicationUri", info.applicationUri},
              {"productName", info.productName},
              {"softwareVersion", info.softwareVersion},
              {"securityPolicy", info.securityPolicy},
              {"securityMode", info.securityMode},
              {"fingerprint", TextOrNull(info.fingerprint)},
              {"user", TextOrNull(info.user)},
              {"sessionId", info.sessionId},
              {"sessionTimeoutMilliseconds", info.sessionTimeout.count()},
              {"maximumByteString", LimitOrNull(info.maximumByteString)},
              {"maximumArray", LimitOrNull(info.maximumArray)},
              {"maximumCalls", LimitOrNull(info.maximumCalls)},
              {"namespaces", info.namespaces},
              {"sharedNodes", info.sharedNodes},
              {"modules", info.modules}};
    json["folders"] = Json::array();
    for (const auto& folder : folders)
        json["folders"].push_back(Make(folder));
    return Dump(json, reader);
}

std::string ToJson(const Client::OwnCertificate& own, JsonReader reader)
{
    auto json = MakePath(own.file.string());
    json["fingerprint"] = own.fingerprint;
    json["subject"] = own.subject;
    json["valid"] = own.validity;
    return Dump(json, reader);
}

std::string ToJson(const Client::KnownServer& known, JsonReader reader)
{
    return Dump({{"server", known.server}, {"fingerprint", known.fingerprint}}, reader);
}

std::string ToJson(const std::string& server, std::size_t forgotten, JsonReader reader)
{
    return Dump({{"server", server}, {"forgotten", forgotten}}, reader);
}

std::string ToJson(const Client::Event& event, JsonReader reader)
{
    Json json;
    json["event"] = Client::GetName(event.kind);
    json["time"] = FormatMilliseconds(event.time);
    switch (event.kind) {
    case Client::EventKind::Acknowledgement:
        json["handle"] = event.handle;
        json["result"] = event.result;
        break;
    case Client::EventKind::ExistsResult:
        json["exists"] = event.exists;
        break;
    case Client::EventKind::ListResult:
        json["limitExceeded"] = event.isLimitExceeded;
        json["entries"] = Json::array();
        for (const auto& entry : event.entries)
            json["entries"].push_back(Make(entry));
        break;
    case Client::EventKind::DeleteResult:
    case Client::EventKind::CreateDirectoryResult:
    case Client::EventKind::Overflow:
        break;
    }
    return Dump(json, reader);
}

std::string ToJson(const ChangeSummary& summary, JsonReader reader)
{
    auto json = MakePath(summary.path);
    if (summary.target)
        AddPath(json, "target", *summary.target);
    json["done"] = !summary.reason;
    json["reason"] = OrNull(summary.reason);
    return Dump(json, reader);
}

std::string ToJson(const SyncSummary& summary, JsonReader reader)
{
    return Dump({{"trial", summary.isTrial},
                 {"complete", summary.isComplete},
                 {"sent", summary.sent},
                 {"same", summary.same},
                 {"newer", summary.newer},
                 {"deleted", summary.deleted},
                 {"directories", summary.directories},
                 {"bytes", summary.bytes},
                 {"seconds", summary.seconds}},
                reader);
}

std::string ToJson(const char* action, const std::string& path, JsonReader reader)
{
    Json json;
    json["action"] = action;
    AddPath(json, "path", path);
    return Dump(json, reader);
}

std::string ToJson(const HostSummary& summary, JsonReader reader)
{
    return Dump({{"host", summary.host},
                 {"status", summary.status},
                 {"files", summary.files},
                 {"bytes", summary.bytes},
                 {"seconds", summary.seconds},
                 {"reason", TextOrNull(summary.reason)}},
                reader);
}

std::string AddHost(const std::string& object, const std::string& host, JsonReader reader)
{
    if (object.empty() || object.front() != '{')
        return object;
    return R"({"host":)" + Dump(host, reader) + "," + object.substr(1);
}

} // namespace Cli
