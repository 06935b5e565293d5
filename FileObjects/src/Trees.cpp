#include "Trees.h"

#include "Core/Guid.h"
#include "DirectoryReader.h"
#include "Folders.h"
#include "Statuses.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <limits>
#include <map>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace FileObjects {

namespace {

/// Deletes what is no directory; opens what is one.
Descriptor DeleteFile(const Entry& entry, const std::string& subject)
{
    if (unlinkat(entry.directory.Get(), entry.name.c_str(), 0) == 0)
        return {};
    const int error = errno; // EISDIR, or EPERM of older file systems, for a directory
    auto directory = OpenEntry(entry.directory, entry.name, O_RDONLY | O_DIRECTORY);
    if (!directory.IsOpen())
        RefuseWithErrno(subject, errno == ENOTDIR ? error : errno);
    return directory;
}

void RemoveDirectory(const Entry& entry, const std::string& subject)
{
    if (unlinkat(entry.directory.Get(), entry.name.c_str(), AT_REMOVEDIR) != 0)
        RefuseWithErrno(subject, errno);
}

/// Deletes what is in a directory. What lies too deep is moved up, and deleted from there.
class TreeDeletion
{
public:
    /// Without a caller it goes on to its end.
    TreeDeletion(const Descriptor& top, const Caller* caller)
        : top(top)
        , caller(caller)
    {}

    void Run(const std::string& subject) { DeleteContents(top, subject, 1); }

private:
    /// The rounds through a directory that another process may be filling: more than file systems
    /// need that lose their place.
    static constexpr std::size_t mostRounds = 100;

    /// The paths that are kept of directories that were moved up: they take little memory.
    static constexpr std::size_t mostPaths = 1000;
    static constexpr std::size_t longestPath = PATH_MAX;

    /// Makes another round after one that found something: some file systems lose their place in a
    /// directory that changes, and the top gets what was moved up. Another process that keeps
    /// making files does not hold it for ever: then the directory cannot be removed.
    void DeleteContents(const Descriptor& directory, const std::string& subject, std::size_t level)
    {
        for (std::size_t rounds = 0; rounds < mostRounds; ++rounds) {
            const auto movedBefore = moved;
            if (!DeleteEntries(directory, subject, level))
                return;
            if (level == 1 && moved != movedBefore)
                rounds = 0;
        }
    }

    /// Returns false if there are none.
    [[nodiscard]] bool DeleteEntries(const Descriptor& directory, const std::string& subject,
                                     std::size_t level)
    {
        bool hasEntries = false;
        DirectoryReader reader(directory, subject);
        reader.Seek(0);
        for (DirectoryEntry entry; reader.Next(entry); hasEntries = true) {
            if (caller != nullptr)
                caller->CheckGoesOn();
            const std::string name(entry.name);
            DeleteEntry({directory, name}, GetSubject(name, subject), level);
        }
        return hasEntries;
    }

    /// Returns the path by which the caller knows an entry, also after it was moved up.
    std::string GetSubject(const std::string& name, const std::string& directory)
    {
        auto known = oldPaths.extract(name);
        return known.empty() ? directory + "/" + name : std::move(known.mapped());
    }

    void DeleteEntry(const Entry& entry, const std::string& subject, std::size_t level)
    {
        const auto directory = DeleteFile(entry, subject);
        if (!directory.IsOpen())
            return;
        if (level == deepestLevel)
            return MoveUp(entry, subject);
        DeleteContents(directory, subject, level + 1);
        RemoveDirectory(entry, subject);
    }

    void MoveUp(const Entry& entry, const std::string& subject)
    {
        const auto name = MakeTemporaryName();
        if (renameat(entry.directory.Get(), entry.name.c_str(), top.Get(), name.c_str()) != 0)
            RefuseWithErrno(subject, errno);
        ++moved;
        if (subject.size() <= longestPath && oldPaths.size() < mostPaths)
            oldPaths.emplace(name, subject);
    }

