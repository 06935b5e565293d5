#include "WorkerQueueTask.h"

#include "Diagnostics.h"
#include "FileSystemBehaviour.h"
#include "ResultCode.h"

namespace FileSystem {

namespace {

constexpr const char* sourceFile = __FILE__;

/// Writes a task's trace line.
template <typename WriteText>
void Trace(std::int32_t line, WriteText&& writeText)
{
    Log({Core::LogLevel::Trace, LogCode::general, sourceFile, "DoWork", line},
        std::forward<WriteText>(writeText));
}

/// A date and time as trace lines show it.
std::string ToText(const Core::DateTime& dateTime)
{
    return dateTime.IsEmpty() ? "none" : dateTime.ToISO8601String();
}

/// The text of a failure's log entry and its published line.
struct Failure
{
    const char* text;
    std::int32_t line;
};

Failure Describe(unsigned int result)
{
    switch (result) {
    case ResultCode::OpenFailed:
        return {", cannot open the file", 12};
    case ResultCode::WriteIncomplete:
        return {", cannot write all data", 15};
    case ResultCode::CloseFailed:
        return {", cannot close the remote file", 18};
    case ResultCode::SetDateTimeFailed:
        return {", cannot set date/time of remote file", 21};
    case ResultCode::SetPermissionsFailed:
        return {", cannot set file permissions of remote file", 24};
    default:
        return {nullptr, 27};
    }
}

} // namespace

FileSystemAsyncTask::FileSystemAsyncTask(FileSystemBehaviour& behaviour) noexcept
    : behaviour(behaviour)
{}

void FileSystemAsyncTask::CloseFileAndDispatchError(const std::string& prefix, unsigned int handle,
                                                    unsigned int result)
{
    const Failure failure = Describe(result);
    Log({Core::LogLevel::Error, LogCode::general, sourceFile, "CloseFileAndDispatchError",
         failure.line},
        [&](std::ostream& text) {
            if (failure.text != nullptr)
                text << prefix << failure.text;
            else
                text << prefix << ", generic transfer error: " << result;
        });
    behaviour.UnregisterAndCloseFile(handle);
    // The event carries the low 8 bits only, on purpose.
    behaviour.DispatchAckEvent(handle, static_cast<unsigned char>(result));
}

// OpenTask

OpenTask::OpenTask(FileSystemBehaviour& behaviour, unsigned int handle, const std::string& path,
                   OpenModeEnum mode)
    : FileSystemAsyncTask(behaviour)
    , mode(mode)
    , path(path)
    , handle(handle)
{}

void OpenTask::DoWork()
{
    Trace(159, [this](std::ostream& text) {
        text << "OpenTask, fileHandle = " << handle << ", file path = " << path
             << ", open mode = " << static_cast<char>(mode);
    });
    if (!behaviour.OpenFile(handle, path, mode))
        CloseFileAndDispatchError("OpenTask", handle, ResultCode::OpenFailed);
}

// CloseTask

CloseTask::CloseTask(FileSystemBehaviour& behaviour, unsigned int handle) noexcept
    : FileSystemAsyncTask(behaviour)
    , handle(handle)
{}

void CloseTask::DoWork()
{
    Trace(132, [this](std::ostream& text) { text << "CloseTask, fileHandle = " << handle; });
    const bool closed = behaviour.UnregisterAndCloseFile(handle);
    behaviour.DispatchAckEvent(handle, closed ? ResultCode::Success : ResultCode::CloseFailed);
}

// WriteTask

WriteTask::WriteTask(FileSystemBehaviour& behaviour, unsigned int handle,
                     const std::vector<unsigned char>& data)
    : FileSystemAsyncTask(behaviour)
    , handle(handle)
    , data(data)
{}

void WriteTask::DoWork()
{
    Trace(46, [this](std::ostream& text) {
        text << "WriteTask, fileHandle = " << handle << ", data size = " << data.size();
    });
    StreamLease lease = behaviour.UseStream(handle);
    if (lease.GetFile() == nullptr)
        return;
    const bool written = FileSystemBehaviour::Write(lease.GetFile(), data);
    lease.Release();
    if (!written)
        CloseFileAndDispatchError("WriteTask", handle, ResultCode::WriteIncomplete);
}

// WriteCloseTask

WriteCloseTask::WriteCloseTask(FileSystemBehaviour& behaviour, unsigned int handle,
                               const std::vector<unsigned char>& data,
                               const Core::DateTime& dateTime, unsigned char permissions)
    : FileSystemAsyncTask(behaviour)
    , handle(handle)
    , data(data)
    , dateTime(dateTime)
    , permissions(permissions)
{}

void WriteCloseTask::DoWork()
{
    Trace(78, [this](std::ostream& text) {
        text << "WriteCloseTask, fileHandle = " << handle << ", data size = " << data.size()
             << ", set date/time = " << ToText(dateTime) << ", file permissions = " << permissions;
    });
    StreamLease lease = behaviour.UseStream(handle);
    if (lease.GetFile() == nullptr)
        return;
    const std::string path = lease.GetInfo().path;
    const bool written = FileSystemBehaviour::Write(lease.GetFile(), data);
    lease.Release();
    const unsigned char result = written ? CloseAndStamp(path) : ResultCode::WriteIncomplete;
    if (result == ResultCode::Success)
        behaviour.DispatchAckEvent(handle, result);
    else
        CloseFileAndDispatchError("WriteCloseTask", handle, result);
}

unsigned char WriteCloseTask::CloseAndStamp(const std::string& path)
{
    if (!behaviour.UnregisterAndCloseFile(handle))
        return ResultCode::CloseFailed;
    if (!dateTime.IsEmpty() && !FileSystemBehaviour::SetDateTime(path, dateTime.ToUnixEpochTime()))
        return ResultCode::SetDateTimeFailed;
    if (!FileSystemBehaviour::SetFilePermissions(path, permissions))
        return ResultCode::SetPermissionsFailed;
    return ResultCode::Success;
}

// OpenWriteTask

OpenWriteTask::OpenWriteTask(FileSystemBehaviour& behaviour, unsigned int handle,
                             const std::string& path, const std::vector<unsigned char>& data)
    : FileSystemAsyncTask(behaviour)
    , path(path)
    , data(data)
    , handle(handle)
{}

void OpenWriteTask::DoWork()
{
    Trace(259, [this](std::ostream& text) {
        text << "OpenWriteTask, fileHandle = " << handle << ", file path = " << path
             << ", data size = " << data.size();
    });
    const unsigned char result = OpenAndWrite();
    if (result != ResultCode::Success)
        CloseFileAndDispatchError("OpenWriteTask", handle, result);
}

unsigned char OpenWriteTask::OpenAndWrite()
{
    if (!behaviour.OpenFile(handle, path, OpenModeEnum::CreateWrite))
        return ResultCode::OpenFailed;
    const StreamLease lease = behaviour.UseStream(handle);
    if (lease.GetFile() == nullptr)
        return ResultCode::OpenFailed;
    return FileSystemBehaviour::Write(lease.GetFile(), data) ? ResultCode::Success
                                                             : ResultCode::WriteIncomplete;
}

// OpenWriteCloseTask

OpenWriteCloseTask::OpenWriteCloseTask(FileSystemBehaviour& behaviour, unsigned int handle,
                                       const std::string& path,
                                       const std::vector<unsigned char>& data,
                                       const Core::DateTime& dateTime, unsigned char permissions)
    : FileSystemAsyncTask(behaviour)
    , path(path)
    , data(data)
    , dateTime(dateTime)
    , permissions(permissions)
    , handle(handle)
{}

void OpenWriteCloseTask::DoWork()
{
    Trace(189, [this](std::ostream& text) {
        text << "OpenWriteCloseTask, fileHandle = " << handle << ", file path = " << path
             << ", data size = " << data.size() << ", set date/time = " << ToText(dateTime)
             << ", file permissions = " << permissions;
    });
    behaviour.DispatchAckEvent(handle, Upload());
}

unsigned char OpenWriteCloseTask::Upload()
{
    if (!behaviour.OpenFile(handle, path, OpenModeEnum::CreateWrite))
        return ResultCode::OpenFailed;
    StreamLease lease = behaviour.UseStream(handle);
    if (lease.GetFile() == nullptr)
        return ResultCode::OpenFailed;
    const std::string recordedPath = lease.GetInfo().path;
    const bool written = FileSystemBehaviour::Write(lease.GetFile(), data);
    lease.Release();
    if (written)
        CloseAndStamp(recordedPath);
    return ResultCode::Success;
}

void OpenWriteCloseTask::CloseAndStamp(const std::string& recordedPath)
{
    if (!behaviour.UnregisterAndCloseFile(handle))
        return;
    if (!dateTime.IsEmpty() &&
        !FileSystemBehaviour::SetDateTime(recordedPath, dateTime.ToUnixEpochTime()))
        return;
    FileSystemBehaviour::SetFilePermissions(recordedPath, permissions);
}

// ExistsTask

ExistsTask::ExistsTask(FileSystemBehaviour& behaviour, const std::string& path)
    : FileSystemAsyncTask(behaviour)
    , path(path)
{}

void ExistsTask::DoWork()
{
    Trace(292, [this](std::ostream& text) { text << "ExistsTask, file path = " << path; });
    behaviour.Exists(path);
}

// DeleteTask

DeleteTask::DeleteTask(FileSystemBehaviour& behaviour, const std::vector<std::string>& files)
    : FileSystemAsyncTask(behaviour)
    , files(files)
{}

void DeleteTask::DoWork()
{
    Trace(306, [this](std::ostream& text) { text << "DeleteTask, files: " << files.size(); });
    behaviour.Delete(files);
}

// CreateDirectoryTask

CreateDirectoryTask::CreateDirectoryTask(FileSystemBehaviour& behaviour, const std::string& path)
    : FileSystemAsyncTask(behaviour)
    , path(path)
{}

void CreateDirectoryTask::DoWork()
{
    Trace(320,
          [this](std::ostream& text) { text << "CreateDirectoryTask, directory path = " << path; });
    behaviour.CreateDirectory(path);
}

// ListTask

ListTask::ListTask(FileSystemBehaviour& behaviour, const std::string& rootDirectory, bool recursive)
    : FileSystemAsyncTask(behaviour)
    , rootDirectory(rootDirectory)
    , recursive(recursive)
{}

void ListTask::DoWork()
{
    Trace(337, [this](std::ostream& text) {
        // Published as it stands, odd spelling and blank included.
        text << "ListTask, rootDirectory = " << rootDirectory << " , recusrive = " << recursive;
    });
    behaviour.List(rootDirectory, recursive);
}

} // namespace FileSystem
