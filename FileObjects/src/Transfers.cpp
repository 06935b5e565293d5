#include "Transfers.h"

#include "Core/Guid.h"
#include "Log.h"
#include "Statuses.h"
#include "Trees.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace FileObjects {

namespace {

using Counter = std::shared_ptr<std::atomic<std::size_t>>;

/// Counts one temporary file as long as it lives.
class Counted
{
public:
    explicit Counted(Counter counter)
        : counter(std::move(counter))
    {
        if (this->counter->fetch_add(1) < Transfers::maximumFiles)
            return;
        this->counter->fetch_sub(1);
        Refuse(Status::resourceUnavailable, "", "there are too many temporary files");
    }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() { counter->fetch_sub(1); }

private:
    Counter counter;
};

/// Makes a file that goes with its descriptor.
Descriptor MakeUnnamed(const Descriptor& directory, const std::string& subject)
{
    Descriptor file(openat(directory.Get(), ".", O_RDWR | O_TMPFILE | O_CLOEXEC, 0600));
    if (file.IsOpen() || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) {
        if (!file.IsOpen())
            RefuseWithErrno(subject, errno);
        return file;
    }
    const std::string name = MakeTemporaryName();
    file = OpenEntry(directory, name, O_RDWR | O_CREAT | O_EXCL, 0600);
    if (!file.IsOpen() || unlinkat(directory.Get(), name.c_str(), 0) != 0)
        RefuseWithErrno(subject, errno);
    return file;
}

} // namespace

/// The name that a file is to get, and the file's name until then.
class Transfers::Target
{
public:
    Target(Counter counter, const Folders& folders, const Place& place)
        : counted(std::move(counter))
        , subject(folders.Show(place))
        , place(place)
        , directory(folders.OpenDirectoryPath(GetParent(place)))
        , name(GetName(place.path))
        , temporaryName(MakeTemporaryName())
    {}
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;
    ~Target()
    {
        if (isMade)
            unlinkat(directory.Get(), temporaryName.c_str(), 0);
    }

    [[nodiscard]] const std::string& GetSubject() const noexcept { return subject; }

    [[nodiscard]] Descriptor MakeFile()
    {
        static_cast<void>(Look());
        Descriptor file = OpenEntry(directory, temporaryName, O_RDWR | O_CREAT | O_EXCL, 0666);
        if (!file.IsOpen())
            RefuseWithErrno(subject, errno);
        isMade = true;
        return file;
    }

