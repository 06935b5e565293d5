#pragma once

#include "Commands/CommandRunner.h"

namespace Cli {

// Each as RunCommand.

[[nodiscard]] ExitStatus Run(const ListCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const StateCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const UsageCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const SpaceCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const TreeCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const FindCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const RemoveCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const MoveCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const CopyCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const MakeDirectoryCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const ExistsCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const TouchCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const PermissionsCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const PutCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const GetCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const SyncCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const CatCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const InfoCommand& command, const Workplace& workplace);
[[nodiscard]] ExitStatus Run(const WatchCommand& command, const Workplace& workplace);

/// One line: file, step and cause.
void Report(Console& console, const Client::Failure& failure);
/// Names a file that is not whole, and the command that carries on.
void ReportUnfinished(Console& console, const std::string& path, Client::Side side,
                      const std::string& command);

// Of many for the same cause they report the first few, and the number of the others.

void ReportFailures(Console& console, const std::vector<Client::Failure>& failures);
/// The same for what is no failure.
void ReportNotes(Console& console, const std::vector<Client::Failure>& notes);

} // namespace Cli
