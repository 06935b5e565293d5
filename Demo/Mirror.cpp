#include "Mirror.h"

#include "Text.h"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iterator>
#include <utility>

namespace Demo {

namespace {

namespace fs = std::filesystem;

constexpr mode_t anyWrite = S_IWUSR | S_IWGRP | S_IWOTH;
constexpr mode_t anyRead = S_IRUSR | S_IRGRP | S_IROTH;
constexpr mode_t anyExecute = S_IXUSR | S_IXGRP | S_IXOTH;

/// Limits the file system's queue to about a megabyte.
constexpr std::size_t blocksInFlight = 16;

/// The number of paths in one `Delete`.
constexpr std::size_t pathsPerDelete = 1000;

/// One second before 1970: the file system cannot report this time, since the number means a
/// failure.
constexpr std::time_t noTime = -1;

/// Returns a file's permissions, as far as the flags can express them.
unsigned char GetPermissionFlags(const FileStatus& status)
{
    unsigned int flags = 0;
    if (status.HasAnyOf(anyExecute))
        flags |= PermissionFlags::executable;
    if (!status.HasAnyOf(anyWrite))
        flags |= PermissionFlags::readOnly;
    return static_cast<unsigned char>(flags);
}

bool HasPermissions(const FileStatus& status, unsigned char flags)
{
    const bool executes = (flags & PermissionFlags::executable) != 0 ? status.HasAllOf(anyExecute)
                                                                     : !status.HasAnyOf(anyExecute);
    const bool writes = (flags & PermissionFlags::readOnly) != 0
                            ? status.HasAllOf(anyRead) && !status.HasAnyOf(anyWrite)
                            : status.HasAllOf(S_IWUSR);
    return executes && writes;
}

/// Reads the next bytes of a file without the file system.
Bytes ReadLocally(std::istream& file, std::size_t length)
{
    std::string buffer(length, '\0');
    file.read(buffer.data(), static_cast<std::streamsize>(length));
    const auto end = buffer.begin() + file.gcount();
    return {buffer.begin(), end};
}

FileStatus LookAt(const fs::path& path)
{
    const auto status = FileStatus::Get(path);
    if (!status)
        throw RequestFailedException("it is not there");
    return *status;
}

} // namespace

Mirror::Mirror(FileSystemClient& fileSystem, const SourceTree& source, fs::path target,
               Report& report)
    : fileSystem(fileSystem)
    , source(source)
    , target(std::move(target))
    , report(report)
    , remaining(source.entries)
{}

void Mirror::Try(const fs::path& path, const std::function<void()>& operation)
{
    try {
        operation();
    } catch (const RequestFailedException& exception) {
        report.Fail(Quote(path) + ": " + exception.what());
    }
}

void Mirror::ListSource()
{
    std::map<fs::path, std::set<std::string>> namesOfDirectory;
    namesOfDirectory[{}];
    for (const auto& entry : source.entries) {
        // A listing names a link by its target, so only other entries can be found in it.
        if (entry.isLink)
            continue;
        namesOfDirectory[entry.path.parent_path()].insert(entry.path.filename());
        if (entry.status.IsDirectory())
            namesOfDirectory[entry.path];
    }
    for (const auto& [directory, names] : namesOfDirectory)
        ListSourceDirectory(directory.empty() ? source.root : source.root / directory, names);
}

void Mirror::ListSourceDirectory(const fs::path& path, const std::set<std::string>& names)
{
    Try(path, [&] {
        const auto listing = fileSystem.List(path, false);
        auto missing = names;
        for (const auto& entry : listing.entries)
            missing.erase(entry.path);
        if (!listing.limitExceeded && !missing.empty())
            report.Fail(Quote(path / *missing.begin()) + " is not in the listing");
    });
}

void Mirror::CreateDirectories()
{
    fileSystem.CreateDirectory(target);
    for (const auto& entry : source.entries) {
        if (!entry.status.IsDirectory())
            continue;
        fileSystem.CreateDirectory(InMirror(entry));
        ++report.directories;
    }
}

void Mirror::CopyFiles()
{
    for (const auto& entry : source.entries) {
        if (entry.status.IsRegular())
            Try(InSource(entry), [&] { CopyFile(entry); });
    }
}

void Mirror::CopyFile(const SourceEntry& entry)
{
    const auto handle = fileSystem.Open(InSource(entry));
    try {
        CopyContent(handle, InMirror(entry), entry);
    } catch (const RequestFailedException&) {
        fileSystem.Close(handle);
        throw;
    }
    report.bytes += fileSystem.GetPosition(handle);
    ++report.files;
    fileSystem.Close(handle);
}

void Mirror::CopyContent(unsigned int from, const fs::path& to, const SourceEntry& entry)
{
    const auto first = fileSystem.Read(from);
    auto second = first.empty() ? Bytes() : fileSystem.Read(from);
    if (second.empty())
        fileSystem.UploadFile(to, first, fileSystem.GetDateTime(InSource(entry)),
                              GetPermissionFlags(entry.status));
    else
        CopyInBlocks(from, first, std::move(second), to, entry);
}

void Mirror::CopyInBlocks(unsigned int from, const Bytes& first, Bytes second, const fs::path& to,
                          const SourceEntry& entry)
{
    const auto handle = fileSystem.OpenWrite(to, first);
    auto last = std::move(second);
    std::size_t blocks = 1;
    for (auto next = fileSystem.Read(from); !next.empty(); next = fileSystem.Read(from)) {
        fileSystem.Write(handle, last);
        last = std::move(next);
        if (++blocks % blocksInFlight == 0)
            fileSystem.WaitForWrites(handle, to);
    }
    fileSystem.WriteClose(handle, to, last, fileSystem.GetDateTime(InSource(entry)),
                          GetPermissionFlags(entry.status));
}

void Mirror::SetDirectoryTimes()
{
    const auto setTime = [this](const SourceEntry& entry) {
        if (entry.status.IsDirectory())
            fileSystem.SetDateTime(InMirror(entry), fileSystem.GetDateTime(InSource(entry)));
    };
    std::for_each(source.entries.rbegin(), source.entries.rend(), setTime);
}

void Mirror::ListMirror()
{
    CompareListing(true);
}

void Mirror::CompareListing(bool withTimes)
{
    Try(target, [&] {
        bool isComplete = true;
        ListedEntries listed;
        for (const auto& entry : ListWhole(isComplete).entries)
            listed.emplace(entry.path, entry);
        for (const auto& entry : remaining) {
            CompareListedEntry(entry, listed, isComplete, withTimes);
            listed.erase(entry.path);
        }
        for (const auto& [path, entry] : listed)
            report.Fail(Quote(target / path) + " is listed but should not be there");
    });
}

Listing Mirror::ListWhole(bool& isComplete)
{
    auto whole = fileSystem.List(target, true);
    if (!whole.limitExceeded)
        return whole;
    PrintLine("  more than one listing can carry, so directory by directory");
    whole = fileSystem.List(target, false);
    isComplete = !whole.limitExceeded;
    for (const auto& directory : remaining) {
        if (!directory.status.IsDirectory())
            continue;
        auto part = fileSystem.List(InMirror(directory), false);
        isComplete = isComplete && !part.limitExceeded;
        for (auto& entry : part.entries) {
            entry.path = directory.path / entry.path;
            whole.entries.push_back(std::move(entry));
        }
    }
    return whole;
}

void Mirror::CompareListedEntry(const SourceEntry& entry, const ListedEntries& listed,
                                bool isComplete, bool withTimes)
{
    const auto found = listed.find(entry.path);
    if (found == listed.end()) {
        if (isComplete)
            report.Fail(Quote(InMirror(entry)) + " is not in the listing");
        return;
    }
    if (found->second.isDirectory != entry.status.IsDirectory())
        report.Fail(Quote(InMirror(entry)) + " is listed as the wrong kind");
    if (withTimes && found->second.time != fileSystem.GetDateTime(InSource(entry)))
        report.Fail(Quote(InMirror(entry)) +
                    " is listed with another time: " + found->second.time.ToISO8601String());
}

void Mirror::CompareFiles()
{
    for (const auto& entry : source.entries) {
        if (entry.status.IsRegular())
            Try(InMirror(entry), [&] { CompareFile(entry); });
    }
}

void Mirror::CompareFile(const SourceEntry& entry)
{
    const auto handle = fileSystem.Open(InMirror(entry));
    try {
        CompareContent(handle, entry);
    } catch (const RequestFailedException&) {
        fileSystem.Close(handle);
        throw;
    }
    fileSystem.Close(handle);
    CompareStatus(entry);
}

void Mirror::CompareContent(unsigned int handle, const SourceEntry& entry)
{
    std::ifstream original(InSource(entry), std::ios::binary);
    Bytes expected;
    do {
        expected = ReadLocally(original, blockSize);
        if (fileSystem.Read(handle) != expected) {
            report.Fail(Quote(InMirror(entry)) + " has another content");
            return;
        }
    } while (!expected.empty());

    const auto size = fileSystem.GetPosition(handle);
    if (size != LookAt(InMirror(entry)).GetSize())
        report.Fail(Quote(InMirror(entry)) + " ends at another position than its size");
    fileSystem.SetPosition(handle, size / 2);
    original.clear();
    original.seekg(static_cast<std::streamoff>(size / 2));
    if (fileSystem.Read(handle) != ReadLocally(original, blockSize))
        report.Fail(Quote(InMirror(entry)) + " reads differently from its middle");
}

void Mirror::CompareStatus(const SourceEntry& entry)
{
    const auto status = LookAt(InMirror(entry));
    if (status.GetTime() != entry.status.GetTime() && entry.status.GetTime() != noTime)
        report.Fail(Quote(InMirror(entry)) + " has another time");
    if (!HasPermissions(status, GetPermissionFlags(entry.status)))
        report.Fail(Quote(InMirror(entry)) + " has other permissions");
}

void Mirror::AskExistence()
{
    auto present = remaining.begin();
    for (const auto& entry : source.entries) {
        const bool expected = present != remaining.end() && present->path == entry.path;
        if (expected)
            ++present;
        if (fileSystem.Exists(InMirror(entry)) != expected)
            report.Fail(Quote(InMirror(entry)) + (expected ? " does not exist" : " still exists"));
    }
}

void Mirror::DeleteHalf()
{
    const auto doomed = TakeHalf();
    for (std::size_t index = 0; index < doomed.size(); index += pathsPerDelete) {
        const auto end = std::min(index + pathsPerDelete, doomed.size());
        fileSystem.Delete({std::next(doomed.begin(), static_cast<std::ptrdiff_t>(index)),
                           std::next(doomed.begin(), static_cast<std::ptrdiff_t>(end))});
    }
    report.deleted = source.entries.size() - remaining.size();
    CompareListing(false);
    AskExistence();
}

std::vector<fs::path> Mirror::TakeHalf()
{
    std::vector<fs::path> doomed;
    std::vector<SourceEntry> kept;
    auto left = remaining.size() / 2;
    for (auto entry = remaining.begin(); entry != remaining.end();) {
        // The entries of a directory follow it directly.
        const auto next = std::find_if(std::next(entry), remaining.end(), [&](const auto& other) {
            return std::ranges::mismatch(entry->path, other.path).in1 != entry->path.end();
        });
        const auto size = static_cast<std::size_t>(std::distance(entry, next));
        if (size <= left) {
            doomed.push_back(InMirror(*entry));
            left -= size;
            entry = next;
        } else {
            kept.push_back(*entry);
            ++entry;
        }
    }
    remaining = std::move(kept);
    return doomed;
}

fs::path Mirror::InSource(const SourceEntry& entry) const
{
    return source.root / entry.path;
}

fs::path Mirror::InMirror(const SourceEntry& entry) const
{
    return target / entry.path;
}

} // namespace Demo
