#pragma once

#include "Core/Behaviour.h"
#include "Core/CoreContext.h"
#include "Core/DateTime.h"
#include "Core/Events.h"
#include "FileInfo.h"
#include "OpenModeEnum.h"
#include "StreamLease.h"

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace FileSystem {

class FileSystemAsyncTask;

/// Gives one `FileSystem` node its methods over the local file system.
///
/// Threads: the host calls the constructor, `OnStart`, `OnStop` and the destructor one at a time,
/// and `OnExecuteMethod` and the reference notifications from any thread, several at once. Slow
/// requests become tasks, run in order by one worker thread, which also raises all events.
///
/// Locks: `taskMutex` guards the queue and the stop flag, `handlesMutex` the handles, the sessions
/// and the users of streams. No thread holds both at once, and none holds one while a task runs, an
/// event is raised, or a stream is used or closed.
class FileSystemBehaviour final : public Core::IExecutableBehaviour,
                                  public Core::IReferenceObserver,
                                  public std::enable_shared_from_this<FileSystemBehaviour>
{
public:
    /// The most bytes one `Read` returns, and the most entries one listing carries.
    static constexpr unsigned int maximumBlock = 61440;

    /// One entry of a listing.
    struct ListItem
    {
        std::string path;
        Core::DateTime dateTime; ///< empty when the time cannot be read
        bool isDirectory = false;
    };

    /// `node` must outlive the behaviour. Starts nothing and registers nothing.
    explicit FileSystemBehaviour(Core::INode& node);
    FileSystemBehaviour(const FileSystemBehaviour&) = delete;
    FileSystemBehaviour& operator=(const FileSystemBehaviour&) = delete;

    /// Forgets the remaining handles without closing their streams.
    /// REQUIRES: the behaviour is stopped, if it was ever started; otherwise the process ends.
    ~FileSystemBehaviour() override;

    /// Fills the event type caches, starts the worker, and observes the sessions folder. An
    /// exception on the way passes to the host, which then stops the behaviour.
    void OnStart() override;

    /// Ends notifications, finishes every queued task, joins the worker and closes every file.
    /// Stopping a behaviour whose worker never ran leaves its requests and handles as they are.
    void OnStop() override;

    /// Returns true when the call was taken; false for an unknown method, too few inputs, or a
    /// behaviour that is stopping. An exception of `Core::Value::Get` for an input passes to the
    /// host; then the call has done nothing.
    bool OnExecuteMethod(const std::shared_ptr<Core::INode>& node, const std::string& methodName,
                         const std::vector<Core::Value>& inputs,
                         std::vector<Core::Value>& outputs) override;

    void OnReferenceAdded(const Core::ReferenceData& reference) override;

    /// Closes and forgets every file of the session that the removed reference pointed to.
    void OnReferenceRemoved(const Core::ReferenceData& reference) override;

    /// @name Handles
    /// Any thread.
    /// @{

    /// Returns a number that is neither 0 nor a handle at this moment, and does not reserve it.
    unsigned int GetFreshHandle();

    /// Binds a handle to a path and to the session of the calling thread. Throws std::logic_error
    /// for handle 0, without a session, or when the session holds the handle already.
    void RegisterFileHandle(unsigned int handle, const std::string& path);

    /// Returns a copy of the record; an empty record for an unknown handle.
    [[nodiscard]] FileInfo GetFileInfo(unsigned int handle);

    /// Returns the handle's stream, which stays open while the lease lives.
    [[nodiscard]] StreamLease UseStream(unsigned int handle);

    /// Forgets the handle, waits until its stream has no users, and closes it. False for an unknown
    /// handle and when closing failed; true when the handle had no stream.
    bool UnregisterAndCloseFile(unsigned int handle);
    /// @}

    /// @name Files
    /// Any thread.
    /// @{

    /// Opens a file and stores the stream under its handle. Returns false and leaves nothing open
    /// for an empty path, a handle that is not registered or was registered with another path, or a
    /// file that cannot be opened. Does not touch the file when the handle is not registered.
    bool OpenFile(unsigned int handle, const std::string& path, OpenModeEnum mode);

    /// Reads up to `length` bytes (at most `maximumBlock`) from the stream's position; fewer, or
    /// none, at the end of the file and on errors. Throws std::logic_error for a null stream.
    static std::vector<unsigned char> Read(FILE* fileHandle, unsigned int length);

    /// Writes all of `data` in one call; false when the system took fewer bytes.
    /// REQUIRES: the stream is not null.
    static bool Write(FILE* fileHandle, const std::vector<unsigned char>& data);

    /// Returns the position in bytes from the start of the file, or -1.
    [[nodiscard]] std::int64_t GetPosition(unsigned int handle);
    bool SetPosition(unsigned int handle, std::uint64_t position);

    /// Returns the time of the last modification in seconds since 1970-01-01 UTC, or -1.
    [[nodiscard]] static std::int64_t GetDateTime(const std::string& path);
    static bool SetDateTime(const std::string& path, std::int64_t time);

    /// Makes a file executable (flag 0x04), or readable and not writable (flag 0x02), for everyone;
    /// ignores other flags. Logs a failure.
    static bool SetFilePermissions(const std::string& path, unsigned char permissions);
    /// @}

    /// @name Directories
    /// Worker thread of a started behaviour, since each raises its result event.
    /// @{
    void Exists(const std::string& path);
    void CreateDirectory(const std::string& path);
    void Delete(const std::vector<std::string>& paths);

    /// Throws boost::filesystem::filesystem_error and raises no event when a directory cannot be
    /// read.
    void List(const std::string& rootDirectory, bool recursive);

    /// Appends the entries below a directory, each directory before its contents; false if the
    /// directory does not exist. Throws like the other form. Raises no event; any thread.
    static bool List(const std::string& rootDirectory, std::vector<ListItem>& items,
                     bool recursive);
    /// @}

    /// Raises an `AckEvent`. Worker thread.
    void DispatchAckEvent(unsigned int handle, unsigned char result);

    /// Queues a task, which runs after all tasks queued before it. Any thread.
    void EnqueueAsyncTask(const std::shared_ptr<FileSystemAsyncTask>& task);

private:
    friend class StreamLease;
    friend struct BehaviourProbe; // tests look inside

    using Values = std::vector<Core::Value>;
    struct Method;
    static const Method methods[];

    // One handler per method of the table `methods`.
    bool Open(const Values& inputs, Values& outputs);
    bool Close(const Values& inputs);
    bool UploadFile(const Values& inputs, Values& outputs);
    bool OpenWrite(const Values& inputs, Values& outputs);
    bool Write(const Values& inputs);
    bool WriteClose(const Values& inputs);
    bool CreateDirectory(const Values& inputs);
    bool Delete(const Values& inputs);
    bool List(const Values& inputs);
    bool Exists(const Values& inputs);
    bool Read(const Values& inputs, Values& outputs);
    static bool GetDateTime(const Values& inputs, Values& outputs);
    static bool SetDateTime(const Values& inputs);
    bool GetPosition(const Values& inputs, Values& outputs);
    bool SetPosition(const Values& inputs);

    void InitializeEventTypeCaches();
    void ClearEventTypeCaches();
    [[nodiscard]] std::shared_ptr<Core::IObject> GetNodeObject() const;

    void StartWorkerThread();
    void StopWorkerThread();
    [[nodiscard]] bool IsStopRequested();
    void RunTasks();
    bool TakeTask(std::shared_ptr<FileSystemAsyncTask>& task);
    static void RunTask(FileSystemAsyncTask& task);

    [[nodiscard]] Core::NodeId GetCurrentSessionId() const;
    unsigned int MakeRegisteredHandle(const std::string& path);
    unsigned int DrawFreshHandle();
    void InsertHandle(unsigned int handle, const Core::NodeId& session, const std::string& path);
    [[nodiscard]] bool IsRegistered(unsigned int handle);
    bool StoreStream(unsigned int handle, const std::string& path, FILE* file);
    [[nodiscard]] std::shared_ptr<StreamUsers> TakeStreamUsers(unsigned int handle);
    [[nodiscard]] FILE* DetachStream(unsigned int handle, const CloseReport& report);
    void EndStreamUse(StreamUsers& users);
    void SetRegistrationOpen(bool open);
    void CloseAllFiles();

    Core::INode* node;                                    // constant
    std::shared_ptr<Core::SessionHandler> currentSession; // start and stop only
    Core::EventRegistrationHandler sessionsRegistration;  // start and stop only

    std::mutex handlesMutex;
    std::unordered_map<unsigned int, FileInfo> handlesMap; // guarded by handlesMutex
    std::unordered_map<Core::NodeId, std::set<unsigned int>, Core::HashNodeId>
        sessionsMap; // guarded by handlesMutex; no set in it is empty

    std::random_device randomDevice{"default"};
    std::mt19937 randomEngine{randomDevice()}; // guarded by handlesMutex; after randomDevice
    std::uniform_int_distribution<unsigned int> handleDistribution{1, 0xFFFFFFFFU};

    std::thread workerThread;                                   // start and stop only
    std::deque<std::shared_ptr<FileSystemAsyncTask>> taskQueue; // guarded by taskMutex
    std::mutex taskMutex;
    std::condition_variable taskCondition; // with taskMutex: task queued or stop requested
    bool stopRequested = false;            // guarded by taskMutex
    unsigned int affinityId;               // constant

    // Event type caches: filled before the worker starts, cleared after it was joined.
    std::shared_ptr<Core::IObjectType> ackEventType;
    unsigned int ackEventTypeIndex = 0;
    unsigned int ackFileHandleIndex = 0;
    unsigned int ackResultIndex = 0;
    std::shared_ptr<Core::IObjectType> existsResultEventType;
    unsigned int existsEventTypeIndex = 0;
    unsigned int existsExistIndex = 0;
    std::shared_ptr<Core::IObjectType> deleteResultEventType;
    unsigned int deleteEventTypeIndex = 0;
    std::shared_ptr<Core::IObjectType> listResultEventType;
    unsigned int listEventTypeIndex = 0;
    unsigned int listContentIndex = 0;
    unsigned int listLimitExceededIndex = 0;
    std::shared_ptr<Core::IObjectType> createDirectoryResultEventType;
    unsigned int createDirectoryEventTypeIndex = 0;

    // The users of each open stream, by handle. Guarded by handlesMutex.
    std::unordered_map<unsigned int, std::shared_ptr<StreamUsers>> streamUsers;
    std::condition_variable streamReleased; // with handlesMutex: a stream has lost its last user
    // False from the end of a stop to the end of the next start, so that a call that began before
    // the stop leaves no handle behind. Guarded by handlesMutex.
    bool registrationOpen = true;
    // True from the worker's end to the next start. Tasks that come meanwhile are set aside: they
    // never run and are released with the behaviour. Both guarded by taskMutex.
    bool workerGone = false;
    std::vector<std::shared_ptr<FileSystemAsyncTask>> tasksSetAside;
};

} // namespace FileSystem
