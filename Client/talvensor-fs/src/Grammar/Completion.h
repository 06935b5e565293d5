#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Cli {

/// Something that a word can become.
struct Candidate
{
    std::string name;
    bool isDirectory = false;
};

/// How a line goes on.
struct Completion
{
    std::size_t begin = 0;            ///< from here to the line's end ...
    std::string replacement;          ///< ... this takes the place
    std::vector<std::string> choices; ///< what is open yet; empty when one candidate was left
};

/// Lists a directory; the empty path is the current one. Returns none when it cannot be listed.
using Lister = std::function<std::vector<Candidate>(const std::string& directory)>;

/// Completes commands, and remote or local paths where a command takes them.
class Completer
{
public:
    Completer(std::vector<std::string> commands, Lister remote, Lister local);

    [[nodiscard]] Completion Complete(std::string_view line) const;

private:
    [[nodiscard]] std::vector<Candidate> FindPaths(const std::vector<std::string>& words,
                                                   const std::string& directory) const;

    const std::vector<std::string> commands;
    const Lister remote;
    const Lister local;
};

} // namespace Cli