    /// Returns the state of the file that has the name now; nothing without one. Throws for
    /// something that is no file.
    [[nodiscard]] std::optional<struct stat> Look() const
    {
        struct stat state
        {};
        if (fstatat(directory.Get(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0)
            return std::nullopt;
        if (S_ISDIR(state.st_mode))
            RefuseWithErrno(subject, EISDIR);
        if (!S_ISREG(state.st_mode))
            Refuse(Status::notWritable, subject, "it is no regular file");
        return state;
    }

    /// Replaces the file that has the name. The name and the content are on the disk afterwards.
    void Commit(const Descriptor& file)
    {
        const auto replaced = Look();
        if (replaced && fchmod(file.Get(), replaced->st_mode & permissionBits) != 0)
            RefuseWithErrno(subject, errno);
        if (fsync(file.Get()) != 0)
            RefuseWithErrno(subject, errno);
        if (renameat(directory.Get(), temporaryName.c_str(), directory.Get(), name.c_str()) != 0)
            RefuseWithErrno(subject, errno);
        isMade = false;
        // A directory that cannot be read cannot be synced: its name comes to the disk later.
        const Descriptor readable(openat(directory.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (readable.IsOpen() && fsync(readable.Get()) != 0 && errno != EINVAL)
            RefuseWithErrno(subject, errno);
    }

private:
    const Counted counted;
    const std::string subject;
    const Place place;
    const Descriptor directory;
    const std::string name;
    const std::string temporaryName;
    bool isMade = false; // until it has a handle, then guarded by the mutex of the open file
};

Transfers::Transfers(const Folders& folders, const NodeIds& nodeIds, OpenFiles& openFiles,
                     Files& files, std::chrono::milliseconds timeout)
    : folders(folders)
    , nodeIds(nodeIds)
    , openFiles(openFiles)
    , files(files)
    , timeout(timeout)
    , count(std::make_shared<std::atomic<std::size_t>>(0))
{}

Transfers::~Transfers() = default;

void Transfers::Start(OnDropped observer)
{
    isStopping = false;
    onDropped = std::move(observer);
    thread = std::thread([this] { EndUnused(); });
}

void Transfers::Stop()
{
    {
        const std::lock_guard lock(mutex);
        isStopping = true;
    }
    condition.notify_all();
    if (thread.joinable())
        thread.join();
}

void Transfers::EndUnused()
{
    // A file ends at most a quarter of the time late.
    const auto period = timeout / 4;
    std::unique_lock lock(mutex);
    while (!isStopping) {
        if (*count == 0)
            condition.wait(lock);
        else
            condition.wait_for(lock, period);
        lock.unlock();
        EndThose(openFiles.EndUnused(std::chrono::steady_clock::now() - timeout));
        lock.lock();
    }
}

/// A model without the event is no reason to end the host.
void Transfers::TellOf(const OpenFile& dropped) const
{
    try {
        onDropped(dropped);
    } catch (const std::exception& failed) {
        Log(Core::LogLevel::Error, std::string("Cannot tell of a dropped file: ") + failed.what());
    }
}

/// Lets go of files that were not used. What was written into them is lost, so it is told.
void Transfers::EndThose(std::vector<OpenFiles::FilePointer> unused)
{
    for (auto& file : unused) {
        if (file->isWritable) {
            Log(Core::LogLevel::Notice, file->subject +
                                            ": dropped what was written for it: no call came for " +
                                            std::to_string(timeout.count()) + " ms");
            TellOf(*file);
        }
        file = nullptr;
    }
}

TemporaryFile Transfers::GenerateForRead(const Core::Value& options, const Caller& caller)
{
    const Place place = Resolve(options);
    openFiles.RequireRoom(caller.GetSession());
    auto counted = std::make_shared<Counted>(count);
    return Register(MakeSnapshot(place, caller), place, Files::modeRead, std::move(counted),
                    caller);
}

Descriptor Transfers::MakeSnapshot(const Place& place, const Caller& caller) const
{
    const std::string subject = folders.Show(place);
    Descriptor file = folders.OpenFile(place, O_RDONLY);
    const auto before = GetState(file, subject);
    openFiles.RequireReadable(ToIdentity(before), caller.GetSession(), subject);
    if (folders.IsReadOnly(place))
        return file;
    const auto directory = folders.OpenDirectoryPath(GetParent(place));
    Descriptor copy = MakeUnnamed(directory, subject);
    CopyContent(file, copy, subject, caller);
    const auto after = GetState(file, subject);
    if (before.st_size != after.st_size || before.st_mtim.tv_sec != after.st_mtim.tv_sec ||
        before.st_mtim.tv_nsec != after.st_mtim.tv_nsec)
        Refuse(Status::invalidState, subject, "the file was changed while it was copied");
    return copy;
}

TemporaryFile Transfers::GenerateForWrite(const Core::Value& options, const Caller& caller)
{
    const Place place = Resolve(options);
    folders.RequireWritable(place);
    openFiles.RequireRoom(caller.GetSession());
    const auto target = std::make_shared<Target>(count, folders, place);
    return Register(target->MakeFile(), place, Files::modeRead | Files::modeWrite, target, caller);
}

TemporaryFile Transfers::Register(Descriptor file, const Place& place, unsigned char mode,
                                  std::shared_ptr<void> companion, const Caller& caller)
{
    const Key node{NodeKind::Temporary, {place.folder, Core::Guid::Random().ToString()}, {}};
    TemporaryFile temporary{nodeIds.ToNodeId(node), 0};
    temporary.handle = files.Register(std::move(file), node, folders.Show(place), mode, caller,
                                      std::move(companion));
    const std::lock_guard lock(mutex); // the thread is not just about to wait
    condition.notify_all();
    return temporary;
}

void Transfers::CloseAndCommit(unsigned int handle, const Caller& caller)
{
    const auto file = openFiles.FindTemporary(handle, caller.GetSession());
    if (!file->isWritable)
        Refuse(Status::invalidArgument, file->subject, "the file was made for reading");
    Commit(*file, *std::static_pointer_cast<Target>(file->companion));
    static_cast<void>(openFiles.Take(handle, caller.GetSession(), file->node));
    CloseOpenFile(*file);
}

/// The file stays open if it fails, so that the client can try again.
void Transfers::Commit(OpenFile& file, Target& target)
{
    const std::lock_guard lock(file.mutex);
    file.lastUse = std::chrono::steady_clock::now();
    if (!file.descriptor.IsOpen())
        Refuse(Status::invalidArgument, file.subject, "the file is closed");
    if (const auto replaced = target.Look())
        openFiles.RequireClosed(ToIdentity(*replaced), false, target.GetSubject());
    target.Commit(file.descriptor);
}

Place Transfers::Resolve(const Core::Value& options) const
{
    if (options.GetKind() == Core::ValueKind::Text && !options.IsArray())
        return ResolvePath(options.GetText());
    if (options.GetKind() != Core::ValueKind::NodeId || options.IsArray())
        Refuse(Status::invalidArgument, "", "the options are no path and no identifier of a file");
    const auto node = nodeIds.FromNodeId(options.Get<Core::NodeId>());
    if (!node || node->kind != NodeKind::File || !node->property.empty())
        Refuse(Status::notFound, "", "there is no such file");
    return node->place;
}

Place Transfers::ResolvePath(const std::string& text) const
{
    const std::string path = text.starts_with('/') ? text.substr(1) : text;
    const auto names = folders.GetNames();
    const auto folder = std::ranges::find_if(
        names, [&path](const std::string& name) { return path.starts_with(name + "/"); });
    if (folder == names.end())
        Refuse(Status::notFound, text, "the path begins with no folder of the host");
    Place place{static_cast<std::size_t>(folder - names.begin()), path.substr(folder->size() + 1)};
    if (!IsFilePath(place.path))
        Refuse(Status::invalidArgument, text, "no file can have this path");
    return place;
}

} // namespace FileObjects
