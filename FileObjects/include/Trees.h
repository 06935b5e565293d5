#pragma once

#include "Caller.h"
#include "Descriptor.h"
#include "OpenFiles.h"

#include <cstddef>
#include <string>

// Work on directory trees. It stays below the directories that it is given: no link is followed.
// All operations throw Core::StatusException, also when the caller has gone; `subject` names what
// they work on.
namespace FileObjects {

/// An entry of an open directory.
struct Entry
{
    const Descriptor& directory;
    std::string name;
};

/// The levels of directories that are open at once. Without a bound, a tree that somebody has
/// nested ten thousand deep would take the thread's stack and the host's descriptors.
inline constexpr std::size_t deepestLevel = 128;

/// Throws Bad_NotSupported below that level.
void RequireLevel(std::size_t level, const std::string& subject);

/// True if there is anything with this name, a link that leads nowhere included.
[[nodiscard]] bool EntryExists(const Entry& entry);

/// Deletes a file, link or directory with all below it, however deep; for no caller, to its end.
/// Throws Bad_InvalidState for a directory that another process keeps filling.
void DeleteTree(const Entry& entry, const std::string& subject, const Caller* caller);
/// The same for something unfinished: deletes as much as it can.
void RemoveTree(const Entry& entry) noexcept;

/// Copies all bytes from the beginning to an empty file. Holes stay holes.
void CopyContent(const Descriptor& from, const Descriptor& to, const std::string& subject,
                 const Caller& caller);

/// The use that a copy is made for. Before a `Move` deletes the original, its copy is on the disk.
enum class CopyFor
{
    Copy,
    Move
};

/// Makes a file or directory with the contents, permissions and time of an open one. Leaves out
/// special files; a `Move` fails with Bad_NotSupported instead, and both do where directories are
/// nested too deep. Leaves what it has made when it fails.
void CopyTree(const Descriptor& from, const Entry& to, const std::string& subject, CopyFor use,
              const Caller& caller);

/// Renames an entry, atomically. Unless it `replaces`, a new name that exists is
/// Bad_BrowseNameDuplicated. Returns false if they are on different file systems.
[[nodiscard]] bool Rename(const Entry& from, const Entry& to, bool replaces,
                          const std::string& subject);

/// Returns a name that nobody else uses.
[[nodiscard]] std::string MakeTemporaryName();

} // namespace FileObjects
