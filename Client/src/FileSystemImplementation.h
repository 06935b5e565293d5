#pragma once

#include "Caller.h"
#include "Client/FileSystem.h"

#include <memory>

namespace Client {

class FileSystem::Implementation
{
public:
    explicit Implementation(Connection& connection)
        : node(std::make_shared<RemoteNode>(connection.GetEngine()))
    {
        node->Open();
    }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;
    ~Implementation() { node->Close(); }

    [[nodiscard]] Caller MakeCaller(const Cancellation* cancellation) const
    {
        return {node, cancellation};
    }
    [[nodiscard]] const std::filesystem::path& GetStateFolder() const noexcept
    {
        return node->GetEngine().GetOptions().stateFolder;
    }
    [[nodiscard]] std::string GetServer() const { return node->GetEngine().GetServer(); }
    [[nodiscard]] const std::shared_ptr<RemoteNode>& GetNode() const noexcept { return node; }

private:
    const std::shared_ptr<RemoteNode> node;
};

/// Returns a path that exists only where there is a directory. A slash at the end asks for no
/// permission of the directory itself; "." behind it would ask for that of searching it.
[[nodiscard]] inline std::string AsDirectory(const std::string& path)
{
    return path.ends_with('/') ? path : path + "/";
}

[[nodiscard]] inline std::string Join(const std::string& directory, const std::string& name)
{
    if (directory.empty())
        return name;
    return directory.ends_with('/') ? directory + name : directory + "/" + name;
}

/// Throws InvalidArgumentException for a path that is empty or holds a NUL.
void CheckPath(const std::string& path);

/// In words what the result of an acknowledgement says.
[[nodiscard]] Failure MakeRemoteFailure(std::string path, Step step, std::uint32_t result);
[[nodiscard]] Failure MakeUnknownFailure(std::string path, Step step, std::string cause);

} // namespace Client
