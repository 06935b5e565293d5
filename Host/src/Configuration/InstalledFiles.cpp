#include "Configuration/InstalledFiles.h"

#include "Core/Exception.h"

#include <algorithm>
#include <string>

namespace Host {

namespace {

using Path = std::filesystem::path;

bool IsModule(const Path& file)
{
    return file.filename().string().starts_with("lib") && file.extension() == ".so";
}

std::string GetModelName(const Path& module)
{
    auto name = module.stem().string();
    if (name.starts_with("lib"))
        name.erase(0, 3);
    return name + ".NodeSet2.xml";
}

/// `relative` is the way from the program's folder.
Path FromProgram(const char* relative)
{
    return (FindProgram().parent_path() / relative).lexically_normal();
}

} // namespace

Path FindProgram()
{
    return std::filesystem::read_symlink("/proc/self/exe");
}

Path GetModuleFolder()
{
    return FromProgram(TALVENSOR_MODULES_FROM_PROGRAMS);
}

Path GetModelFolder()
{
    return FromProgram(TALVENSOR_MODELS_FROM_PROGRAMS);
}

std::vector<Path> FindInstalledModules()
{
    const auto folder = GetModuleFolder();
    std::vector<Path> modules;
    if (!std::filesystem::exists(folder))
        return modules;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (IsModule(entry.path()))
            modules.push_back(entry.path());
    std::sort(modules.begin(), modules.end());
    return modules;
}

Path FindModel(const Path& module)
{
    const auto name = GetModelName(module);
    auto beside = module.parent_path() / name;
    if (std::filesystem::exists(beside))
        return beside;
    auto installed = GetModelFolder() / name;
    if (std::filesystem::exists(installed))
        return installed;
    throw Core::NotFoundException("no information model of the module '" + module.string() +
                                  "': neither '" + beside.string() + "' nor '" +
                                  installed.string() + "' exists; name it with --model");
}

} // namespace Host
