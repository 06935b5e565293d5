#include "Directories.h"

#include "Core/Exception.h"
#include "DirectoryReader.h"
#include "Statuses.h"
#include "Times.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace FileObjects {

namespace {

void RequireName(const std::string& name)
{
    if (!IsFileName(name))
        Refuse(Status::browseNameInvalid, name, "no file can have this name");
}

/// True if a file is there, but must not be opened in some way: for its permissions, or now, for a
/// lease or because it is a running program.
bool MustNotBeOpened(const Core::StatusException& refusal) noexcept
{
    return refusal.GetStatus() == Status::userAccessDenied ||
           refusal.GetStatus() == Status::invalidState;
}

/// Adds the entries of a directory to a page.
class ListingBuilder
{
public:
    ListingBuilder(const Folders& folders, const Place& place, const Descriptor& directory,
                   Listed listed)
        : folders(folders)
        , place(place)
        , directory(directory)
        , listed(listed)
    {}

    void Add(const DirectoryEntry& entry)
    {
        const std::string name(entry.name);
        Look look = LookAt(entry.type, name);
        const bool isDirectory = look.isKnown && S_ISDIR(look.state.st_mode);
        const bool isOther = !isDirectory && !(look.isKnown && S_ISREG(look.state.st_mode));
        if (look.isGone || (isOther && listed == Listed::FilesAndDirectories))
            return;
        unsigned char kind = isDirectory ? Listing::directory : Listing::file;
        if (isOther)
            kind = Listing::other;
        if (look.isLink && listed == Listed::Everything)
            kind |= Listing::link;
        textSize += name.size();
        listing.names.push_back(name);
        listing.kinds.push_back(kind);
        listing.sizes.push_back(
            isDirectory || isOther ? 0 : static_cast<unsigned long>(look.state.st_size));
        listing.times.push_back(look.isKnown ? ToDateTime(look.state.st_mtim) : Core::DateTime());
        listing.permissions.push_back(look.state.st_mode & permissionBits);
    }

    [[nodiscard]] bool IsFull(std::size_t maximum) const
    {
        constexpr std::size_t maximumText = 4UL * 1024 * 1024; // a message has room for it
        return listing.names.size() >= maximum || textSize >= maximumText;
    }

    [[nodiscard]] Listing& Get() noexcept { return listing; }

private:
    /// The state of an entry.
    struct Look
    {
        bool isLink = false;
        bool isGone = false;  ///< deleted since the directory was read
        bool isKnown = false; ///< otherwise there is no state
        struct stat state
        {};
    };

    /// A link counts as the file or directory that it leads to.
    [[nodiscard]] Look LookAt(unsigned char type, const std::string& name) const
    {
        Look look;
        look.isLink = type == DT_LNK;
        if (!look.isLink) {
            look.isKnown =
                fstatat(directory.Get(), name.c_str(), &look.state, AT_SYMLINK_NOFOLLOW) == 0;
            look.isGone = !look.isKnown && errno == ENOENT;
            look.isLink = look.isKnown && S_ISLNK(look.state.st_mode);
        }
        if (look.isLink)
            Follow(name, look);
        return look;
    }

    void Follow(const std::string& name, Look& look) const
    {
        look.isKnown = false;
        look.state = {};
        try {
            look.state = folders.GetState(GetChild(place, name));
            look.isKnown = true;
        } catch (const Core::StatusException&) { // NOLINT(bugprone-empty-catch)
            // It leads nowhere, out or to a special file.
        }
    }

    const Folders& folders;
    const Place& place;
    const Descriptor& directory;
    const Listed listed;
    Listing listing;
    std::size_t textSize = 0;
};

} // namespace

Directories::Directories(const Folders& folders, const NodeIds& nodeIds, OpenFiles& openFiles,
                         Files& files)
    : folders(folders)
    , nodeIds(nodeIds)
    , openFiles(openFiles)
    , files(files)
{}

Core::NodeId Directories::CreateDirectory(const Key& directory, const std::string& name)
{
    RequireChangeable(directory);
    RequireName(name);
    const Key created{NodeKind::Directory, GetChild(directory.place, name), {}};
    auto id = nodeIds.ToNodeId(created);
    const auto parent = folders.OpenDirectoryPath(directory.place);
    if (mkdirat(parent.Get(), name.c_str(), 0777) != 0)
        RefuseWithErrno(folders.Show(created.place), errno);
    return id;
}

