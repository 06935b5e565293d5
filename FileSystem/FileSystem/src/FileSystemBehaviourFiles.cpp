#include "FileSystemBehaviour.h"

#include "BehaviourSource.h"
#include "Diagnostics.h"
#include "FileTypes.h"
#include "SecurityEnhancedUtils.h"
#include "StreamTurn.h"

#include <boost/filesystem.hpp>

#include <exception>

namespace FileSystem {

namespace {

namespace fs = boost::filesystem;

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
    return "wb"; // for every other number, too
}

} // namespace

bool FileSystemBehaviour::OpenFile(unsigned int handle, const std::string& path, OpenModeEnum mode)
{
    if (path.empty())
        return false;
    // When the session has ended while the request was queued, the file must stay untouched.
    if (!IsRegistered(handle))
        return false;
    std::unique_ptr<FILE, StreamCloser> file(
        SecurityEnhancedUtils::fopen(path, MakeModeString(mode)));
    if (file == nullptr || !StoreStream(handle, path, file.get()))
        return false;
    static_cast<void>(file.release());
    return true;
}

/// Overwrites a stream that the record holds already; the old one stays open, out of reach.
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
        Log({Core::LogLevel::Warning, LogCode::readLengthExceeded, behaviourSource, "Read", 542},
            [](std::ostream& text) {
                text << "Read data length exceeded (Max " << maximumBlock << " bytes)";
            });
    }
    unsigned char buffer[maximumBlock]; // not cleared: only the bytes read are copied
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
    // A position beyond the range of the offset turns negative, and fseek refuses it.
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
        Log({Core::LogLevel::Warning, LogCode::permissionsNotSet, behaviourSource,
             "SetFilePermissions", 770},
            [&](std::ostream& text) {
                text << "Cannot set permissions to file '" << path << "' : " << exception.what();
            });
        return false;
    }
}

} // namespace FileSystem
