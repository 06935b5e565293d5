#pragma once

#include "Client/Cancellation.h"
#include "Client/Connection.h"
#include "Client/FileSystem.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Client {

/// The state of an entry. Links count as what they lead to.
struct EntryState
{
    Kind kind = Kind::Missing;
    bool isSpecial = false;          ///< a pipe, socket or device: its kind is File
    std::uint64_t size = 0;          ///< bytes; 0 for directories
    FileTime time{};                 ///< of the last change of the content
    std::uint32_t permissions = 0;   ///< the nine bits of a POSIX mode
    bool isReadable = false;         ///< by the host
    bool isWritable = false;         ///< by the host, and clients may change the folder
    bool isInReadOnlyFolder = false; ///< clients may only read the folder
    std::uint32_t status = 0; ///< the OPC UA status where the state could not be read; 0: good
    std::string reason;       ///< the server's own words for it
};

/// An entry of a directory: a regular file, a directory, a link to one of them, or something else.
struct DirectoryEntry
{
    std::string name; ///< any bytes; not checked: see IsSafeRelativePath
    bool isDirectory = false;
    std::uint64_t size = 0; ///< bytes
    FileTime time{};
    std::uint32_t permissions = 0;
    /// Neither file nor directory: a special file, a link that leads nowhere or out of its folder,
    /// or an entry whose state the server cannot read. Its size is 0.
    bool isOther = false;
    bool isLink = false; ///< all else is about what it leads to
};

struct Space
{
    std::uint64_t total = 0; ///< bytes
    std::uint64_t free = 0;  ///< bytes that the host may use
};

/// The result of one of many operations.
struct Result
{
    std::uint32_t status = 0; ///< the OPC UA status; 0: done
    std::string reason;       ///< the server's own words

    [[nodiscard]] bool IsGood() const noexcept { return status == 0; }
};

/// The entries of one of many directories.
struct DirectoryListing
{
    std::vector<DirectoryEntry> entries; ///< in the server's order
    Result result;
};

/// A new name for a file or directory.
struct Renaming
{
    std::string source;
    std::string target;
};

using Sha256 = std::array<unsigned char, 32>;

/// The host's files by path, as its file objects know them: sizes, reasons, renaming, checksums.
/// Not every server has them: see `AreOffered`.
///
/// Paths are those of `FileSystem`. Threads, cancellation and errors are those of `FileSystem`
/// too; an operation on one path throws OperationFailedException with the server's reason, and
/// every one throws CallRefusedException on a server without the objects. After a lost connection
/// what only reads is asked again, and so are permissions; `Move` and `Copy` throw
/// ConnectionLostException. Those two and `GetChecksum` may take as long as they need (up to a
/// day); the connection's other calls wait meanwhile.
class FileObjects
{
public:
    /// The connection must outlive it. Asks nothing.
    explicit FileObjects(Connection& connection) noexcept
        : connection(connection)
    {}

    /// Returns false for a server without them. Asks nothing: known since the connection was made.
    [[nodiscard]] bool AreOffered() const noexcept;

    /// Returns as many states as paths.
    [[nodiscard]] std::vector<EntryState> GetStates(const std::vector<std::string>& paths,
                                                    const Cancellation* cancellation = nullptr);

    /// Returns all entries of a directory in the server's order: what is not among them is not
    /// there. Older servers leave out those that are neither file nor directory.
    [[nodiscard]] std::vector<DirectoryEntry> List(const std::string& directory,
                                                   const Cancellation* cancellation = nullptr);

    /// Returns the listings of many directories, asked for several at a time. As many as
    /// directories; one that cannot be listed has the reason in its result. This is the way to list
    /// a tree: level by level.
    [[nodiscard]] std::vector<DirectoryListing> ListAll(const std::vector<std::string>& directories,
                                                        const Cancellation* cancellation = nullptr);

    /// Renames files and directories, one after the other, each in one step where the file system
    /// can. `replaces`: in place of a file that has the new name. Returns as many results.
    [[nodiscard]] std::vector<Result> Move(const std::vector<Renaming>& renamings, bool replaces,
                                           const Cancellation* cancellation = nullptr);

    /// Copies a file, or a directory with all below it, on the server.
    void Copy(const std::string& source, const std::string& target, bool replaces,
              const Cancellation* cancellation = nullptr);

    [[nodiscard]] Space GetSpace(const std::string& path,
                                 const Cancellation* cancellation = nullptr);

    /// Returns the SHA-256 of a file's bytes from `start` on; `length` 0: all that follow.
    [[nodiscard]] Sha256 GetChecksum(const std::string& path, std::uint64_t start,
                                     std::uint64_t length,
                                     const Cancellation* cancellation = nullptr);

    /// Sets the nine bits of the POSIX modes. Returns as many results as paths.
    [[nodiscard]] std::vector<Result> SetPermissions(const std::vector<std::string>& paths,
                                                     const std::vector<std::uint32_t>& permissions,
                                                     const Cancellation* cancellation = nullptr);

private:
    Connection& connection;
};

} // namespace Client
