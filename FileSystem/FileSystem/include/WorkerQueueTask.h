#pragma once

#include "Core/DateTime.h"
#include "OpenModeEnum.h"

#include <string>
#include <vector>

namespace FileSystem {

class FileSystemBehaviour;

/// A queued request. The calling thread makes it with `std::make_shared` of its concrete class from
/// copies of the call's inputs; the worker thread runs it once and releases it. The destructor is
/// not virtual: the shared pointer's control block destroys the concrete task.
class FileSystemAsyncTask
{
public:
    FileSystemAsyncTask(const FileSystemAsyncTask&) = delete;
    FileSystemAsyncTask& operator=(const FileSystemAsyncTask&) = delete;

    /// Carries out the request. The worker logs an exception and goes on with the next task.
    virtual void DoWork() = 0;

    /// Ends a failed transfer: logs the failure (`prefix` is the task's name), closes and forgets
    /// the handle, and acknowledges with the low 8 bits of `result`.
    void CloseFileAndDispatchError(const std::string& prefix, unsigned int handle,
                                   unsigned int result);

protected:
    /// The behaviour outlives the task's run.
    explicit FileSystemAsyncTask(FileSystemBehaviour& behaviour) noexcept;
    ~FileSystemAsyncTask() = default;

    FileSystemBehaviour& behaviour; // NOLINT(cppcoreguidelines-avoid-const-or-ref-data-members)
};

/// Opens a file for its handle. Acknowledges a failure only.
class OpenTask final : public FileSystemAsyncTask
{
public:
    OpenTask(FileSystemBehaviour& behaviour, unsigned int handle, const std::string& path,
             OpenModeEnum mode);
    void DoWork() override;

private:
    OpenModeEnum mode;
    std::string path;
    unsigned int handle;
};

/// Closes and forgets a handle. Always acknowledges.
class CloseTask final : public FileSystemAsyncTask
{
public:
    CloseTask(FileSystemBehaviour& behaviour, unsigned int handle) noexcept;
    void DoWork() override;

private:
    unsigned int handle;
};

/// Writes a block. Acknowledges a failure only, and nothing for a handle without a stream.
class WriteTask final : public FileSystemAsyncTask
{
public:
    WriteTask(FileSystemBehaviour& behaviour, unsigned int handle,
              const std::vector<unsigned char>& data);
    void DoWork() override;

private:
    unsigned int handle;
    std::vector<unsigned char> data;
};

/// Writes the last block, closes the file, sets its time and permissions. Acknowledges success or
/// the step that failed, and nothing for a handle without a stream.
class WriteCloseTask final : public FileSystemAsyncTask
{
public:
    WriteCloseTask(FileSystemBehaviour& behaviour, unsigned int handle,
                   const std::vector<unsigned char>& data, const Core::DateTime& dateTime,
                   unsigned char permissions);
    void DoWork() override;

private:
    [[nodiscard]] unsigned char CloseAndStamp(const std::string& path);

    unsigned int handle;
    std::vector<unsigned char> data;
    Core::DateTime dateTime;
    unsigned char permissions;
};

/// Opens a file for writing and writes the first block. Acknowledges a failure only.
class OpenWriteTask final : public FileSystemAsyncTask
{
public:
    OpenWriteTask(FileSystemBehaviour& behaviour, unsigned int handle, const std::string& path,
                  const std::vector<unsigned char>& data);
    void DoWork() override;

private:
    [[nodiscard]] unsigned char OpenAndWrite();

    std::string path;
    std::vector<unsigned char> data;
    unsigned int handle;
};

/// Uploads a whole file. Lenient on purpose: acknowledges success as soon as the file could be
/// opened, whatever the later steps did; after a short write the file stays open.
class OpenWriteCloseTask final : public FileSystemAsyncTask
{
public:
    OpenWriteCloseTask(FileSystemBehaviour& behaviour, unsigned int handle, const std::string& path,
                       const std::vector<unsigned char>& data, const Core::DateTime& dateTime,
                       unsigned char permissions);
    void DoWork() override;

private:
    [[nodiscard]] unsigned char Upload();
    void CloseAndStamp(const std::string& recordedPath);

    std::string path;
    std::vector<unsigned char> data;
    Core::DateTime dateTime;
    unsigned char permissions;
    unsigned int handle;
};

/// Tests whether a path exists.
class ExistsTask final : public FileSystemAsyncTask
{
public:
    ExistsTask(FileSystemBehaviour& behaviour, const std::string& path);
    void DoWork() override;

private:
    std::string path;
};

/// Deletes files and directory trees, in the client's order.
class DeleteTask final : public FileSystemAsyncTask
{
public:
    DeleteTask(FileSystemBehaviour& behaviour, const std::vector<std::string>& files);
    void DoWork() override;

private:
    std::vector<std::string> files;
};

/// Creates a directory with its missing parents.
class CreateDirectoryTask final : public FileSystemAsyncTask
{
public:
    CreateDirectoryTask(FileSystemBehaviour& behaviour, const std::string& path);
    void DoWork() override;

private:
    std::string path;
};

/// Lists a directory.
class ListTask final : public FileSystemAsyncTask
{
public:
    ListTask(FileSystemBehaviour& behaviour, const std::string& rootDirectory, bool recursive);
    void DoWork() override;

private:
    std::string rootDirectory;
    bool recursive;
};

} // namespace FileSystem
