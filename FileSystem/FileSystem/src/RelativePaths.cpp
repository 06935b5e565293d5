#include "RelativePaths.h"

#include <climits>

namespace FileSystem {

namespace fs = boost::filesystem;

namespace {

/// Returns a path as absolute and without links; empty when the file system does not tell.
fs::path FindCanonical(const fs::path& path)
{
    boost::system::error_code error;
    fs::path canonical = fs::canonical(path, error);
    return error ? fs::path() : canonical;
}

/// Returns a path with a slash at its end. Empty for a path that begins with two slashes, which may
/// differ from the one with a single slash.
std::string MakeDirectoryPath(const fs::path& canonical)
{
    std::string path = canonical.string();
    if (path.starts_with("//"))
        return {};
    if (!path.empty() && path.back() != '/')
        path += '/';
    return path;
}

std::string GetName(const fs::path& path)
{
    return path.native().substr(path.native().rfind('/') + 1);
}

} // namespace

RelativePaths::RelativePaths(const fs::path& root)
    : root(root)
    , canonicalRoot(FindCanonical(root))
    , rootPath(MakeDirectoryPath(canonicalRoot))
    , places{MakePlace(canonicalRoot)}
{}

std::string RelativePaths::Get(const fs::path& entry, bool isDirectory, bool mayBeLink,
                               std::size_t depth)
{
    places.resize(depth + 1);
    const Place& parent = places.back();
    const std::string name = GetName(entry);
    // A path that is longer than the system takes has no canonical form.
    const bool isInParent =
        !mayBeLink && !parent.path.empty() && parent.path.size() + name.size() < PATH_MAX;
    if (isInParent && parent.isInside) {
        std::string path = parent.prefix + name;
        if (isDirectory)
            places.push_back({parent.path + name + '/', path + '/', true});
        return path;
    }

    const fs::path canonical = isInParent ? fs::path(parent.path + name) : FindCanonical(entry);
    if (isDirectory)
        places.push_back(MakePlace(canonical));
    if (!canonical.empty() && !canonicalRoot.empty())
        return canonical.lexically_relative(canonicalRoot).string();
    boost::system::error_code error;
    return fs::relative(entry, root, error).string();
}

RelativePaths::Place RelativePaths::MakePlace(const fs::path& canonical) const
{
    Place place{MakeDirectoryPath(canonical), {}, false};
    place.isInside = !rootPath.empty() && place.path.starts_with(rootPath);
    if (place.isInside)
        place.prefix = place.path.substr(rootPath.size());
    return place;
}

} // namespace FileSystem
