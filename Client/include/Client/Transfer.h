#pragma once

#include "Client/Cancellation.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Client {

enum class Side
{
    Local,
    Remote,
};

/// The step of an operation on one file or directory.
enum class Step
{
    List,
    CreateDirectory,
    Open,
    Read,
    Write,
    Close,
    SetTime,
    SetPermissions,
    Rename,
    Delete,
    Resume,
    Verify,
};

/// "listing", "opening" and so on.
[[nodiscard]] const char* GetName(Step step) noexcept;

/// "list", "open" and so on, for texts: "cannot open".
[[nodiscard]] const char* GetVerb(Step step) noexcept;

enum class FailureKind
{
    LocalSystem,    ///< `systemError` says why
    RemoteResult,   ///< the server acknowledged with a failure: `remoteResult`
    RemoteReason,   ///< the server's file system did not do it: `cause` says why
    RemoteUnknown,  ///< it did not do it, and the cause is not known or was found out afterwards
    Refused,        ///< the server refused a call
    ConnectionLost, ///< and could not be made again in time
    Unsafe,         ///< a path of a listing leads out of the target; nothing was written
    Different, ///< the contents differ (verification, or resuming what is no part of the source)
    Skipped,   ///< neither a regular file nor a directory, a directory without `isRecursive`, or
               ///< a file whose target is that of an earlier one
};

/// One file or directory that something failed on.
struct Failure
{
    Side side = Side::Remote; ///< whose path it is
    std::string path;         ///< any bytes
    Step step = Step::Open;
    FailureKind kind = FailureKind::RemoteUnknown;
    std::string cause;              ///< in words, without path and step
    int systemError = 0;            ///< errno, for LocalSystem
    std::uint32_t remoteResult = 0; ///< 1 to 5, for RemoteResult; the OPC UA status, for Refused
};

/// Returns one line: "logs/a (remote): cannot open: Permission denied".
[[nodiscard]] std::string Describe(const Failure& failure);

/// One file or tree to move. What is at the source becomes what is at the target: the target is
/// the new name, not the directory to put it in.
struct TransferItem
{
    std::string local;
    std::string remote;
};

/// How far a transfer is. Bytes are those of file contents.
struct Progress
{
    std::string path;                      ///< of the file that went on; the remote one
    std::uint64_t fileBytes = 0;           ///< done of it, with what an earlier transfer did
    std::optional<std::uint64_t> fileSize; ///< where it is known
    bool isVerifying = false;              ///< its content is being compared
    bool isFileFinished = false;           ///< done as a whole, or failed

    std::uint64_t files = 0;               ///< finished, failed ones too
    std::uint64_t allFiles = 0;            ///< found so far
    std::uint64_t bytes = 0;               ///< done of all files, with what earlier transfers did
    std::optional<std::uint64_t> allBytes; ///< where it is known, once all was found
};

/// Called on threads of the transfer, never two at once. Must return soon; must not throw and not
/// call anything of the library.
using ProgressCallback = std::function<void(const Progress&)>;

struct TransferOptions
{
    /// Directories with all that is in them; otherwise a directory is Skipped.
    bool isRecursive = false;
    /// How many files of blocks are on their way at the same time, 1 to 64. Small files are many
    /// at a time in any case.
    std::size_t jobs = 2;
    /// Carries on where an earlier transfer of a large file broke off, if the record of it in
    /// ConnectionOptions::stateFolder proves that what is there is the beginning of the source;
    /// starts over otherwise. A whole target of the same time (uploads: and size) is left as it is,
    /// but for the parts of trees.
    bool resumes = false;
    /// Compares the contents end to end afterwards, what was there before too.
    bool verifies = false;
    /// Uploads only: follows links below a directory that is sent. Otherwise they are left out.
    bool followsLinks = false;
    /// Sets the times of files and directories as they are at the source.
    bool setsTimes = true;
    /// Sets permissions. With file objects, new remote files, all fetched files and new directories
    /// get those of the source, without those that the umask takes (at the server 022; nothing is
    /// taken of the parts of a tree); without them, an upload sets what the server's flags can say,
    /// executable where the owner may execute and read-only where nobody may write, and a download
    /// sets none.
    bool setsPermissions = true;
    /// Uploads only: writes into the target itself, which others see half meanwhile, and which a
    /// link leads to. Otherwise, where the server has file objects, a file is written beside its
    /// target under a name of its own (IsPartName) and takes its place, or that of a link, when it
    /// is whole. Pipes and devices are written in place in any case.
    bool isInPlace = false;
    /// Uploads only: a target in place that cannot be opened is deleted first.
    bool replaces = false;
    /// Moves no more bytes of file contents in a second, on average; 0: as fast as it goes.
    std::uint64_t bytesPerSecond = 0;
    ProgressCallback progress;
    const Cancellation* cancellation = nullptr; ///< null: cannot be cancelled
};

/// A file or directory that a transfer dealt with completely.
struct TransferResult
{
    std::uint64_t files = 0;        ///< whole, time included
    std::uint64_t directories = 0;  ///< made or there
    std::uint64_t skippedFiles = 0; ///< of `files`: whole before (resumes)
    std::uint64_t bytes = 0;        ///< moved by this transfer
    std::uint64_t resumedBytes = 0; ///< not moved, since an earlier transfer had
    std::chrono::nanoseconds duration{0};
    std::vector<Failure> failures;
    /// Things left out, or done in part, which are no failures: links and special files in a local
    /// tree, files and directories whose private mode the server cannot keep, and directories that
    /// were there and are more open than their source.
    std::vector<Failure> notes;
    /// Files that were begun and are not whole: after a cancellation, a lost connection or a
    /// failure. Remote files are those that hold a part of the source, the targets themselves only
    /// if they were written in place. Local ones are the targets, which have not been touched: a
    /// part is kept beside them under the name GetPartName.
    std::vector<std::string> unfinished;
    bool isCancelled = false;
    bool isConnectionLost = false;

    [[nodiscard]] bool IsComplete() const noexcept
    {
        return failures.empty() && !isCancelled && !isConnectionLost;
    }
};

/// The name under which a download keeps what it has until it is whole, unless a file of the same
/// transfer has that name.
[[nodiscard]] std::string GetPartName(const std::string& local);

/// Returns true for a file name of the form that parts have, here and on the server, also those
/// that its file objects write.
[[nodiscard]] bool IsPartName(std::string_view name);

/// Returns a name beside a path, which nobody else uses, for what has to give way to something else
/// for a while. It is one of IsPartName, too: no transfer touches it.
[[nodiscard]] std::string MakeAsideName(const std::string& path);

/// Returns true for a file name of that form.
[[nodiscard]] bool IsAsideName(std::string_view name);

} // namespace Client
