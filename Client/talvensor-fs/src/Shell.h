#pragma once

#include "CommandRunner.h"
#include "Interruption.h"

#include <memory>

namespace Cli {

/// Takes commands from standard input: on a terminal with a prompt, history and completion;
/// otherwise line by line, without asking.
/// An interruption ends the command that runs; without a terminal, the shell too.
class Shell
{
public:
    /// References must outlive it.
    Shell(Remote& remote, Console& console, OutputChoice choice, Interruption& interruption);

    /// On a terminal the status is Done; otherwise that of the first line that was not. Throws
    /// ConnectionLostException, BrokenPipeException, CancelledException.
    [[nodiscard]] ExitStatus Run();

private:
    [[nodiscard]] ExitStatus RunOnTerminal();
    [[nodiscard]] ExitStatus RunLines();
    /// Reports what fails. Throws as `Run`.
    [[nodiscard]] ExitStatus RunLine(const std::string& line);
    [[nodiscard]] ExitStatus Execute(const Command& command, OutputChoice lineChoice);
    [[nodiscard]] ExitStatus RunOnServer(const Command& command, OutputChoice lineChoice);
    void ChangeFolder(const ChangeFolderCommand& command);
    void ShowFolder(const ShowFolderCommand& command) const;
    void Print(const std::string& text) const;
    [[nodiscard]] std::string MakePrompt() const;

    Remote& remote;
    Console& console;
    const OutputChoice choice;
    Interruption& interruption;
    bool isEnding = false;
};

} // namespace Cli
