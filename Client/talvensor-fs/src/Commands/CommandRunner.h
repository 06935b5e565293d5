#pragma once

#include "Commands/Commands.h"
#include "Commands/Remote.h"
#include "ExitStatus.h"
#include "Output/Console.h"
#include "Output/Output.h"

#include <cstdint>

namespace Cli {

struct OutputChoice
{
    bool isQuiet = false;
    bool isJson = false;
};

/// Files and bytes that the transfers of a command moved.
struct Totals
{
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
};

/// The parts of the program that a command works with.
struct Workplace
{
    Remote& remote;
    Console& console;
    OutputChoice choice;
    const Client::Cancellation& cancellation;
    // Of a command that is one of many; null otherwise.
    KeptOutput* kept = nullptr; ///< takes the place of standard output
    Totals* totals = nullptr;   ///< counts what else would be said at the end of a transfer
    Place place = Place::CommandLine;
};

/// Runs one command. Its remote paths lose the prefix "remote:", and patterns become what matches
/// them; one that nothing matches counts as a failure, and the rest goes on. What fails of single
/// files is reported on the console and is in the status; throws CancelledException,
/// ConnectionLostException, BrokenPipeException, InvalidArgumentException for what cannot be meant,
/// and other ClientException for what ends the command as a whole. A transfer that was cancelled
/// says what is unfinished before it throws. REQUIRES: it is none that the shell alone deals with.
[[nodiscard]] ExitStatus RunCommand(const Command& command, const Workplace& workplace);

} // namespace Cli
