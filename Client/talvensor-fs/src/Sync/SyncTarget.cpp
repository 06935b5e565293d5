#include "Sync/SyncTarget.h"

#include "Commands/ServerCommands.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

namespace Cli {

namespace {

namespace fs = std::filesystem;

} // namespace

SyncTarget::SyncTarget(Client::Side side, std::string top, const Workplace& workplace, Fail fail)
    : side(side)
    , top(std::move(top))
    , workplace(workplace)
    , objects(workplace.remote.GetConnection())
    , fail(std::move(fail))
    , cancellation(&workplace.cancellation)
{}

bool SyncTarget::CanRename() const noexcept
{
    return IsLocal() || objects.AreOffered();
}

std::string SyncTarget::GetPath(const std::string& path) const
{
    return JoinPath(top, path);
}

std::size_t SyncTarget::Delete(const std::vector<std::string>& paths)
{
    if (paths.empty())
        return 0;
    if (IsLocal())
        return static_cast<std::size_t>(std::count_if(
            paths.begin(), paths.end(), [this](const auto& path) { return DeleteLocal(path); }));
    std::vector<std::string> whole;
    for (const auto& path : paths)
        whole.push_back(GetPath(path));
    const auto failures = workplace.remote.GetFiles().Delete(whole, true, cancellation);
    for (const auto& failure : failures)
        fail(Describe(failure));
    return paths.size() - failures.size();
}

bool SyncTarget::DeleteLocal(const std::string& path)
{
    std::error_code error;
    fs::remove_all(GetPath(path), error);
    if (error)
        fail(GetPath(path) + " (local): cannot delete: " + error.message());
    return !error;
}

std::vector<SyncTarget::Names> SyncTarget::Rename(const std::vector<Names>& names)
{
    std::vector<Names> renamed;
    if (IsLocal()) {
        std::copy_if(names.begin(), names.end(), std::back_inserter(renamed),
                     [this](const auto& each) { return RenameLocal(each); });
        return renamed;
    }
    std::vector<Client::Renaming> renamings;
    for (const auto& [from, to] : names)
        renamings.push_back({GetPath(from), GetPath(to)});
    const auto results = objects.Move(renamings, false, cancellation);
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (results.at(i).IsGood())
            renamed.push_back(names[i]);
        else
            fail(renamings[i].source + " (remote): cannot rename: " + results[i].reason);
    }
    return renamed;
}

std::vector<SyncTarget::Names> SyncTarget::FindRenamed(const std::vector<Names>& names)
{
    std::vector<Names> found;
    if (IsLocal()) {
        std::copy_if(names.begin(), names.end(), std::back_inserter(found),
                     [this](const auto& each) {
                         std::error_code error;
                         return fs::exists(fs::symlink_status(GetPath(each.second), error));
                     });
        return found;
    }
    std::vector<std::string> paths;
    for (const auto& each : names)
        paths.push_back(GetPath(each.second));
    const auto states = objects.GetStates(paths, cancellation);
    for (std::size_t i = 0; i < names.size(); ++i)
        if (states.at(i).kind != Client::Kind::Missing || states[i].status != 0)
            found.push_back(names[i]);
    return found;
}

bool SyncTarget::RenameLocal(const Names& names)
{
    std::error_code error;
    fs::rename(GetPath(names.first), GetPath(names.second), error);
    if (error)
        fail(GetPath(names.first) + " (local): cannot rename: " + error.message());
    return !error;
}

std::vector<std::string> SyncTarget::SetPermissions(const std::vector<SyncEntry>& entries)
{
    std::vector<std::string> failed;
    if (entries.empty() || !objects.AreOffered())
        return failed;
    if (IsLocal()) {
        for (const auto& entry : entries)
            if (!SetLocalPermissions(entry))
                failed.push_back(entry.path);
        return failed;
    }
    std::vector<std::string> paths;
    std::vector<std::uint32_t> permissions;
    for (const auto& entry : entries) {
        paths.push_back(GetPath(entry.path));
        permissions.push_back(entry.permissions.value_or(0));
    }
    const auto results = objects.SetPermissions(paths, permissions, cancellation);
    for (std::size_t i = 0; i < paths.size(); ++i)
        if (!results.at(i).IsGood()) {
            fail(paths[i] + " (remote): cannot set the permissions: " + results[i].reason);
            failed.push_back(entries[i].path);
        }
    return failed;
}

bool SyncTarget::SetLocalPermissions(const SyncEntry& entry)
{
    const auto path = GetPath(entry.path);
    if (chmod(path.c_str(), entry.permissions.value_or(0)) == 0)
        return true;
    fail(path + " (local): cannot set the permissions: " + std::generic_category().message(errno));
    return false;
}

} // namespace Cli
