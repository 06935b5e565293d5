#pragma once

#include "Connection/Trust.h"
#include "ExitStatus.h"

#include <functional>
#include <string>

namespace Cli {

/// The end of a command.
struct Ending
{
    ExitStatus status = ExitStatus::Done;
    bool isInterrupted = false; ///< the status says nothing then
    std::string reason;         ///< of what ended it as a whole; empty where nothing did
};

/// Runs a command, with the connection to its server, and says what came of it, whatever it throws.
/// `trust` is the one that decides for the connection. `hasInterrupted` is asked where a connection
/// is lost, since an interruption ends it.
[[nodiscard]] Ending RunToEnd(const std::function<ExitStatus()>& command, const Trust& trust,
                              const std::function<bool()>& hasInterrupted);

} // namespace Cli
