#include "Connection/ConnectionSettings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <system_error>
#include <toml++/toml.h>

namespace Cli {

namespace {

namespace fs = std::filesystem;

std::optional<std::string> GetVariable(const char* name)
{
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    if (value == nullptr || *value == '\0')
        return std::nullopt;
    return value;
}

/// A folder that the desktop's conventions name by a variable, or by a place in the home.
fs::path GetUserFolder(const char* variable, const char* belowHome)
{
    if (const auto folder = GetVariable(variable); folder && fs::path(*folder).is_absolute())
        return *folder;
    if (const auto home = GetVariable("HOME"))
        return fs::path(*home) / belowHome;
    throw Client::InvalidArgumentException(std::string("neither $") + variable +
                                           " nor $HOME is set to an absolute path");
}

[[noreturn]] void Refuse(const fs::path& file, const toml::source_region& place,
                         const std::string& why)
{
    throw Client::InvalidArgumentException(file.string() + ":" + std::to_string(place.begin.line) +
                                           ": " + why);
}

toml::table ParseFile(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw Client::InvalidArgumentException(file.string() + ": " +
                                               std::generic_category().message(errno));
    try {
        return toml::parse(stream, file.string());
    } catch (const toml::parse_error& error) {
        const auto line = error.source().begin.line;
        const auto place = line > 0 ? file.string() + ":" + std::to_string(line) : file.string();
        throw Client::InvalidArgumentException(place + ": " + std::string(error.description()));
    }
}

std::string GetText(const fs::path& file, const toml::key& key, const toml::node& node)
{
    if (const auto* const text = node.as_string()) {
        if (text->get().find('\0') != std::string::npos)
            Refuse(file, key.source(), std::string(key.str()) + " contains a NUL");
        return text->get();
    }
    Refuse(file, key.source(), std::string(key.str()) + " takes text in quotes");
}

/// Returns the time-out of this name; null for another name.
std::optional<std::chrono::seconds>* FindTimeout(ConnectionSettings& settings,
                                                 std::string_view name)
{
    if (name == "timeout")
        return &settings.timeout;
    if (name == "connect-timeout")
        return &settings.connectTimeout;
    return name == "reconnect-timeout" ? &settings.reconnectTimeout : nullptr;
}

void Apply(ConnectionSettings& settings, const fs::path& file, const toml::key& key,
           const toml::node& node)
{
    if (auto* const timeout = FindTimeout(settings, key.str())) {
        const auto seconds = node.value_exact<std::int64_t>();
        if (!seconds)
            Refuse(file, key.source(), std::string(key.str()) + " takes a number of seconds");
        *timeout =
            ParseTimeout(std::to_string(*seconds), timeout == &settings.reconnectTimeout ? 0 : 1);
        return;
    }
    const auto text = GetText(file, key, node);
    if (key.str() == "endpoint")
        settings.endpoint = text;
    else if (key.str() == "user")
        settings.user = text;
    else if (key.str() == "password-file")
        settings.passwordFile = fs::absolute(file).parent_path() / text;
    else if (key.str() == "security")
        settings.security = ParseSecurity(text);
    else
        Refuse(file, key.source(),
               "unknown setting " + std::string(key.str()) +
                   "; a profile has endpoint, user, password-file, security, timeout, "
                   "connect-timeout and reconnect-timeout");
}

template <typename Value>
void TakeUnless(std::optional<Value>& first, const std::optional<Value>& second)
{
    if (!first)
        first = second;
}

class OpenFile
{
public:
    explicit OpenFile(const fs::path& file)
        : descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
        , path(file)
    {
        if (descriptor < 0)
            Fail(std::generic_category().message(errno));
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() { close(descriptor); }

    /// Asked of what is open, so that it cannot be replaced in between.
    void CheckThatItIsPrivate() const
    {
        struct stat status = {};
        if (fstat(descriptor, &status) != 0)
            Fail(std::generic_category().message(errno));
        if (!S_ISREG(status.st_mode))
            Fail("it is not a regular file");
        if (status.st_uid != geteuid() && status.st_uid != 0)
            Fail("it belongs to somebody else");
        if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
            Fail("others may read or change it; 'chmod 600' makes it private");
    }

    [[nodiscard]] std::string ReadLine() const
    {
        constexpr std::size_t longest = 4096;
        std::array<char, longest> block{};
        const auto count = read(descriptor, block.data(), block.size());
        if (count < 0)
            Fail(std::generic_category().message(errno));
        const std::string_view text(block.data(), static_cast<std::size_t>(count));
        return std::string(text.substr(0, text.find('\n')));
    }

    [[noreturn]] void Fail(const std::string& why) const
    {
        throw Client::InvalidArgumentException("password file " + path.string() + ": " + why);
    }

private:
    const int descriptor;
    const fs::path path;
};

} // namespace

ConnectionSettings Combine(ConnectionSettings first, const ConnectionSettings& second)
{
    TakeUnless(first.endpoint, second.endpoint);
    TakeUnless(first.user, second.user);
    TakeUnless(first.passwordFile, second.passwordFile);
    TakeUnless(first.security, second.security);
    TakeUnless(first.timeout, second.timeout);
    TakeUnless(first.connectTimeout, second.connectTimeout);
    TakeUnless(first.reconnectTimeout, second.reconnectTimeout);
    return first;
}

Client::ConnectionOptions MakeConnectionOptions(const ConnectionSettings& settings)
{
    if (!settings.endpoint)
        throw Client::InvalidArgumentException(
            "no server given: use -e, a profile or $TALVENSOR_ENDPOINT");
    Client::ConnectionOptions options;
    options.url = CompleteUrl(*settings.endpoint);
    // A password is not to be sent in the open because somebody took the encryption away.
    options.security = settings.security.value_or(settings.user ? Client::Security::Encrypted
                                                                : Client::Security::Automatic);
    if (settings.timeout)
        options.answerTime = *settings.timeout;
    if (settings.connectTimeout)
        options.connectTime = *settings.connectTimeout;
    if (settings.reconnectTimeout)
        options.reconnectTime = *settings.reconnectTimeout;
    options.stateFolder = GetStateFolder();
    return options;
}

std::string CompleteUrl(const std::string& endpoint)
{
    if (endpoint.find("://") != std::string::npos)
        return endpoint;
    // Of the forms without brackets, an address of IPv6 alone has several colons.
    const bool isBareAddress =
        !endpoint.starts_with('[') && std::count(endpoint.begin(), endpoint.end(), ':') > 1;
    return "opc.tcp://" + (isBareAddress ? "[" + endpoint + "]" : endpoint);
}

ConnectionSettings ReadEnvironment()
{
    ConnectionSettings settings;
    settings.endpoint = GetVariable("TALVENSOR_ENDPOINT");
    settings.user = GetVariable("TALVENSOR_USER");
    return settings;
}

fs::path GetProfileFile()
{
    return GetUserFolder("XDG_CONFIG_HOME", ".config") / "talvensor" / "client.toml";
}

struct ProfileFile::Content
{
    toml::table tables;
};

ProfileFile::ProfileFile(fs::path givenPath)
    : path(std::move(givenPath))
    , content(std::make_unique<const Content>(Content{ParseFile(path)}))
{}

ProfileFile::~ProfileFile() = default;

ConnectionSettings ProfileFile::GetProfile(const std::string& name) const
{
    const auto* const profile = content->tables[name].as_table();
    if (profile == nullptr)
        throw Client::InvalidArgumentException(
            path.string() + " has no profile [" + name + "]" +
            (name.find_first_of(".:") == std::string::npos
                 ? ""
                 : "; an endpoint is written opc.tcp://" + name));
    ConnectionSettings settings;
    for (const auto& [key, node] : *profile)
        Apply(settings, path, key, node);
    return settings;
}

std::vector<std::string> ProfileFile::GetGroup(const std::string& name) const
{
    const auto group = content->tables["groups"][name];
    if (!group)
        throw Client::InvalidArgumentException(path.string() + " has no group " + name +
                                               " in [groups]");
    const auto* const members = group.as_array();
    if (members == nullptr || (!members->empty() && !members->is_homogeneous<std::string>()))
        Refuse(path, group.node()->source(), "the group " + name + " takes a list of profiles");
    std::vector<std::string> names;
    for (const auto& member : *members)
        names.push_back(member.value_or<std::string>({}));
    return names;
}

ConnectionSettings ReadProfile(const fs::path& file, const std::string& name)
{
    return ProfileFile(file).GetProfile(name);
}

Client::Security ParseSecurity(const std::string& text)
{
    if (text == "auto")
        return Client::Security::Automatic;
    if (text == "plain")
        return Client::Security::Plain;
    if (text == "encrypted")
        return Client::Security::Encrypted;
    throw Client::InvalidArgumentException(
        "'" + text + "' is not a kind of security: use auto, plain or encrypted");
}

std::chrono::seconds ParseTimeout(const std::string& text, unsigned int least)
{
    constexpr unsigned int longest = 86'400;
    unsigned int seconds = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, seconds);
    if (parsed.ec != std::errc() || parsed.ptr != end || seconds < least || seconds > longest)
        throw Client::InvalidArgumentException("'" + text + "' is not a time-out: " +
                                               std::to_string(least) + " to 86400 whole seconds");
    return std::chrono::seconds(seconds);
}

std::string ReadPasswordFile(const fs::path& path)
{
    const OpenFile file(path);
    file.CheckThatItIsPrivate();
    auto password = file.ReadLine();
    if (password.empty())
        file.Fail("its first line is empty");
    return password;
}

fs::path GetStateFolder()
{
    return GetUserFolder("XDG_STATE_HOME", ".local/state") / "talvensor" / "client";
}

} // namespace Cli
