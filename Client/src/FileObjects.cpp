#include "Client/FileObjects.h"

#include "ObjectCaller.h"
#include "PrivateNode.h"
#include "StatusWords.h"
#include "Tally.h"

#include <algorithm>

namespace Client {

namespace {

void CheckPaths(const std::vector<std::string>& paths)
{
    std::for_each(paths.begin(), paths.end(), CheckPath);
}

/// Does what is not done again after a lost connection.
template <typename Function>
auto DoOnce(const char* what, const Function& function)
{
    try {
        return function();
    } catch (const CallsLost&) {
        throw ConnectionLostException("the connection was lost while " + std::string(what) +
                                      "; the server may have done a part of it");
    }
}

} // namespace

bool FileObjects::AreOffered() const noexcept
{
    return connection.engine->OffersObjects();
}

std::vector<EntryState> FileObjects::GetStates(const std::vector<std::string>& paths,
                                               const Cancellation* cancellation)
{
    CheckPaths(paths);
    return ObjectCaller(*connection.engine, cancellation).GetStates(paths);
}

std::vector<DirectoryEntry> FileObjects::List(const std::string& directory,
                                              const Cancellation* cancellation)
{
    CheckPath(directory);
    auto listing = ObjectCaller(*connection.engine, cancellation).List(directory);
    if (!listing.result.IsGood())
        FailRemotely(directory, Step::List, DescribeResult(listing.result));
    return std::move(listing.entries);
}

std::vector<DirectoryListing> FileObjects::ListAll(const std::vector<std::string>& directories,
                                                   const Cancellation* cancellation)
{
    CheckPaths(directories);
    return ObjectCaller(*connection.engine, cancellation).ListAll(directories);
}

std::vector<Result> FileObjects::Move(const std::vector<Renaming>& renamings, bool replaces,
                                      const Cancellation* cancellation)
{
    for (const auto& renaming : renamings) {
        CheckPath(renaming.source);
        CheckPath(renaming.target);
    }
    return DoOnce("renaming", [&] {
        return ObjectCaller(*connection.engine, cancellation).Move(renamings, replaces);
    });
}

void FileObjects::Copy(const std::string& source, const std::string& target, bool replaces,
                       const Cancellation* cancellation)
{
    CheckPath(source);
    CheckPath(target);
    DoOnce("copying",
           [&] { ObjectCaller(*connection.engine, cancellation).Copy(source, target, replaces); });
}

Space FileObjects::GetSpace(const std::string& path, const Cancellation* cancellation)
{
    CheckPath(path);
    return ObjectCaller(*connection.engine, cancellation).GetSpace(path);
}

Sha256 FileObjects::GetChecksum(const std::string& path, std::uint64_t start, std::uint64_t length,
                                const Cancellation* cancellation)
{
    CheckPath(path);
    return ObjectCaller(*connection.engine, cancellation).GetChecksum(path, start, length);
}

std::vector<Result> FileObjects::SetPermissions(const std::vector<std::string>& paths,
                                                const std::vector<std::uint32_t>& permissions,
                                                const Cancellation* cancellation)
{
    CheckPaths(paths);
    if (paths.size() != permissions.size())
        throw InvalidArgumentException("there are not as many permissions as paths");
    return ObjectCaller(*connection.engine, cancellation).SetPermissions(paths, permissions);
}

} // namespace Client
