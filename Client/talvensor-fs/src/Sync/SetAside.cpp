#include "Sync/SetAside.h"

#include "Client/Transfer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <utility>

namespace Cli {

namespace {

/// Returns a name beside the path that nobody else uses, and that no transfer touches.
std::string MakeNameAside(const std::string& path)
{
    constexpr std::size_t keptOfName = 200; // with the rest a name takes 255 bytes at most
    std::random_device random;
    const auto number = std::uniform_int_distribution<std::uint64_t>()(random);
    const auto begin = path.rfind('/') + 1; // 0 where there is none
    return Client::GetPartName(path.substr(0, begin + keptOfName)) +
           fmt::format("-{:016x}", number);
}

} // namespace

void SetAside::Add(const std::vector<std::string>& paths)
{
    if (paths.empty())
        return;
    std::vector<SyncTarget::Names> wanted;
    for (const auto& path : paths)
        wanted.emplace_back(path, MakeNameAside(path));
    names = target.Rename(wanted);
}

void SetAside::PutBack(const std::function<bool(const std::string& path)>& isWanted,
                       const SyncTarget::Fail& fail)
{
    const auto first = std::stable_partition(
        names.begin(), names.end(), [&](const auto& each) { return !isWanted(each.first); });
    std::vector<std::string> paths;
    std::vector<SyncTarget::Names> back;
    for (auto each = first; each != names.end(); ++each) {
        paths.push_back(each->first);
        back.emplace_back(each->second, each->first);
    }
    names.erase(first, names.end());
    if (back.empty())
        return;
    std::vector<SyncTarget::Names> done;
    try {
        target.Delete(paths);
        done = target.Rename(back);
    } catch (const Client::ClientException& failed) {
        fail(failed.what());
    }
    for (const auto& each : back)
        if (std::find(done.begin(), done.end(), each) == done.end())
            fail(target.GetPath(each.second) + ": what was there is kept as " +
                 target.GetPath(each.first));
}

std::size_t SetAside::Delete()
{
    std::vector<std::string> paths;
    for (const auto& each : names)
        paths.push_back(each.second);
    names.clear();
    return target.Delete(paths);
}

} // namespace Cli
