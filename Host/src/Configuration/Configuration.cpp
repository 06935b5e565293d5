#include "Configuration/Configuration.h"

#include "Configuration/InstalledFiles.h"
#include "Process/PathTrust.h"
#include "Process/Roots.h"
#include "Users/Pki.h"

#include <algorithm>
#include <cstdlib>
#include <system_error>

namespace Host {

namespace {

using Path = std::filesystem::path;

std::string Join(const std::vector<ConfigurationProblem>& problems)
{
    std::string text;
    for (const auto& problem : problems)
        text += (text.empty() ? "" : "\n") + problem.ToString();
    return text;
}

std::string ReadEnvironment(const char* name)
{
    // Read before any thread could change it.
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    return value == nullptr ? "" : value;
}

/// Collects the problems of a configuration.
class Examination
{
public:
    explicit Examination(const Configuration& configuration)
        : configuration(configuration)
    {}

    std::vector<ConfigurationProblem> Run()
    {
        ExamineRoots();
        trust.emplace(roots, configuration.trustedOwner);
        ExamineModules();
        ExamineFiles();
        ExamineLimits();
        return std::move(problems);
    }

private:
    void Report(const std::string& setting, std::size_t value, const std::string& text)
    {
        problems.push_back({configuration.GetPlace(setting, value), text});
    }

    void ExamineRoots()
    {
        AddRoots(configuration.roots, "root", false);
        AddRoots(configuration.readOnlyRoots, "read-only", true);
        if (configuration.roots.empty() && configuration.readOnlyRoots.empty())
            Report("root", 0, "no folder to serve is given: use --root or --read-only");
        try {
            CheckTogether(roots);
        } catch (const Core::InvalidArgumentException& error) {
            Report("read-only", 0, error.GetMessage());
        }
    }

    void AddRoot(const Path& path, bool isReadOnly)
    {
        const auto root = MakeRoot(path, isReadOnly);
        if (!configuration.allowKernelFiles)
            RefuseKernelFiles({root});
        roots.push_back(root);
        RequireWritable(root);
    }

    void AddRoots(const std::vector<Path>& paths, const std::string& setting, bool isReadOnly)
    {
        for (std::size_t index = 0; index < paths.size(); ++index) {
            try {
                AddRoot(paths[index], isReadOnly);
            } catch (const Core::InvalidArgumentException& error) {
                Report(setting, index, error.GetMessage());
            }
        }
    }

    void ExamineModules()
    {
        const auto modules = FindModules(configuration);
        if (modules.empty())
            Report("module", 0,
                   "no module is given, and none is in '" + GetModuleFolder().string() +
                       "': there is nothing to serve");
        const auto before = problems.size();
        ExamineFilesOf("module", modules);
        ExamineFilesOf("model", configuration.models);
        if (problems.size() > before || !configuration.models.empty())
            return;
        try {
            for (const auto& model : FindModels(configuration))
                RequireTrust("module", 0, model, FileUse::Read);
        } catch (const Core::NotFoundException& error) {
            Report("module", 0, error.GetMessage());
        }
    }

    void ExamineFilesOf(const std::string& setting, const std::vector<Path>& files)
    {
        for (std::size_t index = 0; index < files.size(); ++index) {
            ExamineFile(setting, index, files[index]);
            RequireTrust(setting, index, files[index], FileUse::Read);
        }
    }

    void ExamineFile(const std::string& setting, std::size_t index, const Path& file)
    {
        std::error_code error;
        if (const auto status = std::filesystem::status(file, error); error)
            Report(setting, index, "'" + file.string() + "': " + error.message());
        else if (!std::filesystem::is_regular_file(status))
            Report(setting, index, "'" + file.string() + "' is not a regular file");
    }

    void ExamineFiles()
    {
        if (configuration.usersFile) {
            ExamineFile("users", 0, *configuration.usersFile);
            RequireTrust("users", 0, *configuration.usersFile, FileUse::ReadSecret);
        }
        ExamineLog("log-file", configuration.logFile);
        ExamineLog("audit-log", configuration.auditFile);
        if (configuration.metrics && !configuration.metrics->socket.empty()) {
            ExamineFolderOf("metrics", configuration.metrics->socket);
            RequireTrust("metrics", 0, configuration.metrics->socket, FileUse::Append);
        }
        for (const auto& file : configuration.files)
            RequireTrust("config", 0, file, FileUse::Read);
        RequireTrust("root", 0, FindProgram(), FileUse::Run);
        ExaminePki();
    }

