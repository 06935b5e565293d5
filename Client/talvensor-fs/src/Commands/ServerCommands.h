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

/// Returns one line: file, step and cause.
[[nodiscard]] std::string Describe(const Client::Failure& failure);
void Report(Console& console, const Client::Failure& failure);
/// Names a file that is not whole, and the command that carries on.
void ReportUnfinished(Console& console, const std::string& path, Client::Side side,
                      const std::string& command);
/// The same as for a failure for what is none.
void ReportNote(Console& console, const Client::Failure& note);

} // namespace Cli
