#pragma once

#include "Commands/CommandRunner.h"
#include "Commands/Patterns.h"

#include <string>
#include <vector>

namespace Cli {

/// Says on a path that the server is meant where that could be unclear. A local path that begins
/// so is written ./remote:x.
constexpr std::string_view remotePrefix = "remote:";

/// Makes paths of the arguments of one command. The operations throw as RunCommand.
class PathArguments
{
public:
    explicit PathArguments(const Workplace& workplace);

    /// Takes the prefix off.
    static void TakeRemote(std::string& path);
    static void TakeRemote(std::vector<std::string>& paths);

    /// Throws InvalidArgumentException for a path with the prefix.
    static void CheckLocal(const std::string& path);
    static void CheckLocal(const std::vector<std::string>& paths);

    /// Takes the prefix off and expands patterns. On the command line, where the user's own shell
    /// takes quotes away, a name that exists is no pattern, and without a wildcard nothing is
    /// escaped. `mayBeMissing`: a pattern that matches nothing is no failure.
    void ExpandRemote(std::vector<std::string>& patterns, bool mayBeMissing = false);

    /// Expands patterns in this machine's files; on the command line there are none, since the
    /// user's own shell expanded them. Throws InvalidArgumentException for one with the prefix.
    void ExpandLocal(std::vector<std::string>& patterns);

    /// Returns true when a pattern matched nothing, which was reported.
    [[nodiscard]] bool HasFailed() const noexcept { return hasFailed; }

private:
    void Expand(std::vector<std::string>& patterns, const SearchedTree& tree, bool mayBeMissing);
    [[nodiscard]] bool IsPath(const std::string& pattern, const SearchedTree& tree) const;

    const Workplace& workplace;
    const SearchedTree remote;
    bool hasFailed = false;
};

/// Returns this machine's files.
[[nodiscard]] SearchedTree MakeLocalTree();

} // namespace Cli
