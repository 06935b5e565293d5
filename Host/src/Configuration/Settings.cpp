#include "Configuration/Settings.h"

#include "Network/Port.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <pwd.h>
#include <sstream>
#include <utility>

namespace Host {

namespace {

using Words = std::vector<std::string>;

constexpr std::string_view scheme = "opc.tcp://";

struct Unit
{
    std::string_view name;
    std::uint64_t factor;
};

constexpr std::array sizeUnits = {
    Unit{"", 1},
    Unit{"B", 1},
    Unit{"kB", 1'000},
    Unit{"MB", 1'000'000},
    Unit{"GB", 1'000'000'000},
    Unit{"KiB", 1ULL << 10U},
    Unit{"MiB", 1ULL << 20U},
    Unit{"GiB", 1ULL << 30U},
};
constexpr std::array durationUnits = {
    Unit{"", 1'000}, Unit{"ms", 1}, Unit{"s", 1'000}, Unit{"min", 60'000}, Unit{"h", 3'600'000},
};

struct LevelName
{
    std::string_view name;
    Core::LogLevel level;
};

constexpr std::array levelNames = {
    LevelName{"off", Core::LogLevel::Off},
    LevelName{"error", Core::LogLevel::Error},
    LevelName{"warning", Core::LogLevel::Warning},
    LevelName{"notice", Core::LogLevel::Notice},
    LevelName{"information", Core::LogLevel::Information},
    LevelName{"detail", Core::LogLevel::Detail},
    LevelName{"debug", Core::LogLevel::Debug},
    LevelName{"trace", Core::LogLevel::Trace},
};

[[noreturn]] void Refuse(const std::string& text, const std::string& reason)
{
    throw Core::InvalidArgumentException("'" + text + "' " + reason);
}

template <std::size_t count>
std::uint64_t ParseQuantity(const std::string& text, const std::array<Unit, count>& units,
                            const std::string& reason)
{
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{})
        Refuse(text, reason);
    std::string_view name(rest, static_cast<std::size_t>(end - rest));
    name.remove_prefix(std::min(name.find_first_not_of(' '), name.size()));
    const auto* const unit = std::find_if(units.begin(), units.end(),
                                          [name](const Unit& each) { return each.name == name; });
    if (unit == units.end())
        Refuse(text, reason);
    if (number >
        static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) / unit->factor)
        Refuse(text, "is too large");
    return number * unit->factor;
}

std::uint64_t AboveZero(std::uint64_t number, const std::string& text)
{
    if (number == 0)
        Refuse(text, "must be more than 0");
    return number;
}

std::uint64_t ParseSizeAboveZero(const std::string& text)
{
    return AboveZero(ParseSize(text), text);
}

std::uint64_t ParseNumber(const std::string& text)
{
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || rest != end)
        Refuse(text, "is not a whole number from 0 to 4294967295");
    return number;
}

std::uint64_t ParseNumberAboveZero(const std::string& text)
{
    return AboveZero(ParseNumber(text), text);
}

/// Takes the name of a user, or a number.
uid_t ParseUser(const std::string& text)
{
    uid_t number = 0;
    const char* const end = text.data() + text.size();
    if (const auto [rest, error] = std::from_chars(text.data(), end, number);
        !text.empty() && error == std::errc{} && rest == end)
        return number;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the host has one thread when it is configured
    const auto* const entry = getpwnam(text.c_str());
    if (entry == nullptr)
        Refuse(text, "is not a user of this machine");
    return entry->pw_uid;
}

bool ParseFlag(const std::string& text)
{
    return text == "true";
}

std::filesystem::path ParsePath(const std::string& text)
{
    if (text.empty())
        Refuse(text, "names no file or folder");
    return std::filesystem::absolute(text).lexically_normal();
}

std::vector<std::filesystem::path> ParsePaths(const Words& values)
{
    std::vector<std::filesystem::path> paths;
    std::transform(values.begin(), values.end(), std::back_inserter(paths), ParsePath);
    return paths;
}

Core::LogLevel ParseLevel(const std::string& text)
{
    const auto* const found =
        std::find_if(levelNames.begin(), levelNames.end(),
                     [&text](const LevelName& each) { return each.name == text; });
    if (found != levelNames.end())
        return found->level;
    std::string known;
    for (const auto& each : levelNames)
        known += (known.empty() ? "" : ", ") + std::string(each.name);
    Refuse(text, "is not one of the levels " + known);
}

/// Takes levels and pairs of a category and its level, also several in one text with commas.
void SetLevels(Configuration& all, const Words& values)
{
    for (const auto& value : values) {
        std::istringstream parts(value);
        for (std::string part; std::getline(parts, part, ',');) {
            const auto equals = part.find('=');
            if (equals == std::string::npos)
                all.logLevel = ParseLevel(part);
            else
                all.categoryLevels[part.substr(0, equals)] = ParseLevel(part.substr(equals + 1));
        }
    }
}

AuditForm ParseAuditForm(const std::string& text)
{
    if (text != "text" && text != "json")
        Refuse(text, "is not one of text, json");
    return text == "json" ? AuditForm::Json : AuditForm::Text;
}

/// Checks names of nodes. They become browse names, which clients see and type.
std::vector<std::string> ParseNodeNames(const Words& values)
{
    for (const auto& name : values) {
        if (name.empty() || name.size() > 128)
            Refuse(name, "must have 1 to 128 bytes");
        if (std::any_of(name.begin(), name.end(),
                        [](unsigned char byte) { return byte < ' ' || byte == 0x7F; }))
            Refuse(name, "contains a control character");
        if (std::count(values.begin(), values.end(), name) > 1)
            Refuse(name, "is given more than once");
    }
    return values;
}

std::vector<Setting> MakeServingSettings()
{
    using enum SettingKind;
    return {
        {"listen", Text, false, "Serving", "URL",
         "the address to listen on, opc.tcp://HOST:PORT; port 0: the system chooses one "
         "(opc.tcp://localhost:4840)",
         [](Configuration& all, const Words& values) {
             all.listen = ParseListenUrl(values.front());
         }},
        {"root", Path, true, "Serving", "DIR",
         "a folder that clients may read and change; relative paths of clients start at the first "
         "root",
         [](Configuration& all, const Words& values) {
             all.roots = ParsePaths(values);
         }},
        {"read-only", Path, true, "Serving", "DIR",
         "a folder that clients may only read; it may lie inside a root, or a root in it",
         [](Configuration& all, const Words& values) {
             all.readOnlyRoots = ParsePaths(values);
         }},
        {"module", Path, true, "Serving", "FILE",
         "a module to load, libNAME.so (all that are installed with this program)",
         [](Configuration& all, const Words& values) {
             all.modules = ParsePaths(values);
         }},
        {"model", Path, true, "Serving", "FILE",
         "the information model of a module (NAME.NodeSet2.xml beside it, or installed with this "
         "program)",
         [](Configuration& all, const Words& values) {
             all.models = ParsePaths(values);
         }},
        {"file-objects", Flag, false, "Serving", "",
         "offer the files also as the standard's file objects; without them, the module "
         "libTalvensor.FileObjects.so is not loaded, even if it is named (yes)",
         [](Configuration& all, const Words& values) {
             all.fileObjects = ParseFlag(values.front());
         }},
        {"node", Text, true, "Serving", "NAME",
         "a shared node, seen by all clients below Objects/FileSystems (FileSystem)",
         [](Configuration& all, const Words& values) {
             all.nodes = ParseNodeNames(values);
         }},
        {"shared-nodes", Flag, false, "Serving", "",
         "offer shared nodes; without them, clients make nodes of their own with CreateFileSystem "
         "(yes)",
         [](Configuration& all, const Words& values) {
             all.sharedNodes = ParseFlag(values.front());
         }},
        {"grace", Duration, false, "Serving", "TIME",
         "keep a session this long after its connection broke (5s)",
         [](Configuration& all, const Words& values) {
             all.grace = ParseDuration(values.front());
         }},
        {"drain", Duration, false, "Serving", "TIME",
         "the time in which a node must finish its queued work when it stops (10s)",
         [](Configuration& all, const Words& values) {
             all.drain = ParseDuration(values.front());
         }},
    };
}

std::vector<Setting> MakeSecuritySettings()
{
    using enum SettingKind;
    return {
        {"users", Path, false, "Security", "FILE",
         "the users that may log in, written by 'talvensor-host passwd'; without it, anybody may "
         "log in, "
         "but only on loopback",
         [](Configuration& all, const Words& values) {
             all.usersFile = ParsePath(values.front());
         }},
        {"pki", Path, false, "Security", "DIR",
         "the folder with this host's key and certificate, which are made if they do not exist, "
         "and "
         "with the certificates of trusted clients in 'trusted' (talvensor/pki in $XDG_STATE_HOME "
         "or ~/.local/state)",
         [](Configuration& all, const Words& values) {
             all.pkiFolder = ParsePath(values.front());
         }},
        {"trust-any-client", Flag, false, "Security", "",
         "accept any certificate of a client: only the user's password identifies the client then "
         "(no)",
         [](Configuration& all, const Words& values) {
             all.trustAnyClient = ParseFlag(values.front());
         }},
        {"sandbox", Flag, false, "Security", "",
         "let the kernel confine the host to its roots; without it, clients may reach everything "
         "that "
         "the host's user may reach (yes)",
         [](Configuration& all, const Words& values) {
             all.sandbox = ParseFlag(values.front());
         }},
        {"allow-kernel-files", Flag, false, "Security", "",
         "allow roots that are or contain kernel file systems such as /proc, /sys or /dev; clients "
         "could control the machine there (no)",
         [](Configuration& all, const Words& values) {
             all.allowKernelFiles = ParseFlag(values.front());
         }},
        {"trust-owner", Text, false, "Security", "USER",
         "a user, beside root and the host's user, who may own the files that the host reads at "
         "its "
         "start, and the folders above them (none)",
         [](Configuration& all, const Words& values) {
             all.trustedOwner = ParseUser(values.front());
         }},
    };
}

std::vector<Setting> MakeLogSettings()
{
    using enum SettingKind;
    return {
        {"log-level", Text, true, "Log", "LEVEL",
         "off, error, warning, notice, information, detail, debug or trace (information); "
         "CATEGORY=LEVEL sets the level of one category, such as Network=error",
         [](Configuration& all, const Words& values) {
             SetLevels(all, values);
         }},
        {"log-file", Path, false, "Log", "FILE", "append the log to this file (standard error)",
         [](Configuration& all, const Words& values) {
             all.logFile = ParsePath(values.front());
         }},
        {"audit-log", Path, false, "Log", "FILE",
         "append a line for each call that changes something to this file, too (only the log)",
         [](Configuration& all, const Words& values) {
             all.auditFile = ParsePath(values.front());
         }},
        {"audit-format", Text, false, "Log", "FORMAT",
         "the lines of --audit-log: text or json (text)",
         [](Configuration& all, const Words& values) {
             all.auditForm = ParseAuditForm(values.front());
         }},
        {"metrics", Text, false, "Log", "ADDRESS",
         "serve metrics for Prometheus: PORT of loopback, ADDRESS:PORT, or unix:PATH for a socket "
         "(no)",
         [](Configuration& all, const Words& values) {
             all.metrics = MetricsAddress::Parse(values.front());
         }},
    };
}

std::vector<Setting> MakeBoundSettings()
{
    using enum SettingKind;
    return {
        {"max-message", Size, false, "Bounds", "SIZE", "the largest message (20MB)",
         [](Configuration& all, const Words& values) {
             all.limits.messageSize = ParseSizeAboveZero(values.front());
         }},
        {"max-chunks", Number, false, "Bounds", "COUNT", "the most chunks of a message (400)",
         [](Configuration& all, const Words& values) {
             all.limits.messageChunks = ParseNumberAboveZero(values.front());
         }},
        {"max-sessions", Number, false, "Bounds", "COUNT", "the most sessions at a time (100)",
         [](Configuration& all, const Words& values) {
             all.limits.sessions = ParseNumberAboveZero(values.front());
         }},
        {"max-subscriptions", Number, false, "Bounds", "COUNT",
         "the most subscriptions of a session (20)",
         [](Configuration& all, const Words& values) {
             all.limits.subscriptionsPerSession = ParseNumberAboveZero(values.front());
         }},
        {"max-file-systems", Number, false, "Bounds", "COUNT",
         "the most nodes of its own that a session may have, those that still drain included (4)",
         [](Configuration& all, const Words& values) {
             all.limits.fileSystemsPerSession = ParseNumber(values.front());
         }},
        {"max-queued-output", Size, false, "Bounds", "SIZE",
         "close a connection with more unsent output than this (64MB)",
         [](Configuration& all, const Words& values) {
             all.limits.queuedOutput = ParseSizeAboveZero(values.front());
         }},
        {"pause-at-queued-output", Size, false, "Bounds", "SIZE",
         "stop reading from a connection with more unsent output than this (4MB)",
         [](Configuration& all, const Words& values) {
             all.limits.queuedOutputPause = ParseSizeAboveZero(values.front());
         }},
        {"max-queued-events", Size, false, "Bounds", "SIZE",
         "close a session with more waiting events than this (64MB)",
         [](Configuration& all, const Words& values) {
             all.limits.queuedEventsPerSession = ParseSizeAboveZero(values.front());
         }},
        {"max-memory", Size, false, "Bounds", "SIZE",
         "when this process uses more memory, stop reading from the connections that sent most "
         "(half "
         "of the machine's)",
         [](Configuration& all, const Words& values) {
             all.limits.memory = ParseSizeAboveZero(values.front());
         }},
        {"reserved-descriptors", Number, false, "Bounds", "COUNT",
         "the descriptors that are kept for accepting connections (64)",
         [](Configuration& all, const Words& values) {
             all.limits.reservedDescriptors = ParseNumber(values.front());
         }},
    };
}

const std::vector<Setting>& AllSettings()
{
    static const auto settings = [] {
        std::vector<Setting> all;
        for (const auto make :
             {MakeServingSettings, MakeSecuritySettings, MakeLogSettings, MakeBoundSettings}) {
            auto group = make();
            std::move(group.begin(), group.end(), std::back_inserter(all));
        }
        return all;
    }();
    return settings;
}

/// Stores the values of a setting in the configuration; adds a problem if they are wrong.
void Apply(const Setting& setting, const std::vector<SettingValue>& values,
           Configuration& configuration, std::vector<ConfigurationProblem>& problems)
{
    Words texts;
    std::transform(values.begin(), values.end(), std::back_inserter(texts),
                   [](const SettingValue& value) { return value.text; });
    try {
        setting.apply(configuration, texts);
    } catch (const Core::InvalidArgumentException& error) {
        problems.push_back({values.front().place, error.GetMessage()});
    }
}

std::uint16_t ParsePort(const std::string& url, std::string_view text)
{
    const auto port = ReadPort(text);
    if (!port)
        Refuse(url, "has no port from 0 to 65535 after the colon");
    return *port;
}

} // namespace

std::span<const Setting> GetSettings()
{
    return AllSettings();
}

const Setting* FindSetting(std::string_view name)
{
    const auto& all = AllSettings();
    const auto found = std::find_if(
        all.begin(), all.end(), [name](const Setting& setting) { return setting.name == name; });
    return found == all.end() ? nullptr : &*found;
}

std::string DescribeValue(SettingKind kind)
{
    switch (kind) {
    case SettingKind::Text:
    case SettingKind::Path:
        return "a text in quotes";
    case SettingKind::Number:
        return "a whole number";
    case SettingKind::Size:
        return "a number of bytes, or a size in quotes such as \"20MB\"";
    case SettingKind::Duration:
        return "a number of seconds, or a time in quotes such as \"500ms\"";
    case SettingKind::Flag:
        return "true or false";
    }
    return {};
}

Configuration ApplySettings(const SettingValues& values,
                            std::vector<ConfigurationProblem>& problems)
{
    Configuration configuration;
    for (const auto& setting : AllSettings()) {
        const auto found = values.find(setting.name);
        if (found == values.end() || found->second.empty())
            continue;
        for (const auto& value : found->second)
            configuration.places[setting.name].push_back(value.place);
        Apply(setting, found->second, configuration, problems);
    }
    return configuration;
}

std::uint64_t ParseSize(const std::string& text)
{
    return ParseQuantity(text, sizeUnits,
                         "is not a size such as 20000000, 20MB or 64MiB (units: B, kB, MB, GB, "
                         "KiB, MiB, GiB)");
}

std::chrono::milliseconds ParseDuration(const std::string& text)
{
    const auto milliseconds = ParseQuantity(
        text, durationUnits, "is not a time such as 5, 5s or 500ms (units: ms, s, min, h)");
    constexpr std::uint64_t day = 86'400'000;
    if (milliseconds > day)
        Refuse(text, "is more than a day");
    return std::chrono::milliseconds(milliseconds);
}

ListenUrl ParseListenUrl(const std::string& text)
{
    std::string_view rest = text;
    if (!rest.starts_with(scheme))
        Refuse(text, "does not start with " + std::string(scheme));
    rest.remove_prefix(scheme.size());
    if (rest.ends_with('/'))
        rest.remove_suffix(1);

    const bool isBracketed = rest.starts_with('[');
    const auto hostEnd = isBracketed ? rest.find(']') : rest.find(':');
    if (isBracketed && hostEnd == std::string_view::npos)
        Refuse(text, "has no closing bracket");
    const auto host = isBracketed ? rest.substr(1, hostEnd - 1) : rest.substr(0, hostEnd);
    const auto afterHost = isBracketed ? hostEnd + 1 : std::min(hostEnd, rest.size());
    if (host.empty() || host.find_first_of("/ []") != std::string_view::npos)
        Refuse(text, "has no host between " + std::string(scheme) + " and the port");

    ListenUrl url{.host = std::string(host)};
    const auto port = rest.substr(afterHost);
    if (!port.empty())
        url.port = ParsePort(text, port.starts_with(':') ? port.substr(1) : "");
    return url;
}

} // namespace Host
