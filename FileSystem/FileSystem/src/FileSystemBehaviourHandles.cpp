#include "FileSystemBehaviour.h"

#include "BehaviourSource.h"
#include "Diagnostics.h"

#include <utility>

namespace FileSystem {

namespace {

constexpr CloseReport stopCloseReport{
    {Core::LogLevel::Warning, LogCode::closeFailed, behaviourSource, "OnStop", 62},
    "Cannot close file handle"};
constexpr CloseReport sessionEndCloseReport{
    {Core::LogLevel::Warning, LogCode::closeFailed, behaviourSource, "OnReferenceRemoved", 141},
    "Cannot close file handler"};

/// Closes a stream without users. Called with no lock held: closing writes the buffered data and
/// may take long.
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

} // namespace

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

/// Draws and registers a handle in one step, so that calls on several threads get different ones.
/// Returns 0 for a call that comes too late: the behaviour was stopped after the call began.
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

/// Throws for a null handler as for a handler whose session has lost its object.
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
    // The handle is forgotten, so the stream gets no new users.
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

/// Called by a lease that ends.
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

/// Returns null when the handle has no open stream. REQUIRES: handlesMutex held.
std::shared_ptr<StreamUsers> FileSystemBehaviour::TakeStreamUsers(unsigned int handle)
{
    auto taken = streamUsers.extract(handle);
    return taken.empty() ? nullptr : std::move(taken.mapped());
}

/// Takes a handle's stream out of the registry, for the caller to close. Returns null when the
/// handle has no stream, or when the stream has users: then the last of them closes it and reports
/// a failure with `report`. REQUIRES: handlesMutex held; the handle is forgotten before it is
/// released.
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

void FileSystemBehaviour::SetRegistrationOpen(bool open)
{
    const std::lock_guard lock(handlesMutex);
    registrationOpen = open;
}

/// Empties the maps under their lock and closes them to latecomers, since calls that began before
/// the stop may still be at work. A behaviour that never ran refuses no calls, before or after.
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

} // namespace FileSystem
