#include "Configuration/ConfigurationFile.h"

#include "Support/PrivateFiles.h"

#include <algorithm>
#include <optional>
#include <system_error>
#include <toml++/toml.h>
#include <utility>

namespace Host {

namespace {

/// Returns a value in the form of a flag's argument; nothing if it is of another kind.
std::optional<std::string> ReadScalar(const toml::node& node, SettingKind kind)
{
    const bool takesText = kind != SettingKind::Number && kind != SettingKind::Flag;
    const bool takesNumber =
        kind == SettingKind::Number || kind == SettingKind::Size || kind == SettingKind::Duration;
    if (takesText && node.is_string())
        return node.as_string()->get();
    if (takesNumber && node.is_integer())
        return std::to_string(node.as_integer()->get());
    if (kind == SettingKind::Flag && node.is_boolean())
        return node.as_boolean()->get() ? "true" : "false";
    return std::nullopt;
}

class FileReader
{
public:
    FileReader(const std::filesystem::path& file, std::vector<ConfigurationProblem>& problems)
        : file(file)
        , folder(std::filesystem::absolute(file).parent_path())
        , problems(problems)
    {}

    SettingValues Read()
    {
        for (const auto& [key, node] : Parse())
            ReadKey(key, node);
        return std::move(values);
    }

private:
    /// Throws ConfigurationException if the file cannot be read or is not TOML.
    [[nodiscard]] toml::table Parse() const
    {
        std::vector<ConfigurationProblem> fatal;
        try {
            return toml::parse(Support::ReadFile(file));
        } catch (const toml::parse_error& error) {
            fatal.push_back(
                {{file.string(), error.source().begin.line, {}}, std::string(error.description())});
        } catch (const std::runtime_error& error) { // of ReadFile
            fatal.push_back({{{}, 0, "--config"}, error.what()});
        }
        throw ConfigurationException(std::move(fatal));
    }

    void Report(SettingPlace place, const std::string& text)
    {
        problems.push_back({std::move(place), text});
    }

    void ReadKey(const toml::key& key, const toml::node& node)
    {
        const std::string name(key.str());
        const auto* const setting = FindSetting(name);
        if (setting == nullptr)
            Report({file.string(), key.source().begin.line, name}, "there is no such setting");
        else if (setting->isRepeatable && node.is_array())
            ReadArray(*setting, *node.as_array());
        else
            ReadValue(*setting, node);
    }

    void ReadArray(const Setting& setting, const toml::array& array)
    {
        if (array.empty())
            Report({file.string(), array.source().begin.line, setting.name}, "the list is empty");
        for (const auto& node : array)
            ReadValue(setting, node);
    }

    void ReadValue(const Setting& setting, const toml::node& node)
    {
        const SettingPlace place{file.string(), node.source().begin.line, setting.name};
        auto text = ReadScalar(node, setting.kind);
        if (!text) {
            Report(place, "must be " + DescribeValue(setting.kind) +
                              (setting.isRepeatable ? ", or a list of these" : ""));
            return;
        }
        if (setting.kind == SettingKind::Path && !text->empty())
            text = (folder / *text).string();
        values[setting.name].push_back({*text, place});
    }

    const std::filesystem::path& file;
    std::filesystem::path folder;
    std::vector<ConfigurationProblem>& problems;
    SettingValues values;
};

/// Returns the files *.toml of a folder by name; those that start with a dot are of editors.
std::vector<std::filesystem::path> FindFurtherFiles(const std::filesystem::path& folder)
{
    std::vector<std::filesystem::path> files;
    try {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            const std::string name = entry.path().filename();
            if (name.ends_with(".toml") && !name.starts_with("."))
                files.push_back(entry.path());
        }
    } catch (const std::filesystem::filesystem_error& error) {
        if (error.code() != std::errc::no_such_file_or_directory)
            throw ConfigurationException(std::vector{ConfigurationProblem{
                {{}, 0, "--config"},
                "cannot read '" + folder.string() + "': " + error.code().message()}});
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

SettingValues ReadConfigurationFile(const std::filesystem::path& file,
                                    std::vector<ConfigurationProblem>& problems)
{
    return FileReader(file, problems).Read();
}

std::vector<std::filesystem::path> FindConfigurationFiles(const std::filesystem::path& path)
{
    std::error_code error;
    if (path.empty())
        return {};
    if (!std::filesystem::is_directory(path, error))
        return {path};
    std::vector files = {path / "host.toml"};
    for (auto& file : FindFurtherFiles(path / "conf.d"))
        files.push_back(std::move(file));
    return files;
}

} // namespace Host
