#pragma once

#include "Core/Folder.h"
#include "Descriptor.h"
#include "Keys.h"

#include <cstddef>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace FileObjects {

/// The bits of a mode that clients see and set.
inline constexpr mode_t permissionBits = 0777;

/// Opens files below the host's folders, and nothing else: the kernel refuses every path and link
/// that leads out of its folder. A folder is looked up at each use, so it may come later, or be
/// mounted anew. Any thread. All operations that fail throw Core::StatusException.
class Folders
{
public:
    explicit Folders(std::vector<Core::Folder> folders);

    [[nodiscard]] std::size_t GetSize() const noexcept { return folders.size(); }
    [[nodiscard]] std::vector<std::string> GetNames() const;
    [[nodiscard]] const std::string& GetPath(std::size_t folder) const;

    /// True for a place in a folder that clients may not change. Of folders that lie inside each
    /// other, the innermost one decides, whichever way leads there.
    [[nodiscard]] bool IsReadOnly(const Place& place) const;
    /// Throws Bad_NotWritable for such a place.
    void RequireWritable(const Place& place) const;
    /// Throws Bad_NotWritable for an entry of such a place, wherever a link of its name leads.
    void RequireWritableAround(const Place& place) const;
    /// Throws Bad_NotWritable for an entry of a folder if one that clients may not change lies
    /// below it. A link has nothing below it.
    void RequireWritableBelow(const Place& place) const;

    /// Returns the place of an absolute path, in the folder with the longest path: one may lie
    /// inside another. Slashes are single, and there is none at the end. Returns nothing for a path
    /// outside.
    [[nodiscard]] std::optional<Place> Find(const std::string& path) const;

    /// Returns a text for messages: the folder's name and the path.
    [[nodiscard]] std::string Show(const Place& place) const;

    /// Opens a file or directory, whatever it is, for looking at it and for the ...at calls.
    [[nodiscard]] Descriptor OpenPath(const Place& place) const;
    /// The same, of a kind: throws Bad_NotFound for everything else.
    [[nodiscard]] Descriptor OpenPath(NodeKind kind, const Place& place) const;
    [[nodiscard]] Descriptor OpenDirectoryPath(const Place& place) const;
    /// Opens a directory for reading its entries.
    [[nodiscard]] Descriptor OpenDirectory(const Place& place) const;

    /// Opens a regular file. Throws Bad_NotFound for everything else, and opens it not even for a
    /// moment, unless it replaces a file just now; then it does not wait for it.
    [[nodiscard]] Descriptor OpenFile(const Place& place, int flags) const;

    /// Returns the state of a file or directory. Throws Bad_NotFound for special files.
    [[nodiscard]] struct stat GetState(const Place& place) const;
    /// The same, of a kind: throws Bad_NotFound for the other one.
    [[nodiscard]] struct stat GetState(NodeKind kind, const Place& place) const;
    [[nodiscard]] bool Exists(NodeKind kind, const Place& place) const noexcept;

private:
    [[nodiscard]] std::optional<std::size_t> FindFolder(const std::string& path) const;
    [[nodiscard]] std::string FindRealPath(const Place& place) const;
    [[nodiscard]] int TryOpen(const Place& place, int flags) const noexcept;
    [[nodiscard]] Descriptor Open(const Place& place, int flags) const;

    const std::vector<Core::Folder> folders;
    const bool areNested;
};

/// Returns why no folder can be opened, though it is there: 0 if the kernel offers what that needs,
/// or an errno, as behind a filter of system calls.
[[nodiscard]] int CheckOpening() noexcept;

/// Returns the state of an open file. Throws Core::StatusException.
[[nodiscard]] struct stat GetState(const Descriptor& file, const std::string& subject);

/// Opens a directory's entry without following a link; -1 and errno if that fails.
[[nodiscard]] Descriptor OpenEntry(const Descriptor& directory, const std::string& name, int flags,
                                   mode_t mode = 0);

} // namespace FileObjects
