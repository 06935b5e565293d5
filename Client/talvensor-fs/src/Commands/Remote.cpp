#include "Commands/Remote.h"

namespace Cli {

Remote::Remote(Client::Connection& connection)
    : connection(connection)
{}

Client::FileSystem& Remote::GetFiles()
{
    if (!files)
        files.emplace(connection);
    return *files;
}

std::string Remote::Resolve(const std::string& path) const
{
    if (path.empty())
        throw Client::InvalidArgumentException("a remote path is empty");
    if (path.starts_with('/') || folder.empty())
        return path;
    return JoinPath(folder, path);
}

std::string JoinPath(const std::string& folder, const std::string& name)
{
    return folder.ends_with('/') || folder.empty() ? folder + name : folder + "/" + name;
}

std::string GetBaseName(const std::string& path)
{
    const auto end = path.find_last_not_of('/');
    if (end == std::string::npos)
        return {};
    const auto slash = path.find_last_of('/', end);
    const auto begin = slash == std::string::npos ? 0 : slash + 1;
    auto name = path.substr(begin, end + 1 - begin);
    return name == "." || name == ".." ? std::string() : name;
}

} // namespace Cli
