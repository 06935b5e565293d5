#include "DirectoryReader.h"

#include "Statuses.h"

#include <cerrno>
#include <dirent.h>
#include <limits>
#include <utility>

namespace FileObjects {

namespace {

constexpr std::size_t bufferBytes = 64UL * 1024;

} // namespace

DirectoryReader::DirectoryReader(const Descriptor& directory, std::string subject)
    : directory(directory)
    , subject(std::move(subject))
    , buffer(bufferBytes / sizeof(std::uint64_t))
{}

void DirectoryReader::Seek(std::uint64_t position)
{
    filled = offset = 0;
    const bool isPossible =
        position <= static_cast<std::uint64_t>(std::numeric_limits<off64_t>::max());
    if (!isPossible || lseek64(directory.Get(), static_cast<off64_t>(position), SEEK_SET) < 0)
        Refuse(Status::invalidArgument, subject, "there is no such position in the directory");
}

bool DirectoryReader::Next(DirectoryEntry& entry)
{
    while (offset < filled || Fill()) {
        const auto* const record = reinterpret_cast<const dirent64*>(
            reinterpret_cast<const char*>(buffer.data()) + offset);
        offset += record->d_reclen;
        entry = {record->d_name, record->d_type, static_cast<std::uint64_t>(record->d_off)};
        if (entry.name != "." && entry.name != "..")
            return true;
    }
    return false;
}

bool DirectoryReader::Fill()
{
    const auto count = getdents64(directory.Get(), buffer.data(), bufferBytes);
    if (count < 0)
        RefuseWithErrno(subject, errno);
    filled = static_cast<std::size_t>(count);
    offset = 0;
    return filled > 0;
}

} // namespace FileObjects
