#pragma once

#include <boost/filesystem.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace FileSystem {

/// Gives the entries of a walk the paths that clients see: what Boost.Filesystem's `relative` says
/// of each entry and the listed directory, links resolved in both. That looks at every part of
/// every path; here the file system is asked once for the listed directory and once for each link.
class RelativePaths
{
public:
    /// `root`: the listed directory.
    explicit RelativePaths(const boost::filesystem::path& root);

    /// The path of the next entry of a walk that shows each directory before its contents; `entry`
    /// is the path by which the walk found it. `mayBeLink`: false only after the file system has
    /// said so. `depth`: how many directories are between it and the listed one.
    [[nodiscard]] std::string Get(const boost::filesystem::path& entry, bool isDirectory,
                                  bool mayBeLink, std::size_t depth);

private:
    /// Where a directory really is.
    struct Place
    {
        std::string path;      ///< absolute, without links, a slash at its end; empty: not known
        std::string prefix;    ///< what stands before the names of its entries, if it is inside
        bool isInside = false; ///< it is the listed directory or one below
    };

    [[nodiscard]] Place MakePlace(const boost::filesystem::path& canonical) const;

    const boost::filesystem::path root;
    const boost::filesystem::path canonicalRoot; ///< empty: cannot be told
    const std::string rootPath;                  ///< the same with a slash at its end
    std::vector<Place> places;                   ///< from the listed directory to the current one
};

} // namespace FileSystem
