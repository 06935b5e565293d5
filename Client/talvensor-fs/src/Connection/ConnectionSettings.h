#pragma once

#include "Client/Connection.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Cli {

/// The server and the login, as far as one place names them: the command line, a profile, the
/// environment.
struct ConnectionSettings
{
    std::optional<std::string> endpoint;
    std::optional<std::string> user;
    std::optional<std::filesystem::path> passwordFile;
    std::optional<Client::Security> security;
    std::optional<std::chrono::seconds> timeout;
    std::optional<std::chrono::seconds> connectTimeout;
    std::optional<std::chrono::seconds> reconnectTimeout;
};

/// Those of the first place that says something, one by one.
[[nodiscard]] ConnectionSettings Combine(ConnectionSettings first,
                                         const ConnectionSettings& second);

/// Returns the options that the settings name, without the password. Throws
/// InvalidArgumentException when they name no server.
[[nodiscard]] Client::ConnectionOptions MakeConnectionOptions(const ConnectionSettings& settings);

/// Returns the URL of a server that is named without a scheme, too: "plant1", "plant1:4841".
[[nodiscard]] std::string CompleteUrl(const std::string& endpoint);

/// $TALVENSOR_ENDPOINT and $TALVENSOR_USER.
[[nodiscard]] ConnectionSettings ReadEnvironment();

/// $XDG_CONFIG_HOME/talvensor/client.toml. Throws InvalidArgumentException when there is neither
/// that variable nor a home.
[[nodiscard]] std::filesystem::path GetProfileFile();

/// A file of profiles and of groups of them. Throws InvalidArgumentException, with file and line
/// where there is one, for a file that cannot be read, for what it has not, and for what means
/// nothing.
class ProfileFile
{
public:
    explicit ProfileFile(std::filesystem::path path);
    ProfileFile(const ProfileFile&) = delete;
    ProfileFile& operator=(const ProfileFile&) = delete;
    ~ProfileFile();

    [[nodiscard]] ConnectionSettings GetProfile(const std::string& name) const;

    /// Returns the names of the profiles in a group: the entry of [groups] with that name.
    [[nodiscard]] std::vector<std::string> GetGroup(const std::string& name) const;

private:
    struct Content;

    const std::filesystem::path path;
    const std::unique_ptr<const Content> content;
};

/// One profile of a file. Throws InvalidArgumentException with file and line when the file cannot
/// be read or has no such profile, or when there is something in the profile that means nothing.
[[nodiscard]] ConnectionSettings ReadProfile(const std::filesystem::path& file,
                                             const std::string& name);

/// "auto", "plain" or "encrypted". Throws InvalidArgumentException.
[[nodiscard]] Client::Security ParseSecurity(const std::string& text);

/// A whole number of seconds, up to 86400. Throws InvalidArgumentException.
[[nodiscard]] std::chrono::seconds ParseTimeout(const std::string& text, unsigned int least = 1);

/// The first line of a file that its owner alone may read. Throws InvalidArgumentException.
[[nodiscard]] std::string ReadPasswordFile(const std::filesystem::path& file);

/// $XDG_STATE_HOME/talvensor/client: key, certificate and known servers, and the shell's history.
/// Throws InvalidArgumentException.
[[nodiscard]] std::filesystem::path GetStateFolder();

} // namespace Cli
