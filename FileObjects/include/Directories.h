#pragma once

#include "Caller.h"
#include "Core/DateTime.h"
#include "Files.h"
#include "Folders.h"
#include "NodeIds.h"
#include "OpenFiles.h"
#include "Trees.h"

#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace FileObjects {

/// A page of a listing: the same number of elements in each.
struct Listing
{
    static constexpr unsigned char file = 1;
    static constexpr unsigned char directory = 2;
    static constexpr unsigned char other = 3; ///< a special file, a link that leads nowhere or out,
                                              ///< or what cannot be looked at
    static constexpr unsigned char link = 16; ///< added to one of the others

    std::vector<std::string> names;
    std::vector<unsigned char> kinds;
    std::vector<unsigned long> sizes;
    std::vector<Core::DateTime> times;
    std::vector<unsigned int> permissions;
    std::uint64_t next = 0; ///< the start of the next page; 0 at the end
};

/// The entries of a listing.
enum class Listed
{
    FilesAndDirectories, ///< and links to them, as if they were no links
    Everything           ///< so that an entry that is not listed is not there
};

struct Space
{
    std::uint64_t total = 0;
    std::uint64_t free = 0; ///< for this process: reserves do not count
};

struct CreatedFile
{
    Core::NodeId id;
    unsigned int handle = 0; ///< 0 if it is not open
};

/// The way in which a file or directory gets a new place.
struct Placing
{
    bool isCopied = false; ///< false: moved
    bool replaces = false; ///< a file, in the place of a file
    bool syncs = false;    ///< a file is brought to its disk before it is moved
};

/// The methods of FileDirectoryType (OPC 10000-20, 4.3), and ours. Any thread. All throw
/// Core::StatusException. Directories are nodes of the kinds FileSystem, which holds the folders
/// and cannot be changed, and Directory.
class Directories
{
public:
    /// The most entries of a page.
    static constexpr std::size_t maximumPage = 61440;

    /// All outlive this object.
    Directories(const Folders& folders, const NodeIds& nodeIds, OpenFiles& openFiles, Files& files);

    [[nodiscard]] Core::NodeId CreateDirectory(const Key& directory, const std::string& name);
    [[nodiscard]] CreatedFile CreateFile(const Key& directory, const std::string& name,
                                         bool isOpened, const Caller& caller);
    void Delete(const Key& directory, const Core::NodeId& object, const Caller& caller);
    [[nodiscard]] Core::NodeId MoveOrCopy(const Key& directory, const Core::NodeId& object,
                                          const Core::NodeId& target, bool isCopied,
                                          const std::string& newName, const Caller& caller);

    /// Moves or copies a file or directory. Clients may change both directories.
    void Put(const Key& from, const Place& to, const Placing& placing, const Caller& caller);
    /// Opens a file that is to be moved, for fsync; if it must not be opened, the directory around
    /// it, for syncfs. Nothing is opened for a directory. Throws as `Put` does before it
    /// changes anything.
    [[nodiscard]] Descriptor OpenForSync(const Key& from, const Place& to, const Placing& placing);

    /// Returns the space around a file or directory.
    [[nodiscard]] Space GetSpace(const Key& node) const;

    /// Returns entries from a position on, which is 0 or `next` of an earlier page. `maximum` 0 is
    /// as many as fit.
    [[nodiscard]] Listing List(const Key& directory, std::uint64_t start, std::size_t maximum,
                               Listed listed, const Caller& caller) const;

private:
    void RequireChangeable(const Key& directory) const;
    [[nodiscard]] Key RequireChild(const Key& directory, const Core::NodeId& object) const;
    [[nodiscard]] Key RequireTarget(const Key& from, const Core::NodeId& target,
                                    const std::string& newName) const;
    [[nodiscard]] Descriptor OpenTarget(const Key& from, const Place& to, const Placing& placing);
    void RequireFree(const struct stat& from, const Entry& entry, const Place& to, bool replaces);
    [[nodiscard]] Descriptor OpenForSync(const Place& file) const;
    void Sync(const Place& file) const;
    void Copy(const Key& from, const Entry& to, bool replaces, CopyFor use,
              const Caller& caller) const;
    void Move(const Key& from, const Entry& to, bool replaces, const Caller& caller) const;
    [[nodiscard]] Listing ListFolders() const;

    const Folders& folders;
    const NodeIds& nodeIds;
    OpenFiles& openFiles;
    Files& files;
};

} // namespace FileObjects
