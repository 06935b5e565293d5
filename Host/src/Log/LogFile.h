#pragma once

#include "Core/Embedding/LogControl.h"

#include <filesystem>
#include <memory>

namespace Host {

/// Opens a log file, to which entries are appended one line each; makes it with mode 0640 where it
/// is not there. Throws SystemException when it cannot be opened, and InvalidArgumentException when
/// it is no regular file, belongs to neither root nor the host's user, or has further names.
/// REQUIRES: `file` was found to be safe, see FileUse::Append.
[[nodiscard]] std::shared_ptr<Core::Embedding::LogSink>
OpenLogFile(const std::filesystem::path& file);

/// Says of a log file, by throwing the same, if it could be opened, and changes nothing.
void CheckLogFile(const std::filesystem::path& file);

} // namespace Host
