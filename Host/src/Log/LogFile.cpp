#include "Log/LogFile.h"

#include "Core/Exception.h"
#include "Support/SystemError.h"
#include "Support/WriteAll.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace Host {

namespace {

using Path = std::filesystem::path;

/// Opens a log file. Does not follow symbolic links that were created after the path was resolved.
Support::Descriptor Open(const Path& file, std::uint64_t furtherFlags)
{
    const auto real = std::filesystem::weakly_canonical(file);
    open_how how = {};
    how.flags = O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | furtherFlags;
    how.mode = furtherFlags == O_CREAT ? S_IRUSR | S_IWUSR | S_IRGRP : 0;
    how.resolve = RESOLVE_NO_SYMLINKS;
    return Support::Descriptor(
        static_cast<int>(syscall(SYS_openat2, AT_FDCWD, real.c_str(), &how, sizeof(how))));
}

/// Throws unless the descriptor is open and the file may be a log.
void Require(const Support::Descriptor& descriptor, const Path& file)
{
    struct stat status = {};
    if (!descriptor.IsOpen() || fstat(descriptor.Get(), &status) != 0)
        Support::ThrowSystemError("cannot open the log file '" + file.string() + "'");
    const auto refuse = [&file](const std::string& reason) {
        throw Core::InvalidArgumentException("the log file '" + file.string() + "' " + reason);
    };
    if (!S_ISREG(status.st_mode))
        refuse("is not a regular file");
    if (status.st_uid != 0 && status.st_uid != geteuid())
        refuse("belongs to neither root nor the host's user");
    if (status.st_nlink != 1)
        refuse("has another hard link, so it may be a file of somebody else");
}

} // namespace

LogFile::LogFile(Support::Descriptor file)
    : file(std::move(file))
{}

void LogFile::Write(const Core::LogEntry& entry)
{
    const auto line = Core::Embedding::FormatLogLine(entry) + "\n";
    const Support::Lock lock(mutex);
    Support::WriteAll(file.Get(), line); // or it is lost: there is nowhere to report it
}

void LogFile::Replace(Support::Descriptor newFile)
{
    const Support::Lock lock(mutex);
    file = std::move(newFile);
}

Support::Descriptor OpenLogFile(const Path& file)
{
    auto descriptor = Open(file, O_CREAT);
    Require(descriptor, file);
    return descriptor;
}

void CheckLogFile(const Path& file)
{
    const auto descriptor = Open(file, 0);
    const bool isMissing = !descriptor.IsOpen() && errno == ENOENT;
    if (!isMissing)
        Require(descriptor, file);
    else if (faccessat(AT_FDCWD, file.parent_path().c_str(), W_OK | X_OK, AT_EACCESS) != 0)
        Support::ThrowSystemError("cannot create the log file '" + file.string() + "'");
}

} // namespace Host