    const Descriptor& top;
    const Caller* const caller;
    std::size_t moved = 0;                       // up, to the top
    std::map<std::string, std::string> oldPaths; // by names in the top
};

bool IsSame(const Descriptor& left, const struct stat& right)
{
    struct stat state
    {};
    return fstat(left.Get(), &state) == 0 && state.st_dev == right.st_dev &&
           state.st_ino == right.st_ino;
}

void CopyLink(const Entry& from, const Entry& to, const std::string& subject)
{
    std::array<char, PATH_MAX> target{};
    const auto length =
        readlinkat(from.directory.Get(), from.name.c_str(), target.data(), target.size() - 1);
    if (length < 0 || symlinkat(target.data(), to.directory.Get(), to.name.c_str()) != 0)
        RefuseWithErrno(subject, errno);
}

/// Returns the bits that a copy gets beside its permissions. A file must not run with the rights of
/// another owner than before, nor entries get another group.
mode_t GetSpecialBits(const struct stat& from, const struct stat& copy)
{
    const bool hasSameGroup = from.st_gid == copy.st_gid;
    const bool hasSameOwner = from.st_uid == copy.st_uid;
    const bool isSafe = hasSameGroup && (hasSameOwner || S_ISDIR(from.st_mode));
    return from.st_mode & (isSafe ? S_ISVTX | S_ISUID | S_ISGID : S_ISVTX);
}

/// Gives a copy the permissions and the time of what it was made from. A file system without them
/// (FAT) keeps its own.
void CopyAttributes(const struct stat& state, const Descriptor& to)
{
    const mode_t permissions = state.st_mode & permissionBits;
    struct stat copy
    {};
    const mode_t special = fstat(to.Get(), &copy) == 0 ? GetSpecialBits(state, copy) : 0;
    // A filter of system calls may forbid the special ones.
    if (fchmod(to.Get(), permissions | special) != 0)
        static_cast<void>(fchmod(to.Get(), permissions));
    const std::array<timespec, 2> times = {state.st_atim, state.st_mtim};
    static_cast<void>(futimens(to.Get(), times.data()));
}

/// Throws for what did not reach the disk. Not all file systems can do this for a directory.
void Sync(const Descriptor& file, const std::string& subject)
{
    if (fsync(file.Get()) != 0 && errno != EINVAL && errno != ENOTSUP)
        RefuseWithErrno(subject, errno);
}

constexpr off_t farthest = std::numeric_limits<off_t>::max();

/// A part of a file, from its first byte to behind its last; it may reach beyond the file.
struct Part
{
    off_t begin = 0;
    off_t end = 0;
};

/// Returns the first part from a position on that is no hole; an empty one behind the last.
Part FindData(const Descriptor& file, off_t position) noexcept
{
    const off_t begin = lseek(file.Get(), position, SEEK_DATA);
    if (begin < 0) // ENXIO at the end; others where holes cannot be found
        return errno == ENXIO ? Part{} : Part{position, farthest};
    const off_t end = lseek(file.Get(), begin, SEEK_HOLE);
    return {begin, end < 0 ? farthest : end};
}

/// Copies parts of a file to the same places in another.
class ContentCopy
{
public:
    ContentCopy(const Descriptor& from, const Descriptor& to, const std::string& subject,
                const Caller& caller)
        : from(from)
        , to(to)
        , subject(subject)
        , caller(caller)
    {}

    /// File systems that can share the blocks of two files do so; some copy nothing by themselves.
    void Run(Part part) const
    {
        constexpr off_t step = 16L * 1024 * 1024; // a caller who has gone is noticed between them
        while (part.begin < part.end) {
            caller.CheckGoesOn();
            off_t target = part.begin;
            const auto count =
                copy_file_range(from.Get(), &part.begin, to.Get(), &target,
                                static_cast<std::size_t>(std::min(step, part.end - part.begin)), 0);
            if (count <= 0)
                return ReadAndWrite(part);
        }
    }

    /// Ends where the file does.
    void ReadAndWrite(Part part) const
    {
        std::vector<char> buffer(256 * 1024UL);
        while (part.begin < part.end) {
            caller.CheckGoesOn();
            const auto wanted =
                std::min<off_t>(static_cast<off_t>(buffer.size()), part.end - part.begin);
            const auto count =
                pread(from.Get(), buffer.data(), static_cast<std::size_t>(wanted), part.begin);
            if (count < 0)
                RefuseWithErrno(subject, errno);
            if (count == 0)
                return;
            Write(buffer.data(), count, part.begin);
            part.begin += count;
        }
    }

private:
    void Write(const char* bytes, ssize_t size, off_t position) const
    {
        for (ssize_t written = 0; written < size;) {
            const auto count = pwrite(to.Get(), bytes + written,
                                      static_cast<std::size_t>(size - written), position + written);
            if (count < 0)
                RefuseWithErrno(subject, errno);
            written += count;
        }
    }

    const Descriptor& from;
    const Descriptor& to;
    const std::string& subject;
    const Caller& caller;
};

/// Copies trees without the directory that the copy itself begins with, which may be inside.
class TreeCopy
{
public:
    TreeCopy(CopyFor use, const Caller& caller)
        : use(use)
        , caller(caller)
    {}

    void Copy(const Descriptor& from, const Entry& to, const std::string& subject)
    {
        const auto state = GetState(from, subject);
        if (S_ISDIR(state.st_mode))
            CopyDirectory(from, state, to, subject);
        else
            CopyFile(from, state, to, subject);
    }

private:
    void CopyFile(const Descriptor& from, const struct stat& state, const Entry& to,
                  const std::string& subject) const
    {
        auto copy = OpenEntry(to.directory, to.name, O_WRONLY | O_CREAT | O_EXCL, 0600);
        if (!copy.IsOpen())
            RefuseWithErrno(subject, errno);
        CopyContent(from, copy, subject, caller);
        CopyAttributes(state, copy);
        if (use == CopyFor::Move)
            Sync(copy, subject);
        // Disks of the network tell only now that a quota is used up.
        if (close(copy.Release()) != 0)
            RefuseWithErrno(subject, errno);
    }

