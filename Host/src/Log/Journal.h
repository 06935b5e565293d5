#pragma once

#include "Core/Embedding/LogControl.h"

#include <memory>
#include <string>
#include <string_view>

namespace Host {

/// Returns true if standard error is connected to the journal of systemd, as JOURNAL_STREAM says.
[[nodiscard]] bool LogsToJournal();

/// Returns text with the journal's mark for the priority of a level, such as "<4>", before each of
/// its lines, and with a line end.
[[nodiscard]] std::string MarkForJournal(Core::LogLevel level, std::string_view text);

/// Writes one line per entry to standard error: its priority, and the log's line without the time,
/// which the journal adds. REQUIRES: `LogsToJournal`.
[[nodiscard]] std::shared_ptr<Core::Embedding::LogSink> MakeJournalSink();

} // namespace Host
