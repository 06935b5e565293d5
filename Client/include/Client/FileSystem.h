#pragma once

#include "Client/Connection.h"
#include "Client/Transfer.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Client {

class PrivateNode;

/// Modification times are whole seconds in UTC.
using FileTime = std::chrono::sys_seconds;

enum class Kind
{
    Missing,
    File, ///< or anything else that is no directory
    Directory,
};

struct ListEntry
{
    std::string path;             ///< any bytes; relative to the listed directory. Not checked: see
                                  ///< IsSafeRelativePath.
    std::optional<FileTime> time; ///< none when the server could not tell
    bool isDirectory = false;
};

struct Listing
{
    /// A directory comes before what is in it; within one, the order is the server's.
    std::vector<ListEntry> entries;
    /// Directories that could not be read, and those with more entries than the server lists
    /// (61440), whose listing has a gap.
    std::vector<Failure> failures;
};

/// Some of the entries of a tree that is on both sides. A directory comes before what is in it, and
/// stands for itself alone.
struct TreePart
{
    std::string local;              ///< where the paths start
    std::string remote;             ///< likewise
    std::vector<ListEntry> entries; ///< paths that are not safe are failures
};

/// The permissions that a server can be told, in any combination.
struct Permissions
{
    bool readOnly = false;   ///< everyone may read, nobody may write
    bool executable = false; ///< everyone may execute
};

/// A file system of one's own on the server: a node that only this session can use, so results are
/// never somebody else's. The node goes with the connection; a connection has few (4 by default).
///
/// Paths are any bytes without a zero, '/' between names; a relative one starts at the server's
/// working directory. Every byte survives, valid UTF-8 or not.
///
/// Threads: every operation may be called from any thread, several at once; each blocks until it
/// is done. All share the node's one worker on the server, which does one thing at a time.
/// Cancellation: an operation that takes a `Cancellation` ends soon after it is set, having closed
/// what it had open; null: cannot be cancelled.
/// Errors: operations throw ConnectionLostException, CallRefusedException and CancelledException;
/// others as said. A lost connection is made again and what was asked is asked again, where that
/// cannot do harm.
class FileSystem
{
public:
    /// Makes the node. `connection` must outlive it. Throws RefusedException with Refusal::Limit
    /// when the session has as many as the server allows, CallRefusedException when the server
    /// has no such thing, ConnectionLostException.
    explicit FileSystem(Connection& connection);
    FileSystem(const FileSystem&) = delete;
    FileSystem& operator=(const FileSystem&) = delete;
    /// REQUIRES: no operation is running.
    ~FileSystem();

    /// Returns the kind of the entry at the path; links are followed. Missing too when its state
    /// cannot be read.
    [[nodiscard]] Kind GetKind(const std::string& path, const Cancellation* cancellation = nullptr);

    [[nodiscard]] bool Exists(const std::string& path, const Cancellation* cancellation = nullptr);

    /// Returns the entries of a directory: regular files and directories. Where one event cannot
    /// carry a recursive listing, or a directory below cannot be read, it walks directory by
    /// directory. Links to directories are followed as the server does; a directory that holds
    /// itself ends where paths get too long. Throws OperationFailedException when the directory
    /// itself is missing, no directory, or cannot be read.
    [[nodiscard]] Listing List(const std::string& directory, bool isRecursive,
                               const Cancellation* cancellation = nullptr);

    /// Makes a directory and those above it that are missing; one that is there is as good. Throws
    /// OperationFailedException when there is no directory afterwards.
    void CreateDirectory(const std::string& path, const Cancellation* cancellation = nullptr);

    /// Deletes files, and directories with all that is in them. The paths that are there afterwards
    /// are the failures, and so are those that were missing before, unless `mayBeMissing`: these
    /// are appended to `missing` then, if it is there.
    [[nodiscard]] std::vector<Failure> Delete(const std::vector<std::string>& paths,
                                              bool mayBeMissing = false,
                                              const Cancellation* cancellation = nullptr,
                                              std::vector<std::string>* missing = nullptr);

    /// Returns none when there is nothing at the path or its time cannot be read.
    [[nodiscard]] std::optional<FileTime> GetTime(const std::string& path,
                                                  const Cancellation* cancellation = nullptr);

    /// Throws OperationFailedException when the time does not read back as set.
    void SetTime(const std::string& path, FileTime time,
                 const Cancellation* cancellation = nullptr);

    /// The file has to be writable: the server sets permissions behind a write alone, so this opens
    /// the file for appending and appends nothing; its time stays. Throws OperationFailedException.
    void SetPermissions(const std::string& path, Permissions permissions,
                        const Cancellation* cancellation = nullptr);

    /// Returns the size of a file in bytes, found by reading at positions, which takes a few round
    /// trips and never changes the file. Throws OperationFailedException when it cannot be opened.
    [[nodiscard]] std::uint64_t GetSize(const std::string& path,
                                        const Cancellation* cancellation = nullptr);

    /// Returns the sizes of many files, many at a time. None where a file cannot be opened.
    [[nodiscard]] std::vector<std::optional<std::uint64_t>>
    GetSizes(const std::vector<std::string>& paths, const Cancellation* cancellation = nullptr);

    /// Sends local files and trees, see Transfer.h. Does not throw for what fails of a file, nor
    /// when cancelled or when the connection is lost: the result says so.
    [[nodiscard]] TransferResult Upload(const std::vector<TransferItem>& items,
                                        const TransferOptions& options = {});

    /// Fetches remote files and trees, see Transfer.h; otherwise as `Upload`.
    [[nodiscard]] TransferResult Download(const std::vector<TransferItem>& items,
                                          const TransferOptions& options = {});

    /// Sends some entries of a local tree; otherwise as `Upload`.
    [[nodiscard]] TransferResult UploadPart(const TreePart& part,
                                            const TransferOptions& options = {});

    /// Fetches some entries of a remote tree; otherwise as `Download`. No links of the local tree
    /// are followed.
    [[nodiscard]] TransferResult DownloadPart(const TreePart& part,
                                              const TransferOptions& options = {});

    /// Fills the buffer as far as it can and returns how many bytes; 0 is the end. Called on the
    /// calling thread. What it throws ends the upload and leaves it.
    using ByteSource = std::function<std::size_t(std::span<unsigned char>)>;
    /// Writes a file from a source of unknown length. The result has one file.
    [[nodiscard]] TransferResult UploadFrom(const ByteSource& source, const std::string& remote,
                                            const TransferOptions& options = {});

    /// Takes the bytes of a file in their order. Called on the calling thread. What it throws ends
    /// the download and leaves it.
    using ByteSink = std::function<void(std::span<const unsigned char>)>;
    /// Reads a file into a sink: nothing is given twice. The result has one file.
    [[nodiscard]] TransferResult DownloadTo(const std::string& remote, const ByteSink& sink,
                                            const TransferOptions& options = {});

private:
    std::unique_ptr<PrivateNode> node;
};

/// Returns true for a relative path that names something below where it starts whatever is there:
/// not empty, not absolute, without a zero byte, and without "." and ".." and empty names in it.
[[nodiscard]] bool IsSafeRelativePath(const std::string& path);

} // namespace Client