    void CopyDirectory(const Descriptor& from, const struct stat& state, const Entry& to,
                       const std::string& subject)
    {
        RequireLevel(++level, subject);
        if (mkdirat(to.directory.Get(), to.name.c_str(), 0700) != 0)
            RefuseWithErrno(subject, errno);
        const auto copy = OpenEntry(to.directory, to.name, O_RDONLY | O_DIRECTORY);
        if (!copy.IsOpen())
            RefuseWithErrno(subject, errno);
        if (!hasTop) {
            top = GetState(copy, subject);
            hasTop = true;
        }
        DirectoryReader reader(from, subject);
        for (DirectoryEntry entry; reader.Next(entry);) {
            caller.CheckGoesOn();
            const std::string name(entry.name);
            CopyEntry({from, name}, {copy, name}, subject);
        }
        --level;
        CopyAttributes(state, copy);
        if (use == CopyFor::Move)
            Sync(copy, subject);
    }

    void CopyEntry(const Entry& from, const Entry& to, const std::string& directory)
    {
        const std::string subject = directory + "/" + from.name;
        struct stat state
        {};
        if (fstatat(from.directory.Get(), from.name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0)
            RefuseWithErrno(subject, errno);
        if (S_ISLNK(state.st_mode))
            return CopyLink(from, to, subject);
        if (!S_ISDIR(state.st_mode) && !S_ISREG(state.st_mode))
            return LeaveOut(subject);
        const auto entry = OpenEntry(from.directory, from.name, O_RDONLY | O_NONBLOCK | O_NOCTTY);
        if (!entry.IsOpen())
            RefuseWithErrno(subject, errno);
        if (!IsSame(entry, top))
            Copy(entry, to, subject);
    }

    /// Throws for a special file that would be lost.
    void LeaveOut(const std::string& subject) const
    {
        if (use == CopyFor::Move)
            Refuse(Status::notSupported, subject,
                   "a pipe, socket or device cannot be moved to another file system");
    }

    const CopyFor use;
    const Caller& caller;
    std::size_t level = 0; // of the directories that are open
    bool hasTop = false;
    struct stat top
    {}; // of the copy
};

} // namespace

void RequireLevel(std::size_t level, const std::string& subject)
{
    if (level > deepestLevel)
        Refuse(Status::notSupported, subject,
               "directories are nested more than " + std::to_string(deepestLevel) + " deep");
}

bool EntryExists(const Entry& entry)
{
    struct stat state
    {};
    return fstatat(entry.directory.Get(), entry.name.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0;
}

void DeleteTree(const Entry& entry, const std::string& subject, const Caller* caller)
{
    const auto directory = DeleteFile(entry, subject);
    if (!directory.IsOpen())
        return;
    TreeDeletion(directory, caller).Run(subject);
    RemoveDirectory(entry, subject);
}

void RemoveTree(const Entry& entry) noexcept
{
    try {
        DeleteTree(entry, entry.name, nullptr);
    } catch (const std::exception&) { // the reason why it is unfinished says more
    }
}

void CopyContent(const Descriptor& from, const Descriptor& to, const std::string& subject,
                 const Caller& caller)
{
    const ContentCopy copy(from, to, subject, caller);
    off_t position = 0;
    off_t size = 0;
    for (;;) {
        // Before the search: what is appended after it is data, not a hole.
        size = GetState(from, subject).st_size;
        const auto data = FindData(from, position);
        if (data.begin >= data.end)
            break;
        copy.Run(data);
        position = data.end;
    }
    if (size > position && ftruncate(to.Get(), size) != 0)
        RefuseWithErrno(subject, errno);
    // Files of the kernel say that they are empty.
    if (size == 0)
        copy.ReadAndWrite({0, farthest});
}

void CopyTree(const Descriptor& from, const Entry& to, const std::string& subject, CopyFor use,
              const Caller& caller)
{
    TreeCopy(use, caller).Copy(from, to, subject);
}

bool Rename(const Entry& from, const Entry& to, bool replaces, const std::string& subject)
{
    const int fromDirectory = from.directory.Get();
    const int toDirectory = to.directory.Get();
    const unsigned int flags = replaces ? 0 : RENAME_NOREPLACE;
    if (renameat2(fromDirectory, from.name.c_str(), toDirectory, to.name.c_str(), flags) == 0)
        return true;
    if (errno == EXDEV)
        return false;
    // File systems that cannot do it atomically say that an argument is invalid.
    if (replaces || errno != EINVAL)
        RefuseWithErrno(subject, errno);
    if (EntryExists(to))
        RefuseWithErrno(subject, EEXIST);
    if (renameat(fromDirectory, from.name.c_str(), toDirectory, to.name.c_str()) != 0)
        RefuseWithErrno(subject, errno);
    return true;
}

std::string MakeTemporaryName()
{
    return ".talvensor-" + Core::Guid::Random().ToString() + ".part";
}

} // namespace FileObjects
