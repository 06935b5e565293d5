#pragma once

#include "Client/FileSystem.h"
#include "Grammar/Completion.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Cli {

// Patterns are those of fnmatch(3), name by name: * ? [...], and a backslash before a character
// that is meant as it is. A * at the beginning of a name does not match a dot. A name that is **
// stands for any number of directories, none included.

/// Returns true for a text that is more than a path.
[[nodiscard]] bool HasWildcard(std::string_view pattern);

/// Returns the path that a pattern without wildcards stands for.
[[nodiscard]] std::string RemoveEscapes(std::string_view pattern);

/// A tree of files in which paths are looked for. Directories that cannot be listed are empty.
/// An exception of its functions ends the search.
struct SearchedTree
{
    /// Lists a directory; the empty path is the current one.
    Lister list;
    /// Lists all that is below a directory, with paths that start there.
    Lister listAll;
    std::function<Client::Kind(const std::string& path)> getKind;
};

/// Returns the paths that match, in the order of their bytes. Lists only directories in which a
/// match can be. Names that lead elsewhere ("..", "a/b") do not match.
[[nodiscard]] std::vector<std::string> FindMatches(std::string_view pattern,
                                                   const SearchedTree& tree);

} // namespace Cli
