#include "Support/PrivateFiles.h"

#include "Support/Descriptor.h"
#include "Support/SystemError.h"
#include "Support/WriteAll.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>

namespace Support {

namespace {

constexpr mode_t othersRights = S_IRWXO;
constexpr mode_t groupWrites = S_IWGRP;

/// Removes the file at the end unless it has its final name.
class TemporaryFile
{
public:
    explicit TemporaryFile(const std::filesystem::path& target)
        : path(target.string() + ".XXXXXX")
        , descriptor(mkostemp(path.data(), O_CLOEXEC)) // mode 0600
    {
        if (!descriptor.IsOpen())
            ThrowSystemError("cannot write '" + target.string() + "'");
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile()
    {
        if (!path.empty())
            unlink(path.c_str());
    }

    /// Gives it the owner of the file that it will replace, or else of the folder. Only root can;
    /// for others, the new file is their own.
    void TakeOwnerFor(const std::filesystem::path& target)
    {
        struct stat status = {};
        const auto folder = std::filesystem::absolute(target).parent_path();
        if (geteuid() != 0 ||
            (stat(target.c_str(), &status) != 0 && stat(folder.c_str(), &status) != 0))
            return;
        if (fchown(descriptor.Get(), status.st_uid, status.st_gid) != 0)
            ThrowSystemError("cannot set the owner of '" + target.string() + "'");
    }

    void Write(std::string_view content)
    {
        if (WriteAll(descriptor.Get(), content) < content.size() || fsync(descriptor.Get()) != 0)
            ThrowSystemError("cannot write '" + path + "'");
    }

    void Become(const std::filesystem::path& target)
    {
        if (rename(path.c_str(), target.c_str()) != 0)
            ThrowSystemError("cannot replace '" + target.string() + "'");
        path.clear();
    }

private:
    std::string path; // empty once renamed
    Descriptor descriptor;
};

void SynchronizeFolder(const std::filesystem::path& folder)
{
    const Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor.IsOpen() || fsync(descriptor.Get()) != 0)
        ThrowSystemError("cannot write the folder '" + folder.string() + "' to the disk");
}

struct stat GetStatus(const Descriptor& descriptor, const std::filesystem::path& file)
{
    struct stat status = {};
    if (fstat(descriptor.Get(), &status) != 0)
        ThrowSystemError("cannot read '" + file.string() + "'");
    return status;
}

Descriptor OpenRegularFile(const std::filesystem::path& file)
{
    // Opening a pipe without O_NONBLOCK would wait for its other end.
    Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!descriptor.IsOpen())
        ThrowSystemError("cannot read '" + file.string() + "'");
    if (!S_ISREG(GetStatus(descriptor, file).st_mode))
        throw UnsafeFileException("'" + file.string() + "' is not a regular file");
    return descriptor;
}

std::string ReadAll(const Descriptor& descriptor, const std::filesystem::path& file)
{
    std::string content;
    std::array<char, 4096> block{};
    for (;;) {
        const auto count = read(descriptor.Get(), block.data(), block.size());
        if (count == 0)
            return content;
        if (count < 0 && errno != EINTR)
            ThrowSystemError("cannot read '" + file.string() + "'");
        if (count > 0)
            content.append(block.data(), static_cast<std::size_t>(count));
    }
}

} // namespace

std::string ReadPrivateFile(const std::filesystem::path& file, GroupMayRead groupMayRead)
{
    const auto descriptor = OpenRegularFile(file);
    const auto refused =
        groupMayRead == GroupMayRead::Yes ? othersRights | groupWrites : othersRights | S_IRWXG;
    if ((GetStatus(descriptor, file).st_mode & refused) != 0)
        throw UnsafeFileException("'" + file.string() +
                                  "' holds secrets, but others than its owner may read or change "
                                  "it: chmod 600 it");
    return ReadAll(descriptor, file);
}

std::string ReadFile(const std::filesystem::path& file)
{
    return ReadAll(OpenRegularFile(file), file);
}

void WritePrivateFile(const std::filesystem::path& file, std::string_view content)
{
    TemporaryFile temporary(file);
    temporary.TakeOwnerFor(file);
    temporary.Write(content);
    temporary.Become(file);
    SynchronizeFolder(std::filesystem::absolute(file).parent_path());
}

void MakePrivateFolder(const std::filesystem::path& folder)
{
    std::error_code error; // if a folder above cannot be made, mkdir below fails
    if (folder.has_parent_path())
        std::filesystem::create_directories(folder.parent_path(), error);
    if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST)
        ThrowSystemError("cannot create the folder '" + folder.string() + "'");
}

void RequirePrivateFolder(const std::filesystem::path& folder)
{
    struct stat status = {};
    if (stat(folder.c_str(), &status) != 0)
        ThrowSystemError("cannot use the folder '" + folder.string() + "'");
    if (!S_ISDIR(status.st_mode))
        throw UnsafeFileException("'" + folder.string() + "' is not a folder");
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        throw UnsafeFileException("others than its owner may change the folder '" +
                                  folder.string() + "': chmod 700 it");
}

} // namespace Support
