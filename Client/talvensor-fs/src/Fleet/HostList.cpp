#include "Fleet/HostList.h"

#include "Commands/Commands.h"

#include <optional>
#include <sstream>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace Cli {

namespace {

constexpr std::string_view scheme = "opc.tcp://";

std::string Trim(const std::string& text)
{
    constexpr const char* blanks = " \t\r";
    const auto begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

/// Returns the parts between separators that are not blank.
std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        if (auto word = Trim(part); !word.empty())
            parts.push_back(std::move(word));
    return parts;
}

std::string NameEndpoint(const std::string& endpoint)
{
    auto name = endpoint.starts_with(scheme) ? endpoint.substr(scheme.size()) : endpoint;
    while (name.ends_with('/'))
        name.pop_back();
    return name;
}

/// Gathers the hosts of a list.
class HostFinder
{
public:
    explicit HostFinder(std::filesystem::path profileFile)
        : profileFile(std::move(profileFile))
    {}

    void AddGroup(const std::string& group)
    {
        for (const auto& name : GetProfiles().GetGroup(group))
            Add(name);
    }

    void Add(const std::string& name)
    {
        if (name.find("://") != std::string::npos) {
            ConnectionSettings settings;
            settings.endpoint = name;
            Add({.name = NameEndpoint(name), .settings = std::move(settings)});
            return;
        }
        auto settings = GetProfiles().GetProfile(name);
        if (!settings.endpoint)
            throw Client::InvalidArgumentException(profileFile.string() + ": the profile [" + name +
                                                   "] has no endpoint");
        Add({.name = name, .settings = std::move(settings)});
    }

    [[nodiscard]] std::vector<NamedHost> Take() { return std::move(hosts); }

private:
    void Add(NamedHost host)
    {
        if (names.insert(host.name).second)
            hosts.push_back(std::move(host));
    }

    /// Endpoints need no file.
    const ProfileFile& GetProfiles()
    {
        if (!profiles)
            profiles.emplace(profileFile);
        return *profiles;
    }

    const std::filesystem::path profileFile;
    std::optional<ProfileFile> profiles;
    std::unordered_set<std::string> names;
    std::vector<NamedHost> hosts;
};

} // namespace

std::vector<NamedHost> FindHosts(const std::string& list, const std::filesystem::path& profileFile,
                                 const std::function<std::string()>& readInput)
{
    HostFinder finder(profileFile);
    for (const auto& word : Split(list, ',')) {
        if (word == standardStream) {
            for (const auto& line : Split(readInput(), '\n'))
                if (!line.starts_with('#'))
                    finder.Add(line);
        } else if (word.starts_with('@'))
            finder.AddGroup(word.substr(1));
        else
            finder.Add(word);
    }
    auto hosts = finder.Take();
    if (hosts.empty())
        throw Client::InvalidArgumentException("--on names no host");
    return hosts;
}

} // namespace Cli
