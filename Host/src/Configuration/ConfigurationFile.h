#pragma once

#include "Configuration/Settings.h"

#include <filesystem>
#include <vector>

namespace Host {

/// Reads a TOML file whose keys are the names of settings. Relative paths start at the folder of
/// the file. Adds unknown keys and values of a wrong kind to `problems`. Throws
/// ConfigurationException if the file cannot be read or is not TOML.
[[nodiscard]] SettingValues ReadConfigurationFile(const std::filesystem::path& file,
                                                  std::vector<ConfigurationProblem>& problems);

} // namespace Host
