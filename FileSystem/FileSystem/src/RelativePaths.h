#pragma once

#include <boost/filesystem.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace FileSystem {

/// Gives the entries of a walk the paths that clients see: the result of Boost.Filesystem's
/// `relative` for each entry and the listed directory, links resolved in both. That function looks
/// at every part of every path; this class asks the file system once for the listed directory and
/// once for each link.
class RelativePaths
{
public:
    /// `root` is the listed directory.
    explicit RelativePaths(const boost::filesystem::path& root);

    /// Returns the path of the next entry of a walk that shows each directory before its contents.
    /// `entry` is the path by which the walk found it; `mayBeLink` is false only when the file
    /// system has said so; `depth` is the number of directories between it and the listed one.
    [[nodiscard]] std::string Get(const boost::filesystem::path& entry, bool isDirectory,
                                  bool mayBeLink, std::size_t depth);

private:
    /// The real place of a directory.
    struct Place
    {
        std::string path;      ///< absolute, without links, ends with a slash; empty: not known
        std::string prefix;    ///< the beginning of its entries' paths, if it is inside
        bool isInside = false; ///< true for the listed directory and those below it
    };

    [[nodiscard]] Place MakePlace(const boost::filesystem::path& canonical) const;

    const boost::filesystem::path root;
    const boost::filesystem::path canonicalRoot; ///< empty: not known
    const std::string rootPath;                  ///< the same with a slash at its end
    std::vector<Place> places;                   ///< from the listed directory to the current one
};

} // namespace FileSystem
