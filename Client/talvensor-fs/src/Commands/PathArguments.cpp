#include "Commands/PathArguments.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

namespace Cli {

namespace {

namespace fs = std::filesystem;

std::vector<Candidate> ListRemote(const Workplace& workplace, const std::string& directory,
                                  bool isRecursive)
{
    std::vector<Candidate> candidates;
    try {
        const auto path = workplace.remote.Resolve(directory.empty() ? "." : directory);
        auto listing = workplace.remote.GetFiles().List(path, isRecursive, &workplace.cancellation);
        for (auto& entry : listing.entries)
            candidates.push_back({.name = std::move(entry.path), .isDirectory = entry.isDirectory});
    } catch (const Client::OperationFailedException&) { // NOLINT(bugprone-empty-catch)
        // Nothing matches in what cannot be listed.
    }
    return candidates;
}

SearchedTree MakeRemoteTree(const Workplace& workplace)
{
    return {.list =
                [&workplace](const std::string& directory) {
                    return ListRemote(workplace, directory, false);
                },
            .listAll =
                [&workplace](const std::string& directory) {
                    return ListRemote(workplace, directory, true);
                },
            .getKind =
                [&workplace](const std::string& path) {
                    return workplace.remote.GetFiles().GetKind(workplace.remote.Resolve(path),
                                                               &workplace.cancellation);
                }};
}

template <typename Iterator>
std::vector<Candidate> ListLocal(const std::string& directory)
{
    std::vector<Candidate> candidates;
    const fs::path folder = directory.empty() ? "." : directory;
    std::error_code error;
    for (Iterator entry(folder, error); !error && entry != Iterator(); entry.increment(error)) {
        std::error_code unknown;
        candidates.push_back({.name = entry->path().lexically_relative(folder).string(),
                              .isDirectory = entry->is_directory(unknown)});
    }
    return candidates;
}

Client::Kind GetLocalKind(const std::string& path)
{
    std::error_code error;
    const auto kind = fs::symlink_status(path, error).type();
    if (kind == fs::file_type::not_found || kind == fs::file_type::none)
        return Client::Kind::Missing;
    return fs::is_directory(path, error) ? Client::Kind::Directory : Client::Kind::File;
}

} // namespace

PathArguments::PathArguments(const Workplace& workplace)
    : workplace(workplace)
    , remote(MakeRemoteTree(workplace))
{}

void PathArguments::TakeRemote(std::string& path)
{
    if (path.starts_with(remotePrefix))
        path.erase(0, remotePrefix.size());
}

void PathArguments::TakeRemote(std::vector<std::string>& paths)
{
    for (auto& path : paths)
        TakeRemote(path);
}

void PathArguments::CheckLocal(const std::string& path)
{
    if (path.starts_with(remotePrefix))
        throw Client::InvalidArgumentException(
            path + ": must be a local path (a local name that begins like this is written ./" +
            path + ")");
}

void PathArguments::CheckLocal(const std::vector<std::string>& paths)
{
    for (const auto& path : paths)
        CheckLocal(path);
}

void PathArguments::ExpandRemote(std::vector<std::string>& patterns, bool mayBeMissing)
{
    TakeRemote(patterns);
    Expand(patterns, remote, mayBeMissing);
}

void PathArguments::ExpandLocal(std::vector<std::string>& patterns)
{
    CheckLocal(patterns);
    if (workplace.place == Place::Shell)
        Expand(patterns, MakeLocalTree(), false);
}

void PathArguments::Expand(std::vector<std::string>& patterns, const SearchedTree& tree,
                           bool mayBeMissing)
{
    std::vector<std::string> paths;
    for (const auto& pattern : patterns) {
        if (!HasWildcard(pattern)) {
            paths.push_back(workplace.place == Place::Shell ? RemoveEscapes(pattern) : pattern);
            continue;
        }
        if (IsPath(pattern, tree)) {
            paths.push_back(pattern);
            continue;
        }
        const auto matches = FindMatches(pattern, tree);
        for (const auto& path : matches)
            paths.push_back(path == standardStream ? "./-" : path);
        if (matches.empty() && !mayBeMissing) {
            workplace.console.Report(pattern + ": no match");
            hasFailed = true;
        }
    }
    patterns = std::move(paths);
}

bool PathArguments::IsPath(const std::string& pattern, const SearchedTree& tree) const
{
    return workplace.place == Place::CommandLine && tree.getKind(pattern) != Client::Kind::Missing;
}

SearchedTree MakeLocalTree()
{
    return {.list = ListLocal<fs::directory_iterator>,
            .listAll = ListLocal<fs::recursive_directory_iterator>,
            .getKind = GetLocalKind};
}

} // namespace Cli
