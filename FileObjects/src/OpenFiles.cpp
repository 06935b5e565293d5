#include "OpenFiles.h"

#include "Statuses.h"

#include <algorithm>
#include <utility>

namespace FileObjects {

unsigned int OpenFiles::Add(FilePointer file)
{
    const std::lock_guard lock(mutex);
    if (isClosed)
        Refuse(Status::shutdown, "", "the file system is stopped");
    RequireRoomLocked(file->session);
    const auto known = users.find(file->identity);
    const Users present = known == users.end() ? Users() : known->second;
    if (file->isWritable && present.readers + present.writers > 0)
        Refuse(Status::notWritable, file->subject, "the file is open already");
    if (present.writers > 0)
        Refuse(Status::notReadable, file->subject, "the file is open for writing");
    unsigned int handle = 0;
    do
        handle = random();
    while (handle == 0 || files.contains(handle));
    auto& counted = users[file->identity];
    ++(file->isWritable ? counted.writers : counted.readers);
    ++sessions[file->session];
    file->handle = handle;
    files.emplace(handle, std::move(file));
    return handle;
}

OpenFiles::FilePointer OpenFiles::Find(unsigned int handle, const Core::NodeId& session,
                                       const Key& node)
{
    const std::lock_guard lock(mutex);
    return Require(handle, session, node)->second;
}

OpenFiles::FilePointer OpenFiles::FindTemporary(unsigned int handle, const Core::NodeId& session)
{
    const std::lock_guard lock(mutex);
    const auto found = files.find(handle);
    if (found == files.end() || !(found->second->session == session) ||
        found->second->node.kind != NodeKind::Temporary)
        Refuse(Status::invalidArgument, "",
               "this session has no temporary file with such a handle");
    return found->second;
}

OpenFiles::FilePointer OpenFiles::FindNode(const Key& node)
{
    const std::lock_guard lock(mutex);
    const auto found = std::ranges::find_if(
        files, [&node](const auto& each) { return each.second->node == node; });
    return found == files.end() ? nullptr : found->second;
}

OpenFiles::FilePointer OpenFiles::Take(unsigned int handle, const Core::NodeId& session,
                                       const Key& node)
{
    const std::lock_guard lock(mutex);
    const auto found = Require(handle, session, node);
    auto file = std::move(found->second);
    files.erase(found);
    Release(*file);
    return file;
}

/// REQUIRES: mutex held.
OpenFiles::Files::iterator OpenFiles::Require(unsigned int handle, const Core::NodeId& session,
                                              const Key& node)
{
    const auto found = files.find(handle);
    if (found == files.end() || !(found->second->session == session) ||
        !(found->second->node == node))
        Refuse(Status::invalidArgument, "", "this session has no such handle of this file");
    return found;
}

void OpenFiles::RequireRoom(const Core::NodeId& session)
{
    const std::lock_guard lock(mutex);
    RequireRoomLocked(session);
}

/// REQUIRES: mutex held.
void OpenFiles::RequireRoomLocked(const Core::NodeId& session) const
{
    const auto found = sessions.find(session);
    if (found != sessions.end() && found->second >= maximumOfSession)
        Refuse(Status::resourceUnavailable, "",
               "the session has " + std::to_string(maximumOfSession) + " open files already");
}

void OpenFiles::RequireClosed(const FileIdentity& identity, bool onlyWriters,
                              const std::string& subject)
{
    const std::lock_guard lock(mutex);
    const auto found = users.find(identity);
    if (found != users.end() && (found->second.writers > 0 || !onlyWriters))
        Refuse(Status::invalidState, subject, "the file is open");
}

void OpenFiles::RequireReadable(const FileIdentity& identity, const Core::NodeId& session,
                                const std::string& subject)
{
    const std::lock_guard lock(mutex);
    const bool isWritten = std::ranges::any_of(files, [&](const auto& each) {
        const OpenFile& file = *each.second;
        return file.isWritable && file.identity == identity && !(file.session == session);
    });
    if (isWritten)
        Refuse(Status::notReadable, subject, "the file is open for writing");
}

void OpenFiles::RequireClosedBelow(const Place& directory, bool onlyWriters,
                                   const std::string& subject)
{
    const std::lock_guard lock(mutex);
    for (const auto& [handle, file] : files)
        if ((file->isWritable || !onlyWriters) && file->node.kind == NodeKind::File &&
            IsBelow(file->node.place, directory))
            Refuse(Status::invalidState, subject, file->subject + " is open");
}

std::size_t OpenFiles::Count(const FileIdentity& identity)
{
    const std::lock_guard lock(mutex);
    const auto found = users.find(identity);
    return found == users.end() ? 0 : found->second.readers + found->second.writers;
}

std::vector<OpenFiles::FilePointer> OpenFiles::EndSession(const Core::NodeId& session)
{
    return End([&session](const OpenFile& file) { return file.session == session; });
}

std::vector<OpenFiles::FilePointer>
OpenFiles::EndUnused(std::chrono::steady_clock::time_point since)
{
    return End([since](OpenFile& file) {
        if (file.node.kind != NodeKind::Temporary)
            return false;
        const std::unique_lock use(file.mutex, std::try_to_lock); // a file in use is used
        return use.owns_lock() && file.lastUse < since;
    });
}

std::vector<OpenFiles::FilePointer> OpenFiles::Close()
{
    {
        const std::lock_guard lock(mutex);
        isClosed = true;
    }
    return End([](const OpenFile&) { return true; });
}

void OpenFiles::Open()
{
    const std::lock_guard lock(mutex);
    isClosed = false;
}

template <typename Predicate>
std::vector<OpenFiles::FilePointer> OpenFiles::End(Predicate&& predicate)
{
    std::vector<FilePointer> ended;
    const std::lock_guard lock(mutex);
    for (auto each = files.begin(); each != files.end();) {
        if (!predicate(*each->second)) {
            ++each;
            continue;
        }
        Release(*each->second);
        ended.push_back(std::move(each->second));
        each = files.erase(each);
    }
    return ended;
}

/// REQUIRES: mutex held.
void OpenFiles::Release(const OpenFile& file)
{
    auto& counted = users.at(file.identity);
    --(file.isWritable ? counted.writers : counted.readers);
    if (counted.readers + counted.writers == 0)
        users.erase(file.identity);
    if (--sessions.at(file.session) == 0)
        sessions.erase(file.session);
}

} // namespace FileObjects
