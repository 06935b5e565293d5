#pragma once

#include "Core/Embedding/LogControl.h"

#include <filesystem>
#include <memory>

namespace Host {

/// Opens a log file, and creates it with mode 0640 if it does not exist. The sink appends a line
/// for each entry. Throws std::system_error if the file cannot be opened, and
/// InvalidArgumentException if it is not a regular file, belongs to neither root nor the host's
/// user, or has several hard links. REQUIRES: PathTrust accepts `file` for FileUse::Append.
[[nodiscard]] std::shared_ptr<Core::Embedding::LogSink>
OpenLogFile(const std::filesystem::path& file);

/// Throws what `OpenLogFile` would throw, and changes nothing.
void CheckLogFile(const std::filesystem::path& file);

} // namespace Host
