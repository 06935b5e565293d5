#include "Fleet/HostList.h"

#include "Commands/Commands.h"

#include <algorithm>
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

/// Returns the same text for all ways to write a server: in lower case, with its port.
std::string Normalize(const std::string& endpoint)
{
    auto name = NameEndpoint(CompleteUrl(endpoint));
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a')
                                              : static_cast<char>(letter);
    });
    const auto end = name.find(']'); // of an IPv6 address, which has colons of its own
    if (name.find(':', end == std::string::npos ? 0 : end) == std::string::npos)
        name += ":4840";
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
        // Two profiles of one server may log in as different users: both are meant.
        const auto login =
            Normalize(host.settings.endpoint.value_or("")) + '\0' + host.settings.user.value_or("");
        if (names.insert(host.name).second && logins.insert(login).second)
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
    std::unordered_set<std::string> logins; // servers and users
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
