#include "Files.h"

#include "Statuses.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <unistd.h>
#include <utility>

namespace FileObjects {

namespace {

void RequireMode(unsigned char mode, const std::string& subject)
{
    constexpr unsigned int known =
        Files::modeRead | Files::modeWrite | Files::modeEraseExisting | Files::modeAppend;
    const bool isReadOrWritten = (mode & (Files::modeRead | Files::modeWrite)) != 0;
    const bool isErasedUnwritten =
        (mode & Files::modeEraseExisting) != 0 && (mode & Files::modeWrite) == 0;
    if ((mode & ~known) != 0 || !isReadOrWritten || isErasedUnwritten)
        Refuse(Status::invalidArgument, subject,
               "there is no open mode " + std::to_string(unsigned{mode}));
}

int GetFlags(unsigned char mode)
{
    if ((mode & Files::modeWrite) == 0)
        return O_RDONLY;
    return (mode & Files::modeRead) != 0 ? O_RDWR : O_WRONLY;
}

/// Locks a file for a use. The last use ends with the lock.
class FileUse
{
public:
    explicit FileUse(OpenFile& file)
        : file(file)
        , lock(file.mutex)
    {
        file.lastUse = std::chrono::steady_clock::now();
        if (!file.descriptor.IsOpen())
            Refuse(Status::invalidArgument, file.subject, "the file is closed");
    }
    FileUse(const FileUse&) = delete;
    FileUse& operator=(const FileUse&) = delete;
    ~FileUse() { file.lastUse = std::chrono::steady_clock::now(); }

private:
    OpenFile& file;
    const std::lock_guard<std::mutex> lock;
};

/// Positions are those of the system: signed.
void RequireSystemPosition(std::uint64_t position, const std::string& subject)
{
    if (position > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()))
        RefuseWithErrno(subject, EFBIG);
}

} // namespace

Files::Files(const Folders& folders, OpenFiles& openFiles)
    : folders(folders)
    , openFiles(openFiles)
{}

unsigned int Files::Open(const Key& node, unsigned char mode, const Caller& caller)
{
    if (node.kind != NodeKind::File)
        Refuse(Status::invalidState, "", "a temporary file is opened by the method that makes it");
    const std::string subject = folders.Show(node.place);
    RequireMode(mode, subject);
    if ((mode & modeWrite) != 0)
        folders.RequireWritable(node.place);
    openFiles.RequireRoom(caller.GetSession());
    return Register(folders.OpenFile(node.place, GetFlags(mode)), node, subject, mode, caller);
}

unsigned int Files::Register(Descriptor file, const Key& node, const std::string& subject,
                             unsigned char mode, const Caller& caller,
                             std::shared_ptr<void> companion)
{
    const auto state = GetState(file, subject);
    const auto opened = std::make_shared<OpenFile>();
    opened->session = caller.GetSession();
    opened->node = node;
    opened->identity = ToIdentity(state);
    opened->subject = subject;
    opened->isReadable = (mode & modeRead) != 0;
    opened->isWritable = (mode & modeWrite) != 0;
    opened->companion = std::move(companion);
    opened->lastUse = std::chrono::steady_clock::now();
    opened->descriptor = std::move(file);
    const bool isErased = (mode & modeEraseExisting) != 0;
    if ((mode & modeAppend) != 0 && !isErased)
        opened->position = static_cast<std::uint64_t>(state.st_size);
    const unsigned int handle = openFiles.Add(opened);
    // Only now nobody else has the file open.
    if (isErased && ftruncate(opened->descriptor.Get(), 0) != 0) {
        const int error = errno;
        static_cast<void>(openFiles.Take(handle, opened->session, node));
        RefuseWithErrno(subject, error);
    }
    return handle;
}

void Files::Close(const Key& node, unsigned int handle, const Caller& caller)
{
    CloseOpenFile(*openFiles.Take(handle, caller.GetSession(), node));
}

Files::Bytes Files::Read(const Key& node, unsigned int handle, int length, const Caller& caller)
{
    const auto file = openFiles.Find(handle, caller.GetSession(), node);
    if (length <= 0)
        Refuse(Status::invalidArgument, file->subject, "the length is not positive");
    if (!file->isReadable)
        Refuse(Status::invalidState, file->subject, "the file is not open for reading");
    const FileUse use(*file);
    Bytes bytes(std::min(static_cast<unsigned int>(length), maximumBlock));
    RequireSystemPosition(file->position, file->subject);
    ssize_t count = 0;
    do
        count = pread(file->descriptor.Get(), bytes.data(), bytes.size(),
                      static_cast<off_t>(file->position));
    while (count < 0 && errno == EINTR);
    if (count < 0)
        RefuseWithErrno(file->subject, errno);
    bytes.resize(static_cast<std::size_t>(count));
    file->position += bytes.size();
    return bytes;
}

void Files::Write(const Key& node, unsigned int handle, const Bytes& data, const Caller& caller)
{
    const auto file = openFiles.Find(handle, caller.GetSession(), node);
    if (!file->isWritable)
        Refuse(Status::invalidState, file->subject, "the file is not open for writing");
    const FileUse use(*file);
    for (std::size_t written = 0; written < data.size();) {
        RequireSystemPosition(file->position, file->subject);
        const ssize_t count = pwrite(file->descriptor.Get(), data.data() + written,
                                     data.size() - written, static_cast<off_t>(file->position));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            RefuseWithErrno(file->subject, errno);
        written += static_cast<std::size_t>(count);
        file->position += static_cast<std::uint64_t>(count);
    }
}

std::uint64_t Files::GetPosition(const Key& node, unsigned int handle, const Caller& caller)
{
    const auto file = openFiles.Find(handle, caller.GetSession(), node);
    const FileUse use(*file);
    return file->position;
}

void Files::SetPosition(const Key& node, unsigned int handle, std::uint64_t position,
                        const Caller& caller)
{
    const auto file = openFiles.Find(handle, caller.GetSession(), node);
    const FileUse use(*file);
    const auto state = GetState(file->descriptor, file->subject);
    file->position = std::min(position, static_cast<std::uint64_t>(state.st_size));
}

void CloseOpenFile(OpenFile& file)
{
    const std::lock_guard lock(file.mutex);
    const int number = file.descriptor.Release();
    if (number >= 0 && close(number) != 0 && errno != EINTR)
        RefuseWithErrno(file.subject, errno);
}

} // namespace FileObjects
