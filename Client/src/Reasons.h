#pragma once

#include "Client/FileObjects.h"
#include "Client/Transfer.h"

#include <Support/Mutex.h>

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Client {

class PrivateNode;

/// Something that failed on a remote path.
struct Attempt
{
    std::string path;
    Step step = Step::Open;
    bool isWriting = false;
    bool isInPlace = true;    ///< for writing: into the file itself, not beside it
    std::uint64_t needed = 0; ///< bytes, for writing
};

/// Facts that may be the cause.
struct Circumstances
{
    EntryState entry;
    EntryState parent;
    bool knowsAccess = false;   ///< the states say who may read and write
    std::optional<Space> space; ///< of the parent
};

/// A cause in words.
struct Cause
{
    std::string text;
    bool isOfDirectory = false;         ///< everything in the same directory fails likewise
    std::optional<Space> fullDisk = {}; ///< everything fails likewise that is written to this one
};

/// Returns none when the circumstances do not say why.
[[nodiscard]] std::optional<Cause> FindCause(const Attempt& attempt,
                                             const Circumstances& circumstances);

/// Returns for each attempt its cause, if the server tells: with a few questions for all. Throws
/// what FileSystem throws.
[[nodiscard]] std::vector<std::optional<Cause>> AskCauses(const PrivateNode& node,
                                                          const Cancellation* cancellation,
                                                          std::span<const Attempt> attempts);

/// Likewise, in words: the given ones where the server does not tell.
[[nodiscard]] std::string AskCause(const PrivateNode& node, const Cancellation* cancellation,
                                   const Attempt& attempt, const std::string& otherwise);

/// The causes of the failures of one transfer. Any thread.
class Reasons
{
public:
    /// Both must outlive it.
    Reasons(const PrivateNode& node, const TransferOptions& options) noexcept
        : node(node)
        , options(options)
    {}

    /// A file could not be written. Asks the server, though not at each failure, if others will
    /// fail as well.
    void Look(const Attempt& attempt) noexcept EXCLUDES(mutex);
    /// Nothing can be written in the directory.
    void AddObstacle(const std::string& directory, const std::string& cause) EXCLUDES(mutex);
    /// Returns why a file at the path cannot be written, as far as that is known. Asks once for
    /// each directory when a disk is full. Throws what FileSystem throws.
    [[nodiscard]] std::optional<std::string> FindObstacle(const std::string& path) EXCLUDES(mutex);
    /// Puts causes in words in place of those that say only that the server did not do it. Asks
    /// for some of the failures, many at a time.
    void Explain(std::vector<Failure>& failures, bool isWriting) noexcept EXCLUDES(mutex);

private:
    struct Place
    {
        std::uint64_t failures = 0;
        std::optional<std::string> obstacle;
        bool hasRoom = false; ///< it is not on the full disk
    };
    /// Disks are told apart by their sizes: there are hardly two of the same number of bytes.
    struct FullDisk
    {
        std::uint64_t total = 0;
        std::string cause;
    };

    [[nodiscard]] bool IsTimeToAsk(const std::string& directory) EXCLUDES(mutex);
    void ExplainSome(std::vector<Failure*>& failures, bool isWriting) const;

    const PrivateNode& node;
    const TransferOptions& options;
    mutable Support::Mutex mutex;
    std::map<std::string, Place> places GUARDED_BY(mutex); // by directory
    std::optional<FullDisk> fullDisk GUARDED_BY(mutex);
};

} // namespace Client