    void ExaminePki()
    {
        try {
            for (const auto& file : FindPkiFiles(GetPkiFolder(configuration))) {
                if (!RequireTrust("pki", 0, file, FileUse::ReadSecret))
                    return;
            }
        } catch (const Core::NotFoundException& error) {
            Report("pki", 0, error.GetMessage());
        }
    }

    void ExamineLog(const std::string& setting, const std::optional<Path>& file)
    {
        if (!file)
            return;
        ExamineFolderOf(setting, *file);
        RequireTrust(setting, 0, *file, FileUse::Append);
    }

    void ExamineFolderOf(const std::string& setting, const Path& file)
    {
        if (!std::filesystem::is_directory(file.parent_path()))
            Report(setting, 0, "there is no folder '" + file.parent_path().string() + "'");
    }

    /// Reports a file that others could replace: they would control the host after its next start.
    bool RequireTrust(const std::string& setting, std::size_t index, const Path& file, FileUse use)
    {
        try {
            trust->Check(file, use);
            return true;
        } catch (const Core::InvalidArgumentException& error) {
            Report(setting, index, error.GetMessage());
            return false;
        }
    }

    void ExamineLimits()
    {
        const auto& limits = configuration.limits;
        if (limits.queuedOutputPause > limits.queuedOutput)
            Report("pause-at-queued-output", 0,
                   "is more than max-queued-output, which closes the connection");
    }

    const Configuration& configuration;
    std::vector<Root> roots;
    std::optional<PathTrust> trust; // set once the roots are known
    std::vector<ConfigurationProblem> problems;
};

} // namespace

std::string ListenUrl::ToString() const
{
    const bool isAddress6 = host.find(':') != std::string::npos;
    return "opc.tcp://" + (isAddress6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::string SettingPlace::ToString() const
{
    if (file.empty())
        return key;
    auto text = file;
    if (line > 0)
        text += ":" + std::to_string(line);
    return key.empty() ? text : text + ": " + key;
}

SettingPlace Configuration::GetPlace(const std::string& setting, std::size_t value) const
{
    const auto found = places.find(setting);
    if (found == places.end() || found->second.size() <= value)
        return {.file = {}, .line = 0, .key = "--" + setting};
    return found->second[value];
}

std::string ConfigurationProblem::ToString() const
{
    const auto where = place.ToString();
    return where.empty() ? text : where + ": " + text;
}

ConfigurationException::ConfigurationException(std::vector<ConfigurationProblem> problems)
    : Core::InvalidArgumentException(Join(problems))
    , problems(std::move(problems))
{}

std::vector<ConfigurationProblem> FindProblems(const Configuration& configuration)
{
    return Examination(configuration).Run();
}

std::vector<std::filesystem::path> FindModules(const Configuration& configuration)
{
    auto modules = configuration.modules.empty() ? FindInstalledModules() : configuration.modules;
    if (!configuration.fileObjects)
        std::erase_if(modules, [](const Path& module) {
            return module.filename() == "libTalvensor.FileObjects.so";
        });
    return modules;
}

std::vector<std::filesystem::path> FindModels(const Configuration& configuration)
{
    if (!configuration.models.empty())
        return configuration.models;
    const auto modules = FindModules(configuration);
    std::vector<Path> models;
    std::transform(modules.begin(), modules.end(), std::back_inserter(models), FindModel);
    return models;
}

std::filesystem::path GetPkiFolder(const Configuration& configuration)
{
    if (configuration.pkiFolder)
        return *configuration.pkiFolder;
    if (const Path state = ReadEnvironment("XDG_STATE_HOME"); state.is_absolute())
        return state / "talvensor" / "pki";
    if (const Path home = ReadEnvironment("HOME"); home.is_absolute())
        return home / ".local" / "state" / "talvensor" / "pki";
    throw Core::NotFoundException("no folder for the host's key: use --pki, or set XDG_STATE_HOME "
                                  "or HOME");
}

} // namespace Host
