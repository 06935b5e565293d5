#pragma once

#include "Commands.h"
#include "Console.h"
#include "ExitStatus.h"
#include "Output.h"
#include "Remote.h"

namespace Cli {

struct OutputChoice
{
    bool isQuiet = false;
    bool isJson = false;
};

/// The parts of the program that a command works with.
struct Workplace
{
    Remote& remote;
    Console& console;
    OutputChoice choice;
    const Client::Cancellation& cancellation;
};

/// Runs one command. What fails of single files is reported on the console and is in the status;
/// throws CancelledException, ConnectionLostException, BrokenPipeException,
/// InvalidArgumentException for what cannot be meant, and other ClientException for what ends the
/// command as a whole.
/// A transfer that was cancelled says what is unfinished before it throws.
/// REQUIRES: it is none that the shell alone deals with.
[[nodiscard]] ExitStatus RunCommand(const Command& command, const Workplace& workplace);

} // namespace Cli
