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

/// One setting: its name is that of its flag, without the dashes, and that of its key in a file.
struct Setting
{
    std::string name;
    SettingKind kind = SettingKind::Text;
    bool isRepeatable = false;
    std::string group;       ///< the heading under which the help shows it
    std::string placeholder; ///< of its value, in the help
    std::string help;
    /// Takes the values, each in the form of a flag's argument. Throws InvalidArgumentException
    /// saying what is wrong.
    void (*apply)(Configuration& configuration, const std::vector<std::string>& values) = nullptr;
};

/// All settings, in the order in which the help shows them.
[[nodiscard]] std::span<const Setting> GetSettings();

/// Null when there is no such setting.
[[nodiscard]] const Setting* FindSetting(std::string_view name);

/// What was set, before it is given a meaning.
struct SettingValue
{
    std::string text;
    SettingPlace place;
};
using SettingValues = std::map<std::string, std::vector<SettingValue>>;

/// Gives the values their meaning; what is wrong is added to `problems` and left at its default.
[[nodiscard]] Configuration ApplySettings(const SettingValues& values,
                                          std::vector<ConfigurationProblem>& problems);

/// "20000000", "20MB", "64 MiB". Throws InvalidArgumentException.
[[nodiscard]] std::uint64_t ParseSize(const std::string& text);
/// "5", "5s", "500ms", "2min", "1h". Throws InvalidArgumentException.
[[nodiscard]] std::chrono::milliseconds ParseDuration(const std::string& text);
/// "opc.tcp://HOST:PORT"; without a port 4840. Throws InvalidArgumentException.
[[nodiscard]] ListenUrl ParseListenUrl(const std::string& text);

} // namespace Host
