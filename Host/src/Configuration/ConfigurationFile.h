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

/// Returns the paths of the files to read for --config, the later ones replacing values of
/// the earlier: the file itself, or for a folder host.toml and then conf.d/*.toml by name. An empty
/// path has none. Throws ConfigurationException if conf.d cannot be read.
[[nodiscard]] std::vector<std::filesystem::path>
FindConfigurationFiles(const std::filesystem::path& path);

} // namespace Host
