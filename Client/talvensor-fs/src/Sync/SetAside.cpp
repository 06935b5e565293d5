#include "Sync/SetAside.h"

#include "Client/Transfer.h"

#include <algorithm>
#include <utility>

namespace Cli {

namespace {

constexpr const char* isKept = ": what was there is kept as ";
constexpr const char* mayBeKept = ": what was there may be kept, or a part of it, as ";

} // namespace

void SetAside::Add(const std::vector<std::string>& paths)
{
    if (paths.empty())
        return;
    for (const auto& path : paths)
        names.emplace_back(path, Client::MakeAsideName(path));
    try {
        names = target.Rename(names);
    } catch (const Client::ClientException&) {
        target.IgnoreInterruption();
        GiveBack(FindRenamed(std::exchange(names, {})));
        throw;
    }
}

void SetAside::PutBack(const std::function<bool(const std::string& path)>& isWanted)
{
    const auto first = std::stable_partition(
        names.begin(), names.end(), [&](const auto& each) { return !isWanted(each.first); });
    const Names wanted(first, names.end());
    names.erase(first, names.end());
    if (wanted.empty())
        return;
    std::vector<std::string> paths;
    for (const auto& each : wanted)
        paths.push_back(each.first);
    try {
        target.Delete(paths);
    } catch (const Client::ClientException& failed) {
        fail(failed.what());
        TellKept(wanted, isKept);
        return;
    }
    GiveBack(wanted);
}

std::size_t SetAside::Delete()
{
    const auto deleted = std::exchange(names, {});
    std::vector<std::string> paths;
    for (const auto& each : deleted)
        paths.push_back(each.second);
    try {
        return target.Delete(paths);
    } catch (const Client::ClientException&) {
        target.IgnoreInterruption();
        TellKept(FindRenamed(deleted), mayBeKept);
        throw;
    }
}

/// Tells of those that keep their names aside.
void SetAside::GiveBack(const Names& renamed)
{
    if (renamed.empty())
        return;
    Names back;
    for (const auto& [path, aside] : renamed)
        back.emplace_back(aside, path);
    try {
        const auto done = target.Rename(back);
        Names kept;
        for (std::size_t i = 0; i < back.size(); ++i)
            if (std::find(done.begin(), done.end(), back[i]) == done.end())
                kept.push_back(renamed[i]);
        TellKept(kept, isKept);
    } catch (const Client::ClientException& failed) {
        fail(failed.what());
        TellKept(renamed, mayBeKept);
    }
}

/// Returns all, where the target cannot be asked.
SetAside::Names SetAside::FindRenamed(const Names& wanted)
{
    try {
        return target.FindRenamed(wanted);
    } catch (const Client::ClientException& failed) {
        fail(failed.what());
        return wanted;
    }
}

void SetAside::TellKept(const Names& kept, const char* how) const
{
    for (const auto& [path, aside] : kept)
        fail(target.GetPath(path) + how + target.GetPath(aside));
}

} // namespace Cli
