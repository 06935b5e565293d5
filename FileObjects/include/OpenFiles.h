#pragma once

#include "Core/NodeId.h"
#include "Descriptor.h"
#include "Keys.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <sys/types.h>
#include <unordered_map>
#include <vector>

namespace FileObjects {

/// The identity of a file on its machine, whatever its names are.
struct FileIdentity
{
    dev_t device = 0;
    ino_t number = 0;

    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

struct HashFileIdentity
{
    std::size_t operator()(const FileIdentity& identity) const noexcept
    {
        return std::hash<std::uint64_t>()(identity.number * 31 + identity.device);
    }
};

/// A file that a session has opened. Reads and writes of one handle run one after another.
struct OpenFile
{
    // Constant once the file has a handle.
    unsigned int handle = 0;
    Core::NodeId session;
    Key node; ///< the object through which it was opened
    FileIdentity identity;
    std::string subject; ///< the name for messages
    bool isReadable = false;
    bool isWritable = false;
    /// Lives as long as the file is open: the temporary file, for example.
    std::shared_ptr<void> companion;

    std::mutex mutex;
    Descriptor descriptor;                         // guarded by mutex
    std::uint64_t position = 0;                    // guarded by mutex
    std::chrono::steady_clock::time_point lastUse; // guarded by mutex
};

/// The handles of all sessions, and the locks that they stand for: one writer or any number of
/// readers for each file. Any thread; waits for no file. Throws Core::StatusException.
class OpenFiles
{
public:
    using FilePointer = std::shared_ptr<OpenFile>;

    static constexpr std::size_t maximumOfSession = 100;

    /// Gives a file its handle, a random number, never 0. Throws Bad_NotReadable or Bad_NotWritable
    /// when others have it open, Bad_ResourceUnavailable when the session has too many files open,
    /// and Bad_Shutdown between `Close` and `Open`.
    [[nodiscard]] unsigned int Add(FilePointer file);

    /// Return the file of a handle that this session has opened through this object; throw
    /// Bad_InvalidArgument for every other. `Take` ends the handle.
    [[nodiscard]] FilePointer Find(unsigned int handle, const Core::NodeId& session,
                                   const Key& node);
    [[nodiscard]] FilePointer Take(unsigned int handle, const Core::NodeId& session,
                                   const Key& node);

    /// Returns the temporary file of a handle of this session; throws Bad_InvalidArgument.
    [[nodiscard]] FilePointer FindTemporary(unsigned int handle, const Core::NodeId& session);
    /// Returns any file that was opened through an object; null if there is none.
    [[nodiscard]] FilePointer FindNode(const Key& node);

    /// Throws unless the session may open one more file.
    void RequireRoom(const Core::NodeId& session);
    /// Throws Bad_InvalidState for a file that is open; with `onlyWriters`, for writing.
    void RequireClosed(const FileIdentity& identity, bool onlyWriters, const std::string& subject);
    /// Throws Bad_NotReadable for a file that another session has open for writing.
    void RequireReadable(const FileIdentity& identity, const Core::NodeId& session,
                         const std::string& subject);
    /// Throws Bad_InvalidState if a file below a directory is open; with `onlyWriters`, for
    /// writing.
    void RequireClosedBelow(const Place& directory, bool onlyWriters, const std::string& subject);

    [[nodiscard]] std::size_t Count(const FileIdentity& identity);

    /// Return the files whose handles they end, for the caller to let go of.
    [[nodiscard]] std::vector<FilePointer> EndSession(const Core::NodeId& session);
    /// Ends the handles of temporary files that nobody has used since a time.
    [[nodiscard]] std::vector<FilePointer> EndUnused(std::chrono::steady_clock::time_point since);
    /// Ends all handles and refuses new ones.
    [[nodiscard]] std::vector<FilePointer> Close();
    void Open();

private:
    using Files = std::unordered_map<unsigned int, FilePointer>;

    struct Users
    {
        std::size_t readers = 0;
        std::size_t writers = 0;
    };

    [[nodiscard]] Files::iterator Require(unsigned int handle, const Core::NodeId& session,
                                          const Key& node);
    void RequireRoomLocked(const Core::NodeId& session) const;
    void Release(const OpenFile& file);
    template <typename Predicate>
    [[nodiscard]] std::vector<FilePointer> End(Predicate&& predicate);

    std::mutex mutex;
    bool isClosed = false;                                                    // guarded by mutex
    Files files;                                                              // guarded by mutex
    std::unordered_map<FileIdentity, Users, HashFileIdentity> users;          // guarded by mutex
    std::unordered_map<Core::NodeId, std::size_t, Core::HashNodeId> sessions; // guarded by mutex
    std::random_device random;                                                // guarded by mutex
};

} // namespace FileObjects
