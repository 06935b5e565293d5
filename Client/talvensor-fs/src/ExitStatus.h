#pragma once

namespace Cli {

/// The exit status of the process. A signal ends it with 128 and the signal's number instead.
enum class ExitStatus
{
    Done = 0,
    Failed = 1,
    Usage = 2,
    NoConnection = 3,
    Refused = 4,
    BrokenPipe = 141, ///< nobody reads standard output any more; as if SIGPIPE had ended it
};

} // namespace Cli
