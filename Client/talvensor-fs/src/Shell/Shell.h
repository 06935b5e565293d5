#pragma once

#include "Commands/CommandRunner.h"
#include "Interruption.h"

#include <functional>
#include <optional>
#include <string>

namespace Cli {

/// Takes commands: on a terminal with a prompt, history and completion; from a file, arguments or
/// another standard input line by line, until one fails. A line that begins with a dash may fail.
/// An interruption ends the command that runs; without a terminal, the shell too.
class Shell
{
public:
    /// References must outlive it. `url` is that of the server.
    Shell(Remote& remote, Console& console, OutputChoice choice, Interruption& interruption,
          const std::string& url);

    /// Returns the number that `exit` was given; otherwise on a terminal Done, and else the status
    /// of the line that failed. Throws ConnectionLostException, BrokenPipeException,
    /// CancelledException, and ClientException when the commands cannot be read.
    [[nodiscard]] ExitStatus Run(const ShellCommand& command);

private:
    /// Returns the next line; nothing at the end.
    using LineSource = std::function<std::optional<std::string>()>;

    void RunOnTerminal();
    [[nodiscard]] ExitStatus RunLines(const std::string& name, const LineSource& source);
    /// Reports what fails. Throws as `Run`.
    [[nodiscard]] ExitStatus RunLine(const std::string& line);
    [[nodiscard]] ExitStatus Execute(const Command& command, OutputChoice lineChoice);
    [[nodiscard]] ExitStatus RunLocally(const LocalProgramCommand& command);
    [[nodiscard]] Workplace MakeWorkplace(OutputChoice lineChoice) const;
    [[nodiscard]] ExitStatus RunOnServer(const Command& command, OutputChoice lineChoice);
    void ChangeFolder(const ChangeFolderCommand& command);
    void ShowFolder(const ShowFolderCommand& command) const;
    void Print(const std::string& text) const;
    [[nodiscard]] std::string MakePrompt() const;

    Remote& remote;
    Console& console;
    const OutputChoice choice;
    Interruption& interruption;
    const std::string server;      ///< its short name
    std::optional<ExitStatus> end; ///< what `exit` said
};

} // namespace Cli
