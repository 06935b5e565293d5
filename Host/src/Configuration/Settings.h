#pragma once

#include "Configuration/Configuration.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

enum class SettingKind
{
    Text,
    Path,
    Number,
    Size,
    Duration,
    Flag,
};

/// One setting. Its name is the key in a file, and the flag without the dashes.
struct Setting
{
    std::string name;
    SettingKind kind = SettingKind::Text;
    bool isRepeatable = false;
    std::string group;       ///< the heading in the help
    std::string placeholder; ///< for its value, in the help
    std::string help;
    /// Stores the values, which have the form of flags' arguments. Throws InvalidArgumentException
    /// if they are wrong.
    void (*apply)(Configuration& configuration, const std::vector<std::string>& values) = nullptr;
};

/// Returns all settings, in the order of the help.
[[nodiscard]] std::span<const Setting> GetSettings();

/// Returns null if there is no such setting.
[[nodiscard]] const Setting* FindSetting(std::string_view name);

/// Returns the form of a value in a configuration file.
[[nodiscard]] std::string DescribeValue(SettingKind kind);

/// A value of a setting as text, and its place.
struct SettingValue
{
    std::string text;
    SettingPlace place;
};
using SettingValues = std::map<std::string, std::vector<SettingValue>>;

/// Makes a configuration of the values. Adds wrong ones to `problems` and keeps the defaults of
/// their settings.
[[nodiscard]] Configuration ApplySettings(const SettingValues& values,
                                          std::vector<ConfigurationProblem>& problems);

/// Parses "20000000", "20MB" or "64 MiB" to bytes. Throws InvalidArgumentException.
[[nodiscard]] std::uint64_t ParseSize(const std::string& text);
/// Parses "5", "5s", "500ms", "2min" or "1h"; a day at most. Throws InvalidArgumentException.
[[nodiscard]] std::chrono::milliseconds ParseDuration(const std::string& text);
/// Parses "opc.tcp://HOST:PORT"; the default port is 4840. Throws InvalidArgumentException.
[[nodiscard]] ListenUrl ParseListenUrl(const std::string& text);

} // namespace Host
