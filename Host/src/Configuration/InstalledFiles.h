#pragma once

#include <filesystem>
#include <vector>

namespace Host {

/// Returns the path of this program. Throws std::filesystem::filesystem_error without /proc.
[[nodiscard]] std::filesystem::path FindProgram();

/// Returns the folders of the modules and of their information models that belong to this program.
/// They are found from the program's own folder, in a build as in an installation that was moved.
/// Throw as FindProgram does.
[[nodiscard]] std::filesystem::path GetModuleFolder();
[[nodiscard]] std::filesystem::path GetModelFolder();

/// Returns the modules `libNAME.so` in the module folder, sorted by name; none if there is no such
/// folder. Throws std::filesystem::filesystem_error if it cannot be read.
[[nodiscard]] std::vector<std::filesystem::path> FindInstalledModules();

/// Returns the information model `NAME.NodeSet2.xml` of the module `libNAME.so`, from the module's
/// folder or from the model folder. Throws NotFoundException with the paths that it tried.
[[nodiscard]] std::filesystem::path FindModel(const std::filesystem::path& module);

} // namespace Host