CreatedFile Directories::CreateFile(const Key& directory, const std::string& name, bool isOpened,
                                    const Caller& caller)
{
    RequireChangeable(directory);
    RequireName(name);
    if (isOpened)
        openFiles.RequireRoom(caller.GetSession());
    const Key node{NodeKind::File, GetChild(directory.place, name), {}};
    const std::string subject = folders.Show(node.place);
    CreatedFile created{nodeIds.ToNodeId(node), 0};
    const auto parent = folders.OpenDirectoryPath(directory.place);
    Descriptor file = OpenEntry(parent, name, O_RDWR | O_CREAT | O_EXCL, 0666);
    if (!file.IsOpen())
        RefuseWithErrno(subject, errno);
    if (isOpened)
        created.handle = files.Register(std::move(file), node, subject,
                                        Files::modeRead | Files::modeWrite, caller);
    return created;
}

void Directories::Delete(const Key& directory, const Core::NodeId& object, const Caller& caller)
{
    RequireChangeable(directory);
    const Key node = RequireChild(directory, object);
    const std::string subject = folders.Show(node.place);
    const auto state = folders.GetState(node.kind, node.place);
    openFiles.RequireClosed(ToIdentity(state), false, subject);
    openFiles.RequireClosedBelow(node.place, false, subject);
    folders.RequireWritableBelow(node.place);
    const auto parent = folders.OpenDirectoryPath(directory.place);
    DeleteTree({parent, GetName(node.place.path)}, subject, &caller);
}

Core::NodeId Directories::MoveOrCopy(const Key& directory, const Core::NodeId& object,
                                     const Core::NodeId& target, bool isCopied,
                                     const std::string& newName, const Caller& caller)
{
    const Key from = RequireChild(directory, object);
    if (!isCopied)
        RequireChangeable(directory);
    const Key to = RequireTarget(from, target, newName);
    auto id = nodeIds.ToNodeId(to);
    Put(from, to.place, {.isCopied = isCopied, .replaces = false}, caller);
    return id;
}

void Directories::Put(const Key& from, const Place& to, const Placing& placing,
                      const Caller& caller)
{
    const auto parent = OpenTarget(from, to, placing);
    const Entry entry{parent, GetName(to.path)};
    const bool replaces = placing.replaces && from.kind == NodeKind::File;
    if (placing.isCopied)
        return Copy(from, entry, replaces, CopyFor::Copy, caller);
    if (placing.syncs && from.kind == NodeKind::File)
        Sync(from.place);
    Move(from, entry, replaces, caller);
}

Descriptor Directories::OpenForSync(const Key& from, const Place& to, const Placing& placing)
{
    static_cast<void>(OpenTarget(from, to, placing));
    return from.kind == NodeKind::File ? OpenForSync(from.place) : Descriptor();
}

/// Opens the directory of the new place. Throws what is known to stand against it.
Descriptor Directories::OpenTarget(const Key& from, const Place& to, const Placing& placing)
{
    const std::string subject = folders.Show(from.place);
    const bool isDirectory = from.kind == NodeKind::Directory;
    if (isDirectory && IsBelow(to, from.place))
        Refuse(Status::invalidArgument, subject, "a directory cannot be put into itself");
    const auto state = folders.GetState(from.kind, from.place);
    openFiles.RequireClosed(ToIdentity(state), placing.isCopied, subject);
    openFiles.RequireClosedBelow(from.place, placing.isCopied, subject);
    if (!placing.isCopied)
        folders.RequireWritableBelow(from.place);
    auto parent = folders.OpenDirectoryPath(GetParent(to));
    RequireFree(state, {parent, GetName(to.path)}, to, placing.replaces && !isDirectory);
    return parent;
}

