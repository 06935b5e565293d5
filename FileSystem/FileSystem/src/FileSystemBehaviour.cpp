#include "FileSystemBehaviour.h"

#include "Core/Exception.h"
#include "Core/Objects.h"
#include "Diagnostics.h"
#include "ModuleIdentifiers.h"
#include "RelativePaths.h"
#include "ResultCode.h"
#include "SecurityEnhancedUtils.h"
#include "StreamTurn.h"
#include "WorkerQueueTask.h"

#include <boost/filesystem.hpp>

#include <algorithm>
#include <exception>
#include <iterator>
#include <sys/stat.h>
#include <utility>

namespace FileSystem {

namespace {

namespace fs = boost::filesystem;

constexpr const char* sourceFile = __FILE__;

constexpr CloseReport stopCloseReport{
    {Core::LogLevel::Warning, LogCode::closeFailed, sourceFile, "OnStop", 62},
    "Cannot close file handle"};
constexpr CloseReport sessionEndCloseReport{
    {Core::LogLevel::Warning, LogCode::closeFailed, sourceFile, "OnReferenceRemoved", 141},
    "Cannot close file handler"};

void CheckCondition(bool holds, const char* condition, std::int32_t line)
{
    FileSystem::CheckCondition(holds, condition, sourceFile, line);
}

/// Closes a stream that nobody is inside any more, with no lock held: closing writes what is
/// buffered and may take its time.
void CloseAndReport(FILE* stream, const CloseReport& report)
{
    if (std::fclose(stream) != 0)
        Log(report);
}

void CloseAndReport(const std::vector<FILE*>& streams, const CloseReport& report)
{
    for (FILE* stream : streams)
        CloseAndReport(stream, report);
}

struct StreamCloser
{
    void operator()(FILE* stream) const noexcept { static_cast<void>(std::fclose(stream)); }
};

std::string MakeModeString(OpenModeEnum mode)
{
    switch (mode) {
    case OpenModeEnum::Read:
        return "rb";
    case OpenModeEnum::Append:
        return "ab";
    case OpenModeEnum::CreateReadWrite:
        return "w+b";
    case OpenModeEnum::ReadWrite:
        return "r+b";
    case OpenModeEnum::ReadAppend:
        return "a+b";
    case OpenModeEnum::CreateWrite:
        break;
    }
    return "wb"; // also for every number that is no mode
}

fs::file_type GetFileType(const fs::path& path) noexcept
{
    boost::system::error_code error;
    const fs::file_type type = fs::status(path, error).type();
    return error && type != fs::file_not_found ? fs::status_error : type;
}

bool PathExists(const fs::path& path) noexcept
{
    const fs::file_type type = GetFileType(path);
    return type != fs::status_error && type != fs::file_not_found;
}

/// What a walk finds out about an entry.
struct EntryStatus
{
    bool isListed = false; ///< it is, or links to, a regular file or a directory
    bool isDirectory = false;
    bool isLink = false;    ///< or it may be one
    std::int64_t time = -1; ///< of the last modification, -1 when it cannot be read
};

EntryStatus ReadTargetStatus(const fs::directory_entry& entry)
{
    boost::system::error_code error;
    const fs::file_type type = entry.status(error).type();
    if (type != fs::directory_file && type != fs::regular_file)
        return {};
    return {true, type == fs::directory_file, true,
            FileSystemBehaviour::GetDateTime(entry.path().string())};
}

/// Most entries are no links: then one look answers all questions.
EntryStatus ReadEntryStatus(const fs::directory_entry& entry)
{
    struct stat status = {};
    if (::lstat(entry.path().c_str(), &status) != 0 || S_ISLNK(status.st_mode))
        return ReadTargetStatus(entry);
    const bool isDirectory = S_ISDIR(status.st_mode);
    return {isDirectory || S_ISREG(status.st_mode), isDirectory, false, status.st_mtime};
}

Core::DateTime MakeEntryTime(std::int64_t time)
{
    return time == -1 ? Core::DateTime() : Core::DateTime::FromUnixEpochTime(time);
}

/// Shows `visit(path, status, depth)` every regular file and directory below an existing directory,
/// each directory before its contents. Links are followed; what is neither, links to nowhere and in
/// circles included, is passed over.
template <typename Visit>
bool Walk(const fs::path& directory, bool recursive, Visit&& visit, std::size_t depth = 0)
{
    if (!PathExists(directory))
        return false;
    for (fs::directory_iterator entry(directory), end; entry != end; ++entry) {
        const EntryStatus status = ReadEntryStatus(*entry);
        if (!status.isListed)
            continue;
        visit(entry->path(), status, depth);
        if (recursive && status.isDirectory)
            Walk(entry->path(), recursive, visit, depth + 1);
    }
    return true;
}

Core::Struct MakeListItem(std::string path, const Core::DateTime& dateTime, bool isDirectory)
{
    std::vector<Core::Value> fields;
    fields.reserve(3);
    fields.emplace_back(std::move(path));
    fields.emplace_back(dateTime);
    fields.emplace_back(isDirectory);
    Core::Struct result(std::move(fields));
    result.SetDataTypeId(DataTypes::ListItem());
    return result;
}

/// The values of an event: empty, but for its type.
std::vector<Core::Value> MakeEventValues(const Core::IObjectType& type, unsigned int eventTypeIndex)
{
    std::vector<Core::Value> values(type.GetEventArguments().GetFieldsSize());
    values.at(eventTypeIndex) = Core::Value(type.GetNodeId());
    return values;
}

/// Looks up fields of one event type.
class FieldFinder
{
public:
    explicit FieldFinder(const Core::IObjectType& type)
        : arguments(type.GetEventArguments())
        , namespaceIndex(type.GetNodeId().GetNamespaceIndex())
    {}

