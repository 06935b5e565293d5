#include "FileSystemBehaviour.h"

#include "EventValues.h"
#include "FileTypes.h"
#include "ModuleIdentifiers.h"
#include "RelativePaths.h"
#include "TreeRemoval.h"

#include <boost/filesystem.hpp>

#include <sys/stat.h>
#include <utility>

namespace FileSystem {

namespace {

namespace fs = boost::filesystem;

/// The findings of a walk about an entry.
struct EntryStatus
{
    bool isListed = false; ///< true for a regular file, a directory, or a link to one
    bool isDirectory = false;
    bool isLink = false;    ///< true for an entry that may be a link
    std::int64_t time = -1; ///< last modification; -1 when it cannot be read
};

EntryStatus ReadTargetStatus(const fs::directory_entry& entry)
{
    boost::system::error_code error;
    const fs::file_type type = entry.status(error).type();
    if (type != fs::directory_file && type != fs::regular_file)
        return {};
    return {true, type == fs::directory_file, true,
            FileSystemBehaviour::GetDateTime(entry.path().string())};
}

/// Asks the file system once about an entry that is no link, as most are not.
EntryStatus ReadEntryStatus(const fs::directory_entry& entry)
{
    struct stat status = {};
    if (::lstat(entry.path().c_str(), &status) != 0 || S_ISLNK(status.st_mode))
        return ReadTargetStatus(entry);
    const bool isDirectory = S_ISDIR(status.st_mode);
    return {isDirectory || S_ISREG(status.st_mode), isDirectory, false, status.st_mtime};
}

Core::DateTime MakeEntryTime(std::int64_t time)
{
    return time == -1 ? Core::DateTime() : Core::DateTime::FromUnixEpochTime(time);
}

/// Shows `visit(path, status, depth)` every regular file and directory below an existing directory,
/// each directory before its contents. Follows links; passes over everything else, such as links to
/// nowhere and links in circles.
template <typename Visit>
bool Walk(const fs::path& directory, bool recursive, Visit&& visit, std::size_t depth = 0)
{
    if (!PathExists(directory))
        return false;
    for (fs::directory_iterator entry(directory), end; entry != end; ++entry) {
        const EntryStatus status = ReadEntryStatus(*entry);
        if (!status.isListed)
            continue;
        visit(entry->path(), status, depth);
        if (recursive && status.isDirectory)
            Walk(entry->path(), recursive, visit, depth + 1);
    }
    return true;
}

Core::Struct MakeListItem(std::string path, const Core::DateTime& dateTime, bool isDirectory)
{
    std::vector<Core::Value> fields;
    fields.reserve(3);
    fields.emplace_back(std::move(path));
    fields.emplace_back(dateTime);
    fields.emplace_back(isDirectory);
    Core::Struct result(std::move(fields));
    result.SetDataTypeId(DataTypes::ListItem());
    return result;
}

} // namespace

void FileSystemBehaviour::Exists(const std::string& path)
{
    const bool exists = PathExists(path);
    auto values = MakeEventValues(*existsResultEventType, existsEventTypeIndex);
    values.at(existsExistIndex) = Core::Value(exists);
    GetNodeObject()->RaiseEvent(existsResultEventType, values);
}

void FileSystemBehaviour::CreateDirectory(const std::string& path)
{
    if (!PathExists(path)) {
        boost::system::error_code ignored;
        fs::create_directories(path, ignored);
    }
    GetNodeObject()->RaiseEvent(
        createDirectoryResultEventType,
        MakeEventValues(*createDirectoryResultEventType, createDirectoryEventTypeIndex));
}

void FileSystemBehaviour::Delete(const std::vector<std::string>& paths)
{
    for (const auto& path : paths) {
        boost::system::error_code ignored;
        if (GetFileType(path) == fs::directory_file)
            RemoveTree(path);
        else
            fs::remove(path, ignored);
    }
    GetNodeObject()->RaiseEvent(deleteResultEventType,
                                MakeEventValues(*deleteResultEventType, deleteEventTypeIndex));
}

bool FileSystemBehaviour::List(const std::string& rootDirectory, std::vector<ListItem>& items,
                               bool recursive)
{
    return Walk(
        rootDirectory, recursive,
        [&items](const fs::path& path, const EntryStatus& status, std::size_t) {
            items.push_back({path.string(), MakeEntryTime(status.time), status.isDirectory});
        });
}

void FileSystemBehaviour::List(const std::string& rootDirectory, bool recursive)
{
    // Walks to the end, to meet a failure further on, but keeps no more entries than one event
    // carries.
    std::vector<Core::Struct> content;
    RelativePaths paths(rootDirectory);
    bool limitExceeded = false;
    Walk(rootDirectory, recursive,
         [&](const fs::path& path, const EntryStatus& status, std::size_t depth) {
             limitExceeded = content.size() == maximumBlock;
             if (!limitExceeded)
                 content.push_back(
                     MakeListItem(paths.Get(path, status.isDirectory, status.isLink, depth),
                                  MakeEntryTime(status.time), status.isDirectory));
         });
    auto values = MakeEventValues(*listResultEventType, listEventTypeIndex);
    values.at(listContentIndex) = Core::Value(std::move(content));
    values.at(listLimitExceededIndex) = Core::Value(limitExceeded);
    GetNodeObject()->RaiseEvent(listResultEventType, values);
}

} // namespace FileSystem
