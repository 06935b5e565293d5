#include "Connection/Folders.h"

namespace Cli {

namespace {

std::optional<Client::Space> FindSpace(Client::FileObjects& objects, const std::string& path,
                                       const Client::Cancellation& cancellation)
{
    try {
        return objects.GetSpace(path, &cancellation);
    } catch (const Client::OperationFailedException&) {
        return std::nullopt;
    }
}

} // namespace

std::vector<Folder> FindFolders(const Workplace& workplace)
{
    Client::FileObjects objects(workplace.remote.GetConnection());
    std::vector<std::string> paths;
    try {
        if (objects.AreOffered())
            for (auto& entry : objects.List("/", &workplace.cancellation))
                if (entry.name.starts_with('/'))
                    paths.push_back(std::move(entry.name));
    } catch (const Client::OperationFailedException&) { // NOLINT(bugprone-empty-catch)
        // An older server does not list what is above its folders.
    }
    if (paths.empty())
        return {};
    std::vector<Folder> folders;
    const auto states = objects.GetStates(paths, &workplace.cancellation);
    for (std::size_t i = 0; i < paths.size(); ++i)
        folders.push_back({.path = paths[i],
                           .isReadOnly = states.at(i).isInReadOnlyFolder,
                           .space = FindSpace(objects, paths[i], workplace.cancellation)});
    return folders;
}

} // namespace Cli
