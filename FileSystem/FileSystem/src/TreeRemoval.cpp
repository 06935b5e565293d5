#include "TreeRemoval.h"

#include "Core/Guid.h"

#include <cerrno>
#include <cstddef>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace FileSystem {

namespace {

/// The levels of directories that are open at once.
constexpr std::size_t deepest = 128;

/// The rounds through a directory that another process may be filling: more than file systems need
/// that lose their place.
constexpr std::size_t mostRounds = 100;

struct CloseDirectory
{
    void operator()(DIR* directory) const noexcept { closedir(directory); }
};

using Directory = std::unique_ptr<DIR, CloseDirectory>;

/// Opens no link. Null, and errno, if that fails.
Directory OpenDirectory(int parent, const char* name)
{
    const int descriptor =
        openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0)
        return nullptr;
    Directory result(fdopendir(descriptor));
    if (!result)
        close(descriptor);
    return result;
}

bool IsGone() noexcept
{
    return errno == ENOENT;
}

/// All operations return false when something is left.
class TreeRemoval
{
public:
    explicit TreeRemoval(DIR& top)
        : top(top)
    {}

    [[nodiscard]] bool Run() { return Empty(top, 1); }

private:
    /// Makes another round after one that removed something: some file systems lose their place in
    /// a directory that changes, and the top gets what was moved up. Another process that keeps
    /// making files does not hold it for ever.
    [[nodiscard]] bool Empty(DIR& directory, std::size_t level)
    {
        for (std::size_t rounds = 0; rounds < mostRounds; ++rounds) {
            const auto removedBefore = removed;
            const auto movedBefore = moved;
            if (!RemoveEntries(directory, level))
                return false;
            if (removed == removedBefore)
                break;
            if (level == 1 && moved != movedBefore)
                rounds = 0;
        }
        return true; // removing the directory fails if something is left
    }

    [[nodiscard]] bool RemoveEntries(DIR& directory, std::size_t level)
    {
        rewinddir(&directory);
        // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread reads this directory's stream
        while (const dirent* const entry = readdir(&directory)) {
            const std::string name(entry->d_name);
            if (name != "." && name != ".." && !Remove(dirfd(&directory), name, level))
                return false;
        }
        return true;
    }

    [[nodiscard]] bool Remove(int parent, const std::string& name, std::size_t level)
    {
        if (Count(unlinkat(parent, name.c_str(), 0)))
            return true;
        if (level == deepest)
            return MoveUp(parent, name);
        const Directory directory = OpenDirectory(parent, name.c_str());
        if (!directory)
            return IsGone();
        return Empty(*directory, level + 1) && Count(unlinkat(parent, name.c_str(), AT_REMOVEDIR));
    }

    /// Something that somebody else removed is no failure.
    [[nodiscard]] bool Count(int result)
    {
        if (result != 0)
            return IsGone();
        ++removed;
        return true;
    }

    /// The top removes what lies too deep.
    [[nodiscard]] bool MoveUp(int parent, const std::string& name)
    {
        const auto newName = ".talvensor-" + Core::Guid::Random().ToString() + ".part";
        if (renameat(parent, name.c_str(), dirfd(&top), newName.c_str()) != 0)
            return IsGone();
        ++removed;
        ++moved;
        return true;
    }

    DIR& top;
    std::size_t removed = 0; // or moved up
    std::size_t moved = 0;
};

} // namespace

void RemoveTree(const std::string& path)
{
    if (unlink(path.c_str()) == 0)
        return;
    const Directory directory = OpenDirectory(AT_FDCWD, path.c_str());
    if (directory && TreeRemoval(*directory).Run())
        rmdir(path.c_str());
}

} // namespace FileSystem
