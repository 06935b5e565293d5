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

// Each makes one object on one line, without the line's end. A path that is not UTF-8 has its bytes
// in "pathHex" too, as hexadecimal digits. Times are in UTC.

[[nodiscard]] std::string ToJson(const Client::ListEntry& entry, JsonReader reader);
/// With a size, null where it is not known.
[[nodiscard]] std::string ToJson(const Client::ListEntry& entry, std::optional<std::uint64_t> size,
                                 JsonReader reader);
[[nodiscard]] std::string ToJson(const Client::TransferResult& result, JsonReader reader);
[[nodiscard]] std::string ToJson(const Client::ServerInfo& info, JsonReader reader);
[[nodiscard]] std::string ToJson(const Client::Event& event, JsonReader reader);

} // namespace Cli
