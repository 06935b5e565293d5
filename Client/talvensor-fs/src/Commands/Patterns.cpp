#include "Commands/Patterns.h"

#include "Commands/Remote.h"

#include <fnmatch.h>

#include <algorithm>
#include <span>

namespace Cli {

namespace {

constexpr std::string_view anyDirectories = "**";

using Names = std::vector<std::string>;

Names SplitPath(std::string_view path)
{
    Names names;
    for (auto slash = path.find('/'); slash != std::string_view::npos; slash = path.find('/')) {
        if (slash > 0)
            names.emplace_back(path.substr(0, slash));
        path.remove_prefix(slash + 1);
    }
    if (!path.empty())
        names.emplace_back(path);
    return names;
}

bool IsMatch(const std::string& pattern, const std::string& name)
{
    return fnmatch(pattern.c_str(), name.c_str(), FNM_PERIOD) == 0;
}

/// Matches a path name by name. `**` matches no directory whose name begins with a dot.
bool IsMatch(std::span<const std::string> patterns, std::span<const std::string> names)
{
    if (patterns.empty())
        return names.empty();
    if (patterns.front() == anyDirectories) {
        if (IsMatch(patterns.subspan(1), names))
            return true;
        return !names.empty() && !names.front().starts_with('.') &&
               IsMatch(patterns, names.subspan(1));
    }
    return !names.empty() && IsMatch(patterns.front(), names.front()) &&
           IsMatch(patterns.subspan(1), names.subspan(1));
}

/// One search.
class Search
{
public:
    Search(std::string_view pattern, const SearchedTree& tree)
        : tree(tree)
        , patterns(SplitPath(pattern))
        , beginning(pattern.starts_with('/') ? "/" : "")
        , endsWithSlash(pattern.ends_with('/'))
    {}

    Names Run()
    {
        Descend(beginning, 0, false);
        std::sort(found.begin(), found.end());
        found.erase(std::unique(found.begin(), found.end()), found.end());
        return std::move(found);
    }

private:
    /// Looks below a path for the patterns from `next` on. `isChecked`: something is there.
    void Descend(const std::string& path, std::size_t next, bool isChecked)
    {
        if (next == patterns.size())
            AddFound(path, isChecked);
        else if (patterns[next] == anyDirectories)
            SearchAll(path, next);
        else if (HasWildcard(patterns[next]))
            SearchDirectory(path, next);
        else
            Descend(JoinPath(path, RemoveEscapes(patterns[next])), next + 1, false);
    }

    void SearchDirectory(const std::string& directory, std::size_t next)
    {
        const bool needsDirectory = next + 1 < patterns.size() || endsWithSlash;
        for (const auto& entry : tree.list(directory))
            if ((entry.isDirectory || !needsDirectory) && IsSafeName(entry.name) &&
                IsMatch(patterns[next], entry.name))
                Descend(JoinPath(directory, entry.name), next + 1, true);
    }

    void SearchAll(const std::string& directory, std::size_t next)
    {
        const auto rest = std::span(patterns).subspan(next);
        for (const auto& entry : tree.listAll(directory))
            if ((entry.isDirectory || !endsWithSlash) && Client::IsSafeRelativePath(entry.name) &&
                IsMatch(rest, SplitPath(entry.name)))
                AddFound(JoinPath(directory, entry.name), true);
    }

    void AddFound(const std::string& path, bool isChecked)
    {
        if (isChecked || tree.getKind(path) != Client::Kind::Missing)
            found.push_back(endsWithSlash ? path + "/" : path);
    }

    static bool IsSafeName(const std::string& name)
    {
        return Client::IsSafeRelativePath(name) && name.find('/') == std::string::npos;
    }

    const SearchedTree& tree;
    const Names patterns;
    const std::string beginning;
    const bool endsWithSlash;
    Names found;
};

} // namespace

bool HasWildcard(std::string_view pattern)
{
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '\\')
            ++i;
        else if (std::string_view("*?[").find(pattern[i]) != std::string_view::npos)
            return true;
    }
    return false;
}

std::string RemoveEscapes(std::string_view pattern)
{
    std::string path;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '\\' && i + 1 < pattern.size())
            ++i;
        path += pattern[i];
    }
    return path;
}

std::vector<std::string> FindMatches(std::string_view pattern, const SearchedTree& tree)
{
    return Search(pattern, tree).Run();
}

} // namespace Cli
