#pragma once

#include "CommandLine/Manual.h"

namespace Cli {

/// Returns the texts of talvensor-fs(1); a part of them ends the help.
[[nodiscard]] const CommandLine::Manual& GetManual();

} // namespace Cli