    /// The base field, which is in the host's own namespace.
    [[nodiscard]] unsigned int FindEventType() const
    {
        return arguments.GetFieldIndex(Core::QualifiedName(0, "EventType"));
    }

    /// A field that the type itself adds: in the type's namespace.
    [[nodiscard]] unsigned int Find(const char* name) const
    {
        return arguments.GetFieldIndex(Core::QualifiedName(namespaceIndex, name));
    }

private:
    const Core::EventArguments&
        arguments; // NOLINT(cppcoreguidelines-avoid-const-or-ref-data-members)
    int namespaceIndex;
};

} // namespace

FileSystemBehaviour::FileSystemBehaviour(Core::INode& node)
    : node(&node)
    , affinityId(node.GetCoreContext().AssignAffinityId())
{}

FileSystemBehaviour::~FileSystemBehaviour()
{
    // Said here, since the condition variable, which goes before the thread, would otherwise wait
    // forever for an idle worker.
    if (workerThread.joinable())
        std::terminate();
}

// Start and stop

void FileSystemBehaviour::OnStart()
{
    InitializeEventTypeCaches();
    StartWorkerThread();
    Core::CoreContext& context = node->GetCoreContext();
    currentSession = context.GetSessions().GetCurrentSession();
    const auto sessionsFolder = context.GetNode(Core::Objects::SessionsFolder());
    sessionsRegistration = sessionsFolder->RegisterEventObserver(
        shared_from_this(), Core::EventFilter::references, affinityId, currentSession, 0);
    SetRegistrationOpen(true);
}

void FileSystemBehaviour::OnStop()
{
    const auto guard = node->GetCoreContext().GetDispatcher().TerminateDispatchOnStop(affinityId);
    sessionsRegistration.Reset();
    StopWorkerThread();
    ClearEventTypeCaches();
    currentSession.reset();
    CloseAllFiles();
}

void FileSystemBehaviour::SetRegistrationOpen(bool open)
{
    const std::lock_guard lock(handlesMutex);
    registrationOpen = open;
}

/// Calls that were let in before the stop may still be at work, so the maps are emptied under their
/// lock, and closed to latecomers. A behaviour that never ran refuses no calls, before or after.
void FileSystemBehaviour::CloseAllFiles()
{
    const bool refusesCalls = IsStopRequested();
    std::vector<FILE*> streams;
    {
        const std::lock_guard lock(handlesMutex);
        if (refusesCalls)
            registrationOpen = false;
        streams.reserve(handlesMap.size());
        sessionsMap.clear();
        for (const auto& [handle, info] : handlesMap)
            if (FILE* stream = DetachStream(handle, stopCloseReport))
                streams.push_back(stream);
        handlesMap.clear();
    }
    CloseAndReport(streams, stopCloseReport);
}

void FileSystemBehaviour::InitializeEventTypeCaches()
{
    Core::CoreContext& context = node->GetCoreContext();

    ackEventType = context.GetObjectType(ObjectTypes::AckEvent());
    const FieldFinder ack(*ackEventType);
    ackEventTypeIndex = ack.FindEventType();
    ackFileHandleIndex = ack.Find("FileHandle");
    ackResultIndex = ack.Find("Result");

    existsResultEventType = context.GetObjectType(ObjectTypes::ExistsResultEvent());
    const FieldFinder exists(*existsResultEventType);
    existsEventTypeIndex = exists.FindEventType();
    existsExistIndex = exists.Find("Exist");

    deleteResultEventType = context.GetObjectType(ObjectTypes::DeleteResultEvent());
    deleteEventTypeIndex = FieldFinder(*deleteResultEventType).FindEventType();

    createDirectoryResultEventType =
        context.GetObjectType(ObjectTypes::CreateDirectoryResultEvent());
    createDirectoryEventTypeIndex = FieldFinder(*createDirectoryResultEventType).FindEventType();

    listResultEventType = context.GetObjectType(ObjectTypes::ListResultEvent());
    const FieldFinder list(*listResultEventType);
    listEventTypeIndex = list.FindEventType();
    listContentIndex = list.Find("Content");
    listLimitExceededIndex = list.Find("LimitExceeded");
}

void FileSystemBehaviour::ClearEventTypeCaches()
{
    ackEventType.reset();
    existsResultEventType.reset();
    deleteResultEventType.reset();
    createDirectoryResultEventType.reset();
    listResultEventType.reset();
}

// Method calls

struct FileSystemBehaviour::Method
{
    const char* name;
    bool (*run)(FileSystemBehaviour& behaviour, const Values& inputs, Values& outputs);
};

constinit const FileSystemBehaviour::Method FileSystemBehaviour::methods[] = {
    {"Open",
     [](auto& self, auto& in, auto& out) {
         return self.Open(in, out);
     }},
    {"Close",
     [](auto& self, auto& in, auto&) {
         return self.Close(in);
     }},
    {"UploadFile",
     [](auto& self, auto& in, auto& out) {
         return self.UploadFile(in, out);
     }},
    {"OpenWrite",
     [](auto& self, auto& in, auto& out) {
         return self.OpenWrite(in, out);
     }},
    {"Write",
     [](auto& self, auto& in, auto&) {
         return self.Write(in);
     }},
    {"WriteClose",
     [](auto& self, auto& in, auto&) {
         return self.WriteClose(in);
     }},
    {"CreateDirectory",
     [](auto& self, auto& in, auto&) {
         return self.CreateDirectory(in);
     }},
    {"Delete",
     [](auto& self, auto& in, auto&) {
         return self.Delete(in);
     }},
    {"List",
     [](auto& self, auto& in, auto&) {
         return self.List(in);
     }},
    {"Exists",
     [](auto& self, auto& in, auto&) {
         return self.Exists(in);
     }},
    {"Read",
     [](auto& self, auto& in, auto& out) {
         return self.Read(in, out);
     }},
    {"GetDateTime",
     [](auto&, auto& in, auto& out) {
         return GetDateTime(in, out);
     }},
    {"SetDateTime",
     [](auto&, auto& in, auto&) {
         return SetDateTime(in);
     }},
    {"GetPosition",
     [](auto& self, auto& in, auto& out) {
         return self.GetPosition(in, out);
     }},
    {"SetPosition",
     [](auto& self, auto& in, auto&) {
         return self.SetPosition(in);
     }},
};

bool FileSystemBehaviour::OnExecuteMethod(const std::shared_ptr<Core::INode>& /*node*/,
                                          const std::string& methodName, const Values& inputs,
                                          Values& outputs)
{
    if (IsStopRequested())
        return false;
    const auto* const method =
        std::find_if(std::begin(methods), std::end(methods),
                     [&methodName](const Method& each) { return methodName == each.name; });
    return method != std::end(methods) && method->run(*this, inputs, outputs);
}

bool FileSystemBehaviour::Open(const Values& inputs, Values& outputs)
{
    if (inputs.size() < 2)
        return false;
    const auto& path = inputs[0].GetText();
    const auto mode = static_cast<OpenModeEnum>(inputs[1].Get<unsigned int>());
    const unsigned int handle = MakeRegisteredHandle(path);
    if (handle == 0)
        return false;
    outputs.emplace_back(handle);
    EnqueueAsyncTask(std::make_shared<OpenTask>(*this, handle, path, mode));
    return true;
}

bool FileSystemBehaviour::Close(const Values& inputs)
{
    if (inputs.empty())
        return false;
    EnqueueAsyncTask(std::make_shared<CloseTask>(*this, inputs[0].Get<unsigned int>()));
    return true;
}

bool FileSystemBehaviour::UploadFile(const Values& inputs, Values& outputs)
{
    if (inputs.size() < 4)
        return false;
    const auto& path = inputs[0].GetText();
    const auto& data = inputs[1].GetBytes();
    const auto dateTime = inputs[2].Get<Core::DateTime>();
    const auto permissions = inputs[3].Get<unsigned char>();
    const unsigned int handle = MakeRegisteredHandle(path);
    if (handle == 0)
        return false;
    outputs.emplace_back(handle);
    EnqueueAsyncTask(
        std::make_shared<OpenWriteCloseTask>(*this, handle, path, data, dateTime, permissions));
    return true;
}

bool FileSystemBehaviour::OpenWrite(const Values& inputs, Values& outputs)
{
    if (inputs.size() < 2)
        return false;
    const auto& path = inputs[0].GetText();
    const auto& data = inputs[1].GetBytes();
    const unsigned int handle = MakeRegisteredHandle(path);
    if (handle == 0)
        return false;
    outputs.emplace_back(handle);
    EnqueueAsyncTask(std::make_shared<OpenWriteTask>(*this, handle, path, data));
    return true;
}

bool FileSystemBehaviour::Write(const Values& inputs)
{
    if (inputs.size() < 2)
        return false;
    const auto handle = inputs[0].Get<unsigned int>();
    const auto& data = inputs[1].GetBytes();
    EnqueueAsyncTask(std::make_shared<WriteTask>(*this, handle, data));
    return true;
}

bool FileSystemBehaviour::WriteClose(const Values& inputs)
{
    if (inputs.size() < 4)
        return false;
    const auto handle = inputs[0].Get<unsigned int>();
    const auto& data = inputs[1].GetBytes();
    const auto dateTime = inputs[2].Get<Core::DateTime>();
    const auto permissions = inputs[3].Get<unsigned char>();
    EnqueueAsyncTask(std::make_shared<WriteCloseTask>(*this, handle, data, dateTime, permissions));
    return true;
}

bool FileSystemBehaviour::CreateDirectory(const Values& inputs)
{
    if (inputs.empty())
        return false;
    EnqueueAsyncTask(std::make_shared<CreateDirectoryTask>(*this, inputs[0].GetText()));
    return true;
}

bool FileSystemBehaviour::Delete(const Values& inputs)
{
    if (inputs.empty())
        return false;
    // A scalar has no dimensions: it deletes nothing, on purpose, and is answered all the same.
    const auto dimensions = inputs[0].GetArrayDimensions();
    const unsigned int count = dimensions.empty() ? 0 : dimensions.front();
    std::vector<std::string> paths;
    for (unsigned int i = 0; i < count; ++i)
        paths.push_back(inputs[0].Get<std::string>({i}));
    EnqueueAsyncTask(std::make_shared<DeleteTask>(*this, paths));
    return true;
}

bool FileSystemBehaviour::List(const Values& inputs)
{
    if (inputs.size() < 2)
        return false;
    const auto& path = inputs[0].GetText();
    const auto recursive = inputs[1].Get<bool>();
    EnqueueAsyncTask(std::make_shared<ListTask>(*this, path, recursive));
    return true;
}

bool FileSystemBehaviour::Exists(const Values& inputs)
{
    if (inputs.empty())
        return false;
    EnqueueAsyncTask(std::make_shared<ExistsTask>(*this, inputs[0].GetText()));
    return true;
}

bool FileSystemBehaviour::Read(const Values& inputs, Values& outputs)
{
    if (inputs.size() < 2)
        return false;
    const auto handle = inputs[0].Get<unsigned int>();
    const auto length = inputs[1].Get<unsigned int>();
    const StreamLease lease = UseStream(handle);
    if (lease.GetFile() != nullptr)
        outputs.emplace_back(Read(lease.GetFile(), length), true);
    return true;
}

bool FileSystemBehaviour::GetDateTime(const Values& inputs, Values& outputs)
{
    if (inputs.empty())
        return false;
    const std::int64_t seconds = GetDateTime(inputs[0].GetText());
    if (seconds != -1)
        outputs.emplace_back(Core::DateTime::FromUnixEpochTime(seconds));
    return true;
}

bool FileSystemBehaviour::SetDateTime(const Values& inputs)
{
    if (inputs.size() < 2)
        return false;
    const auto& path = inputs[0].GetText();
    const auto dateTime = inputs[1].Get<Core::DateTime>();
    SetDateTime(path, dateTime.ToUnixEpochTime());
    return true;
}

bool FileSystemBehaviour::GetPosition(const Values& inputs, Values& outputs)
{
    if (inputs.empty())
        return false;
    const std::int64_t position = GetPosition(inputs[0].Get<unsigned int>());
    if (position != -1)
        outputs.emplace_back(static_cast<unsigned long>(position));
    return true;
}

bool FileSystemBehaviour::SetPosition(const Values& inputs)
{
    if (inputs.size() < 2)
        return false;
    const auto handle = inputs[0].Get<unsigned int>();
    const auto position = inputs[1].Get<unsigned long>();
    SetPosition(handle, position);
    return true;
}

// Handles and sessions

unsigned int FileSystemBehaviour::GetFreshHandle()
{
    const std::lock_guard lock(handlesMutex);
    return DrawFreshHandle();
}

/// REQUIRES: handlesMutex held.
unsigned int FileSystemBehaviour::DrawFreshHandle()
{
    while (true) {
        const unsigned int handle = handleDistribution(randomEngine);
        if (!handlesMap.contains(handle) && handle != 0)
            return handle;
    }
}

void FileSystemBehaviour::RegisterFileHandle(unsigned int handle, const std::string& path)
{
    CheckCondition(handle != 0, "handle != 0", 161);
    const Core::NodeId session = GetCurrentSessionId();
    const std::lock_guard lock(handlesMutex);
    InsertHandle(handle, session, path);
}

/// Draws and registers a handle in one step, so that calls on several threads cannot be given the
/// same one. 0 for a call that comes too late: the behaviour was stopped after letting it in.
unsigned int FileSystemBehaviour::MakeRegisteredHandle(const std::string& path)
{
    const Core::NodeId session = GetCurrentSessionId();
    const std::lock_guard lock(handlesMutex);
    if (!registrationOpen)
        return 0;
    const unsigned int handle = DrawFreshHandle();
    InsertHandle(handle, session, path);
    return handle;
}

/// A null handler is no session, like a handler whose session has no object any more.
Core::NodeId FileSystemBehaviour::GetCurrentSessionId() const
{
    const auto handler = node->GetCoreContext().GetSessions().GetCurrentSession();
    const auto sessionObject = handler ? handler->GetSessionObject() : nullptr;
    CheckCondition(sessionObject != nullptr, "currentSession != nullptr", 167);
    return sessionObject->GetNodeId();
}

/// REQUIRES: handlesMutex held.
void FileSystemBehaviour::InsertHandle(unsigned int handle, const Core::NodeId& session,
                                       const std::string& path)
{
    handlesMap.emplace(handle, FileInfo{nullptr, session, path});
    const auto found = sessionsMap.find(session);
    if (found == sessionsMap.end()) {
        sessionsMap.emplace(session, std::set<unsigned int>{handle});
        return;
    }
    auto& handles = found->second;
    CheckCondition(!handles.empty(), "!handles.empty()", 183);
    CheckCondition(handles.find(handle) == handles.end(), "handles.find(handle) == handles.end()",
                   184);
    handles.insert(handle);
}

FileInfo FileSystemBehaviour::GetFileInfo(unsigned int handle)
{
    const std::lock_guard lock(handlesMutex);
    const auto found = handlesMap.find(handle);
    return found == handlesMap.end() ? FileInfo() : found->second;
}

bool FileSystemBehaviour::IsRegistered(unsigned int handle)
{
    const std::lock_guard lock(handlesMutex);
    return handlesMap.contains(handle);
}

bool FileSystemBehaviour::UnregisterAndCloseFile(unsigned int handle)
{
    std::unique_lock lock(handlesMutex);
    const auto found = handlesMap.find(handle);
    if (found == handlesMap.end())
        return false;
    FILE* const file = found->second.file;
    const auto sessionIt = sessionsMap.find(found->second.session);
    CheckCondition(sessionIt != sessionsMap.end(), "sessionIt != sessionsMap.end()", 204);
    sessionIt->second.erase(handle);
    if (sessionIt->second.empty())
        sessionsMap.erase(sessionIt);
    handlesMap.erase(found);
    // The handle is gone, so nobody can enter the stream any more.
    if (const auto users = TakeStreamUsers(handle))
        streamReleased.wait(lock, [&users] { return users->count == 0; });
    lock.unlock();
    return file == nullptr || std::fclose(file) == 0;
}

void FileSystemBehaviour::OnReferenceAdded(const Core::ReferenceData& /*reference*/) {}

void FileSystemBehaviour::OnReferenceRemoved(const Core::ReferenceData& reference)
{
    if (reference.target == nullptr)
        return;
    std::vector<FILE*> streams;
    bool consistent = true;
    {
        const std::lock_guard lock(handlesMutex);
        const auto session = sessionsMap.find(reference.target->GetNodeId());
        if (session == sessionsMap.end())
            return;
        streams.reserve(session->second.size());
        for (const unsigned int handle : session->second) {
            const auto handlerIt = handlesMap.find(handle);
            consistent = handlerIt != handlesMap.end();
            if (!consistent)
                break;
            if (FILE* stream = DetachStream(handle, sessionEndCloseReport))
                streams.push_back(stream);
            handlesMap.erase(handlerIt);
        }
        if (consistent)
            sessionsMap.erase(session);
    }
    CloseAndReport(streams, sessionEndCloseReport);
    CheckCondition(consistent, "handlerIt != handlesMap.end()", 138);
}

// Streams and their users

StreamLease FileSystemBehaviour::UseStream(unsigned int handle)
{
    const std::lock_guard lock(handlesMutex);
    const auto users = streamUsers.find(handle);
    if (users == streamUsers.end())
        return {};
    StreamLease lease(*this, users->second, handlesMap.at(handle));
    ++users->second->count;
    return lease;
}

/// Called by a lease that leaves the stream.
void FileSystemBehaviour::EndStreamUse(StreamUsers& users)
{
    const CloseReport* report = nullptr;
    {
        const std::lock_guard lock(handlesMutex);
        if (--users.count > 0)
            return;
        report = users.lastOneCloses;
    }
    if (report != nullptr)
        CloseAndReport(users.file, *report);
    else
        streamReleased.notify_all();
}

/// REQUIRES: handlesMutex held. Null when the handle has no open stream.
std::shared_ptr<StreamUsers> FileSystemBehaviour::TakeStreamUsers(unsigned int handle)
{
    auto taken = streamUsers.extract(handle);
    return taken.empty() ? nullptr : std::move(taken.mapped());
}

/// Takes a handle's stream out of the registry, for the caller to close; null when there is nothing
/// to close, or when somebody is inside: then the last one closes it and reports as told.
/// REQUIRES: handlesMutex held; the handle is forgotten before it is released.
FILE* FileSystemBehaviour::DetachStream(unsigned int handle, const CloseReport& report)
{
    const auto users = TakeStreamUsers(handle);
    if (users == nullptr)
        return nullptr;
    if (users->count == 0)
        return users->file;
    users->lastOneCloses = &report;
    return nullptr;
}

// Files

bool FileSystemBehaviour::OpenFile(unsigned int handle, const std::string& path, OpenModeEnum mode)
{
    if (path.empty())
        return false;
    // Its session may have ended while the request was queued: then the file must stay untouched.
    if (!IsRegistered(handle))
        return false;
    std::unique_ptr<FILE, StreamCloser> file(
        SecurityEnhancedUtils::fopen(path, MakeModeString(mode)));
    if (file == nullptr || !StoreStream(handle, path, file.get()))
        return false;
    static_cast<void>(file.release());
    return true;
}

/// A stream that the record holds already is overwritten and stays open, out of reach.
bool FileSystemBehaviour::StoreStream(unsigned int handle, const std::string& path, FILE* file)
{
    const std::lock_guard lock(handlesMutex);
    const auto found = handlesMap.find(handle);
    if (found == handlesMap.end() || found->second.path != path)
        return false;
    streamUsers[handle] = std::make_shared<StreamUsers>(StreamUsers{file, 0, nullptr});
    found->second.file = file;
    return true;
}

std::vector<unsigned char> FileSystemBehaviour::Read(FILE* fileHandle, unsigned int length)
{
    CheckCondition(fileHandle != nullptr, "fileHandle != NULL", 537);
    if (length > maximumBlock) {
        length = maximumBlock;
        Log({Core::LogLevel::Warning, LogCode::readLengthExceeded, sourceFile, "Read", 542},
            [](std::ostream& text) {
                text << "Read data length exceeded (Max " << maximumBlock << " bytes)";
            });
    }
    unsigned char buffer[maximumBlock]; // filled as far as it is taken from
    StreamTurn turn(fileHandle);
    turn.PrepareReading();
    const std::size_t count = std::fread(buffer, 1, length, fileHandle);
    return {buffer, buffer + count};
}

bool FileSystemBehaviour::Write(FILE* fileHandle, const std::vector<unsigned char>& data)
{
    if (data.empty())
        return true;
    StreamTurn turn(fileHandle);
    turn.PrepareWriting();
    return std::fwrite(data.data(), 1, data.size(), fileHandle) == data.size();
}

std::int64_t FileSystemBehaviour::GetPosition(unsigned int handle)
{
    const StreamLease lease = UseStream(handle);
    return lease.GetFile() == nullptr ? -1 : std::ftell(lease.GetFile());
}

bool FileSystemBehaviour::SetPosition(unsigned int handle, std::uint64_t position)
{
    const StreamLease lease = UseStream(handle);
    // Beyond the range of the offset the position turns negative, which fseek refuses.
    return lease.GetFile() != nullptr &&
           std::fseek(lease.GetFile(), static_cast<long>(position), SEEK_SET) == 0;
}

std::int64_t FileSystemBehaviour::GetDateTime(const std::string& path)
{
    if (!PathExists(path))
        return -1;
    try {
        return fs::last_write_time(path);
    } catch (const std::exception&) {
        return -1;
    }
}

bool FileSystemBehaviour::SetDateTime(const std::string& path, std::int64_t time)
{
    if (!PathExists(path))
        return false;
    try {
        fs::last_write_time(path, time);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool FileSystemBehaviour::SetFilePermissions(const std::string& path, unsigned char permissions)
{
    constexpr unsigned char readOnly = 0x02;
    constexpr unsigned char executable = 0x04;
    if (permissions == 0)
        return true;
    try {
        if ((permissions & executable) != 0)
            fs::permissions(path, fs::add_perms | fs::owner_exe | fs::group_exe | fs::others_exe);
        if ((permissions & readOnly) != 0) {
            fs::permissions(path,
                            fs::add_perms | fs::owner_read | fs::group_read | fs::others_read);
            fs::permissions(path, fs::remove_perms | fs::owner_write | fs::group_write |
                                      fs::others_write);
        }
        return true;
    } catch (const std::exception& exception) {
        Log({Core::LogLevel::Warning, LogCode::permissionsNotSet, sourceFile, "SetFilePermissions",
             770},
            [&](std::ostream& text) {
                text << "Cannot set permissions to file '" << path << "' : " << exception.what();
            });
        return false;
    }
}

// Directories

void FileSystemBehaviour::Exists(const std::string& path)
{
    const bool exists = PathExists(path);
    auto values = MakeEventValues(*existsResultEventType, existsEventTypeIndex);
    values.at(existsExistIndex) = Core::Value(exists);
    GetNodeObject()->RaiseEvent(existsResultEventType, values);
}

void FileSystemBehaviour::CreateDirectory(const std::string& path)
{
    if (!PathExists(path)) {
        boost::system::error_code ignored;
        fs::create_directories(path, ignored);
    }
    GetNodeObject()->RaiseEvent(
        createDirectoryResultEventType,
        MakeEventValues(*createDirectoryResultEventType, createDirectoryEventTypeIndex));
}

void FileSystemBehaviour::Delete(const std::vector<std::string>& paths)
{
    for (const auto& path : paths) {
        boost::system::error_code ignored;
        if (GetFileType(path) == fs::directory_file)
            fs::remove_all(path, ignored);
        else
            fs::remove(path, ignored);
    }
    GetNodeObject()->RaiseEvent(deleteResultEventType,
                                MakeEventValues(*deleteResultEventType, deleteEventTypeIndex));
}

bool FileSystemBehaviour::List(const std::string& rootDirectory, std::vector<ListItem>& items,
                               bool recursive)
{
    return Walk(
        rootDirectory, recursive,
        [&items](const fs::path& path, const EntryStatus& status, std::size_t) {
            items.push_back({path.string(), MakeEntryTime(status.time), status.isDirectory});
        });
}

void FileSystemBehaviour::List(const std::string& rootDirectory, bool recursive)
{
    // Walks to the end, so that a failure further on is met, but keeps only what an event carries.
    std::vector<Core::Struct> content;
    RelativePaths paths(rootDirectory);
    bool limitExceeded = false;
    Walk(rootDirectory, recursive,
         [&](const fs::path& path, const EntryStatus& status, std::size_t depth) {
             limitExceeded = content.size() == maximumBlock;
             if (!limitExceeded)
                 content.push_back(
                     MakeListItem(paths.Get(path, status.isDirectory, status.isLink, depth),
                                  MakeEntryTime(status.time), status.isDirectory));
         });
    auto values = MakeEventValues(*listResultEventType, listEventTypeIndex);
    values.at(listContentIndex) = Core::Value(std::move(content));
    values.at(listLimitExceededIndex) = Core::Value(limitExceeded);
    GetNodeObject()->RaiseEvent(listResultEventType, values);
}

// Events

void FileSystemBehaviour::DispatchAckEvent(unsigned int handle, unsigned char result)
{
    auto values = MakeEventValues(*ackEventType, ackEventTypeIndex);
    values.at(ackFileHandleIndex) = Core::Value(handle);
    values.at(ackResultIndex) = Core::Value(static_cast<unsigned int>(result));
    GetNodeObject()->RaiseEvent(ackEventType, values);
}

/// The caller keeps the pointer until the event has been raised. The node is an object; one that is
/// not gives std::bad_cast.
std::shared_ptr<Core::IObject> FileSystemBehaviour::GetNodeObject() const
{
    const auto self = node->GetSharedPointer();
    return {self, &dynamic_cast<Core::IObject&>(*self)};
}

// Worker and queue

void FileSystemBehaviour::EnqueueAsyncTask(const std::shared_ptr<FileSystemAsyncTask>& task)
{
    {
        const std::lock_guard lock(taskMutex);
        if (workerGone)
            tasksSetAside.push_back(task);
        else
            taskQueue.push_back(task);
    }
    taskCondition.notify_one();
}

/// Without a thread the behaviour stays as it was, and no call has seen it otherwise: one that is
/// stopped goes on refusing calls.
void FileSystemBehaviour::StartWorkerThread()
{
    const std::lock_guard lock(taskMutex);
    workerThread = std::thread([this] { RunTasks(); });
    stopRequested = false;
    workerGone = false;
}

void FileSystemBehaviour::StopWorkerThread()
{
    if (!workerThread.joinable())
        return;
    {
        const std::lock_guard lock(taskMutex);
        stopRequested = true;
    }
    taskCondition.notify_one();
    workerThread.join();
}

bool FileSystemBehaviour::IsStopRequested()
{
    const std::lock_guard lock(taskMutex);
    return stopRequested;
}

void FileSystemBehaviour::RunTasks()
{
    // Kept until the next one is taken: a task is destroyed one pass later.
    std::shared_ptr<FileSystemAsyncTask> task;
    while (TakeTask(task))
        RunTask(*task);
}

bool FileSystemBehaviour::TakeTask(std::shared_ptr<FileSystemAsyncTask>& task)
{
    std::unique_lock lock(taskMutex);
    taskCondition.wait(lock, [this] { return stopRequested || !taskQueue.empty(); });
    if (taskQueue.empty()) {
        workerGone = true;
        return false;
    }
    task = std::move(taskQueue.front());
    taskQueue.pop_front();
    return true;
}

void FileSystemBehaviour::RunTask(FileSystemAsyncTask& task)
{
    // The published place of these entries: the worker's function object.
    const auto describe = [](std::uint32_t code) {
        return LogStatement{Core::LogLevel::Error, code, sourceFile, "operator()", 820};
    };
    try {
        task.DoWork();
    } catch (const Core::Exception& exception) {
        const std::uint32_t family = exception.GetErrorCode() << 16U;
        Log(
            describe(LogCode::general | family),
            [&](std::ostream& text) { text << "Exception caught: " << exception.GetMessage(); },
            [&] { return exception.GetDetails(); });
    } catch (const std::exception& exception) {
        Log(describe(LogCode::general),
            [&](std::ostream& text) { text << "Exception caught: " << exception.what(); });
    } catch (...) {
        Log(describe(LogCode::general),
            [](std::ostream& text) { text << "Unknown exception caught"; });
    }
}

} // namespace FileSystem
