#include "Core/Exception.h"
#include "FileObjectsBehaviour.h"
#include "Identifiers.h"
#include "Statuses.h"

#include <array>
#include <cerrno>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

namespace FileObjects {

namespace {

constexpr const char* transferName = "TemporaryFileTransfer";

/// Returns a number that changes with the entries of a directory. Two changes within the resolution
/// of a file system's clock leave the same time behind, so a directory that was changed only just
/// has another number each time.
std::uint64_t GetVersion(const struct stat& state)
{
    constexpr long coarsestClock = 2; // seconds, of FAT
    static std::atomic<std::uint64_t> unique{1};
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (state.st_mtim.tv_sec + coarsestClock >= now.tv_sec)
        return (std::uint64_t{1} << 63U) | unique.fetch_add(1);
    std::uint64_t version = 14695981039346656037U; // FNV-1a
    for (const auto part :
         {static_cast<std::uint64_t>(state.st_mtim.tv_sec),
          static_cast<std::uint64_t>(state.st_mtim.tv_nsec),
          static_cast<std::uint64_t>(state.st_ino), static_cast<std::uint64_t>(state.st_dev)})
        for (unsigned int shift = 0; shift < 64; shift += 8)
            version = (version ^ ((part >> shift) & 0xFFU)) * 1099511628211U;
    return version >> 1U;
}

/// Hands keys over in chunks.
class KeyChunks
{
public:
    explicit KeyChunks(Core::IEntryList& entries)
        : entries(entries)
    {}

    void Add(std::string key)
    {
        constexpr std::size_t chunkSize = 256;
        if (key.empty()) // too long
            return;
        keys.push_back(std::move(key));
        if (keys.size() == chunkSize)
            Flush();
    }

    void Flush()
    {
        if (!keys.empty())
            entries.Append(std::exchange(keys, {}));
    }

private:
    Core::IEntryList& entries;
    std::vector<std::string> keys;
};

} // namespace

std::optional<Core::ProvidedNode> FileObjectsBehaviour::Describe(const std::string& key) const
{
    const auto described = keys.Parse(key);
    if (!described || described->kind == NodeKind::FileSystem)
        return std::nullopt;
    const bool hasFolder = described->kind != NodeKind::Transfer;
    const auto lane = hasFolder ? static_cast<unsigned int>(described->place.folder) + 1 : 0U;
    std::optional<Core::ProvidedNode> result;
    if (!described->property.empty()) {
        result = Properties::Describe(described->kind, described->property, namespaceIndex);
        if (!result)
            return std::nullopt;
        result->parent = keys.Format({described->kind, described->place, {}});
        result->lane = lane;
        return result;
    }
    result.emplace();
    result->type = GetType(described->kind);
    result->lane = lane;
    const Place& place = described->place;
    if (described->kind == NodeKind::Temporary)
        result->parent = keys.Format({NodeKind::Transfer, {}, {}});
    else if (hasFolder && !place.path.empty())
        result->parent = keys.Format({NodeKind::Directory, GetParent(place), {}});
    const std::string name = !hasFolder           ? transferName
                             : place.path.empty() ? folders.Show(place)
                                                  : GetName(place.path);
    result->browseName = {namespaceIndex, name};
    return result;
}

Core::NodeId FileObjectsBehaviour::GetType(NodeKind kind) const
{
    switch (kind) {
    case NodeKind::FileSystem:
        return {namespaceIndex, ObjectType::fileSystem};
    case NodeKind::Directory:
        return {namespaceIndex, ObjectType::directory};
    case NodeKind::Transfer:
        return {namespaceIndex, ObjectType::fileTransfer};
    case NodeKind::File:
    case NodeKind::Temporary:
        break;
    }
    return {namespaceIndex, ObjectType::file};
}

std::vector<std::string> FileObjectsBehaviour::GetMembers(const std::string& key) const
{
    const auto object = keys.Parse(key);
    std::vector<std::string> members;
    if (!object || !object->property.empty())
        return members;
    for (auto& name : Properties::GetNames(object->kind))
        members.push_back(keys.Format({object->kind, object->place, std::move(name)}));
    if (object->kind == NodeKind::FileSystem)
        members.push_back(keys.Format({NodeKind::Transfer, {}, {}}));
    return members;
}

bool FileObjectsBehaviour::Exists(const std::string& key)
{
    auto sought = keys.Parse(key);
    if (!sought || (!sought->property.empty() && !Describe(key)))
        return false;
    sought->property.clear();
    if (sought->kind == NodeKind::Temporary)
        return openFiles.FindNode(*sought) != nullptr;
    const bool isConfigured = sought->place.path.empty(); // a folder may be missing on the disk
    return isConfigured || folders.Exists(sought->kind, sought->place);
}

void FileObjectsBehaviour::List(const std::string& key, Core::IEntryList& entries)
{
    const auto directory = keys.Parse(key);
    if (!directory || !directory->property.empty())
        Refuse(Status::notFound, "", "there is no such directory");
    if (directory->kind == NodeKind::Directory)
        return ListDirectory(directory->place, entries);
    if (directory->kind != NodeKind::FileSystem)
        return;
    KeyChunks chunks(entries);
    for (std::size_t i = 0; i < folders.GetSize(); ++i)
        chunks.Add(keys.Format({NodeKind::Directory, {i, {}}, {}}));
    chunks.Flush();
}

void FileObjectsBehaviour::ListDirectory(const Place& place, Core::IEntryList& entries) const
{
    const std::string subject = folders.Show(place);
    const auto directory = folders.OpenDirectory(place);
    if (!entries.IsNeeded(GetVersion(GetState(directory, subject))))
        return;
    const std::string directoryPrefix = keys.MakePrefix(NodeKind::Directory, place);
    const std::string filePrefix = keys.MakePrefix(NodeKind::File, place);
    KeyChunks chunks(entries);
    DirectoryReader reader(directory, subject);
    NodeKind kind = NodeKind::File;
    for (DirectoryEntry entry; reader.Next(entry);)
        if (IsListed(directory, place, entry, kind))
            chunks.Add(Keys::FormatChild(kind == NodeKind::Directory ? directoryPrefix : filePrefix,
                                         entry.name));
    chunks.Flush();
}

bool FileObjectsBehaviour::IsListed(const Descriptor& directory, const Place& place,
                                    const DirectoryEntry& entry, NodeKind& kind) const
{
    unsigned char type = entry.type;
    const std::string name(entry.name);
    if (type == DT_UNKNOWN) {
        struct stat state
        {};
        if (fstatat(directory.Get(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0)
            return false;
        type = static_cast<unsigned char>(IFTODT(state.st_mode));
    }
    if (type == DT_LNK) {
        // A link counts as the file or directory that it leads to.
        const Place target = GetChild(place, name);
        if (folders.Exists(NodeKind::Directory, target))
            type = DT_DIR;
        else if (folders.Exists(NodeKind::File, target))
            type = DT_REG;
    }
    kind = type == DT_DIR ? NodeKind::Directory : NodeKind::File;
    return type == DT_DIR || type == DT_REG;
}

Core::Value FileObjectsBehaviour::Read(const std::string& key)
{
    const auto property = keys.Parse(key);
    if (!property)
        Refuse(Status::notFound, "", "there is no such property");
    return properties.Read(*property);
}

} // namespace FileObjects
