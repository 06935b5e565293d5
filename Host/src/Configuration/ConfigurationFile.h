#pragma once

#include "Configuration/Settings.h"

#include <filesystem>
#include <vector>

namespace Host {

/// Reads a TOML file whose keys are the settings' names. Relative paths in it are seen from its
/// folder. Unknown keys and values of a wrong kind are added to `problems`. Throws
/// ConfigurationException when the file cannot be read, or is not TOML.
[[nodiscard]] SettingValues ReadConfigurationFile(const std::filesystem::path& file,
                                                  std::vector<ConfigurationProblem>& problems);

} // namespace Host
