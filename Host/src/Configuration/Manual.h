#pragma once

#include "CommandLine/Manual.h"

namespace Host {

/// Returns the texts of talvensor-host(8); a part of them ends the help.
[[nodiscard]] const CommandLine::Manual& GetManual();

/// Returns the texts of host.toml(5), beside the settings.
[[nodiscard]] const CommandLine::Manual& GetFileManual();

} // namespace Host