/// Throws for a name that is taken by something that is not replaced.
void Directories::RequireFree(const struct stat& from, const Entry& entry, const Place& to,
                              bool replaces)
{
    const std::string subject = folders.Show(to);
    struct stat state
    {};
    if (fstatat(entry.directory.Get(), entry.name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0)
        return;
    if (!replaces)
        RefuseWithErrno(subject, EEXIST);
    if (S_ISDIR(state.st_mode))
        RefuseWithErrno(subject, EISDIR);
    // The system would rename nothing, and call that a success.
    if (ToIdentity(state) == ToIdentity(from))
        Refuse(Status::invalidArgument, subject, "it is the same file");
    openFiles.RequireClosed(ToIdentity(state), false, subject);
}

Descriptor Directories::OpenForSync(const Place& file) const
{
    for (const int way : {O_RDONLY, O_WRONLY}) {
        try {
            return folders.OpenFile(file, way);
        } catch (const Core::StatusException& refusal) {
            if (!MustNotBeOpened(refusal))
                throw;
        }
    }
    return folders.OpenDirectory(GetParent(file));
}

void Directories::Sync(const Place& file) const
{
    const std::string subject = folders.Show(file);
    const auto opened = OpenForSync(file);
    const bool isDirectory = S_ISDIR(FileObjects::GetState(opened, subject).st_mode);
    if ((isDirectory ? syncfs(opened.Get()) : fsync(opened.Get())) != 0)
        RefuseWithErrno(subject, errno);
}

void Directories::Copy(const Key& from, const Entry& to, bool replaces, CopyFor use,
                       const Caller& caller) const
{
    const std::string subject = folders.Show(from.place);
    const Descriptor source = from.kind == NodeKind::Directory
                                  ? folders.OpenDirectory(from.place)
                                  : folders.OpenFile(from.place, O_RDONLY);
    const Entry copy{to.directory, MakeTemporaryName()};
    try {
        CopyTree(source, copy, subject, use, caller);
        static_cast<void>(Rename(copy, to, replaces, subject));
    } catch (...) {
        RemoveTree(copy);
        throw;
    }
}

void Directories::Move(const Key& from, const Entry& to, bool replaces, const Caller& caller) const
{
    const auto parent = folders.OpenDirectoryPath(GetParent(from.place));
    const Entry entry{parent, GetName(from.place.path)};
    const std::string subject = folders.Show(from.place);
    if (Rename(entry, to, replaces, subject))
        return;
    Copy(from, to, replaces, CopyFor::Move, caller);
    DeleteTree(entry, subject, &caller);
}

Space Directories::GetSpace(const Key& node) const
{
    if (node.kind == NodeKind::FileSystem)
        Refuse(Status::notSupported, "", "ask the directories below: each has a space of its own");
    const auto path = folders.OpenPath(node.kind, node.place);
    struct statvfs state
    {};
    if (fstatvfs(path.Get(), &state) != 0)
        RefuseWithErrno(folders.Show(node.place), errno);
    return {state.f_blocks * state.f_frsize, state.f_bavail * state.f_frsize};
}

Listing Directories::List(const Key& directory, std::uint64_t start, std::size_t maximum,
                          Listed listed, const Caller& caller) const
{
    if (directory.kind == NodeKind::FileSystem)
        return ListFolders();
    if (maximum == 0 || maximum > maximumPage)
        maximum = maximumPage;
    const auto opened = folders.OpenDirectory(directory.place);
    DirectoryReader reader(opened, folders.Show(directory.place));
    if (start != 0)
        reader.Seek(start);
    ListingBuilder builder(folders, directory.place, opened, listed);
    for (DirectoryEntry entry; reader.Next(entry);) {
        builder.Add(entry);
        if (builder.IsFull(maximum)) {
            builder.Get().next = entry.next;
            break;
        }
        if (builder.Get().names.size() % 1024 == 0)
            caller.CheckGoesOn();
    }
    return std::move(builder.Get());
}

Listing Directories::ListFolders() const
{
    Listing listing;
    listing.names = folders.GetNames();
    for (std::size_t i = 0; i < folders.GetSize(); ++i) {
        listing.kinds.push_back(Listing::directory);
        listing.sizes.push_back(0);
        listing.times.emplace_back();
        listing.permissions.push_back(0);
    }
    return listing;
}

void Directories::RequireChangeable(const Key& directory) const
{
    if (directory.kind == NodeKind::FileSystem)
        Refuse(Status::userAccessDenied, "", "the folders are those of the host's configuration");
    folders.RequireWritable(directory.place);
}

/// Throws Bad_NotFound for everything but a file or directory right below.
Key Directories::RequireChild(const Key& directory, const Core::NodeId& object) const
{
    auto node = nodeIds.FromNodeId(object);
    const bool isFileOrDirectory =
        node && node->property.empty() &&
        (node->kind == NodeKind::File || node->kind == NodeKind::Directory);
    if (!isFileOrDirectory)
        Refuse(Status::notFound, "", "there is no such file or directory here");
    const bool isFolder = node->place.path.empty();
    if (directory.kind == NodeKind::FileSystem && isFolder)
        RequireChangeable(directory);
    if (directory.kind == NodeKind::FileSystem || isFolder ||
        !(GetParent(node->place) == directory.place))
        Refuse(Status::notFound, folders.Show(node->place), "it is not in this directory");
    return *node;
}

Key Directories::RequireTarget(const Key& from, const Core::NodeId& target,
                               const std::string& newName) const
{
    const auto directory = nodeIds.FromNodeId(target);
    const bool isDirectory =
        directory && directory->property.empty() &&
        (directory->kind == NodeKind::Directory || directory->kind == NodeKind::FileSystem);
    if (!isDirectory)
        Refuse(Status::invalidArgument, "", "the target is no directory");
    RequireChangeable(*directory);
    const std::string name = newName.empty() ? GetName(from.place.path) : newName;
    RequireName(name);
    return {from.kind, GetChild(directory->place, name), {}};
}

} // namespace FileObjects
