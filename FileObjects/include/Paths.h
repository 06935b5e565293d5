#pragma once

#include "Caller.h"
#include "Checksums.h"
#include "Core/DateTime.h"
#include "Descriptor.h"
#include "Directories.h"
#include "Folders.h"
#include "Keys.h"
#include "OpenFiles.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace FileObjects {

/// The states of many paths: the same number of elements in each.
struct States
{
    static constexpr unsigned char missing = 0;
    static constexpr unsigned char file = 1;
    static constexpr unsigned char directory = 2;
    static constexpr unsigned char special = 3;

    /// Bits of `access`.
    static constexpr unsigned char readable = 1;
    static constexpr unsigned char writable = 2;
    static constexpr unsigned char inReadOnlyFolder = 4;

    std::vector<unsigned char> kinds;
    std::vector<unsigned long> sizes;
    std::vector<Core::DateTime> times;
    std::vector<unsigned int> permissions;
    std::vector<unsigned char> access;
    std::vector<unsigned int> statuses; ///< 0 is good
    std::vector<std::string> reasons;
};

/// The results of many operations: the same number of elements in each.
struct Results
{
    std::vector<unsigned int> statuses; ///< 0 is good
    std::vector<std::string> reasons;
};

/// The methods of the file system that take paths: absolute ones of the host's machine, which begin
/// with the path of a folder, or paths in the first folder. Any thread. All throw
/// Core::StatusException; those with many results throw it only for the call as a whole.
///
/// A reason begins with a name only if it is about something else than the path, or the source.
class Paths
{
public:
    using Texts = std::vector<std::string>;

    /// The most paths of a call.
    static constexpr std::size_t maximumCount = 1000;

    /// All outlive this object.
    Paths(const Folders& folders, OpenFiles& openFiles, Directories& directories);

    [[nodiscard]] States GetStates(const Texts& paths, const Caller& caller) const;
    /// See Directories::List. Where `/` is above the folders, its entries are the folders, named
    /// by their whole paths.
    [[nodiscard]] Listing List(const std::string& path, std::uint64_t start, std::size_t maximum,
                               const Caller& caller) const;
    /// Renames one after the other. `replaces`: files in the place of files; their contents are on
    /// the disk before.
    [[nodiscard]] Results Move(const Texts& sources, const Texts& targets, bool replaces,
                               const Caller& caller);
    void Copy(const std::string& source, const std::string& target, bool replaces,
              const Caller& caller);
    [[nodiscard]] Space GetSpace(const std::string& path) const;
    /// Returns the checksum of a part of a file, or that of all that is below a directory.
    [[nodiscard]] Checksum GetChecksum(const std::string& path, std::uint64_t start,
                                       std::uint64_t length, const Caller& caller) const;
    [[nodiscard]] Results SetPermissions(const Texts& paths,
                                         const std::vector<unsigned int>& permissions,
                                         const Caller& caller) const;

private:
    [[nodiscard]] Place Resolve(const std::string& path) const;
    [[nodiscard]] Key Require(const Place& place) const;
    [[nodiscard]] Listing ListFolders(const Caller& caller) const;
    [[nodiscard]] std::vector<bool> SyncTogether(const Texts& sources, const Texts& targets,
                                                 const Placing& placing,
                                                 const Caller& caller) const;
    void AddState(const std::string& path, States& states) const;
    void Put(const std::string& source, const std::string& target, const Placing& placing,
             const Caller& caller);
    template <typename Work>
    auto At(const std::string& path, Work&& work) const;
    template <typename Work>
    auto Between(const std::string& source, const std::string& target, const Placing& placing,
                 Work&& work) const;

    const Folders& folders;
    OpenFiles& openFiles;
    Directories& directories;
};

} // namespace FileObjects
