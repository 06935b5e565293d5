#pragma once

#include "Commands/CommandRunner.h"

#include "Client/FileObjects.h"

#include <optional>
#include <string>
#include <vector>

namespace Cli {

/// A folder that the server offers.
struct Folder
{
    std::string path; ///< an absolute one of the server's machine
    bool isReadOnly = false;
    std::optional<Client::Space> space; ///< none where the server could not tell
};

/// Returns the folders; none where the server has no file objects to tell them.
[[nodiscard]] std::vector<Folder> FindFolders(const Workplace& workplace);

} // namespace Cli
