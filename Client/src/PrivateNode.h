#pragma once

#include "Caller.h"
#include "Client/FileSystem.h"
#include "ObjectCaller.h"

#include <memory>

namespace Client {

/// The node of one FileSystem: it is there as long as this.
class PrivateNode
{
public:
    explicit PrivateNode(Engine& engine)
        : node(std::make_shared<RemoteNode>(engine))
    {
        node->Open();
    }
    PrivateNode(const PrivateNode&) = delete;
    PrivateNode& operator=(const PrivateNode&) = delete;
    ~PrivateNode() { node->Close(); }

    [[nodiscard]] Caller MakeCaller(const Cancellation* cancellation) const
    {
        return {node, cancellation};
    }
    [[nodiscard]] bool OffersObjects() const noexcept { return node->GetEngine().OffersObjects(); }
    /// REQUIRES: OffersObjects.
    [[nodiscard]] ObjectCaller MakeObjectCaller(const Cancellation* cancellation) const
    {
        return {node->GetEngine(), cancellation};
    }
    [[nodiscard]] const std::filesystem::path& GetStateFolder() const noexcept
    {
        return node->GetEngine().GetOptions().stateFolder;
    }
    [[nodiscard]] std::string GetServer() const { return node->GetEngine().GetServer(); }
    [[nodiscard]] std::string GetUrl() const { return node->GetEngine().GetOptions().url; }

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

/// Describes in words the result of an acknowledgement.
[[nodiscard]] Failure MakeRemoteFailure(std::string path, Step step, std::uint32_t result);
/// A failure whose cause the server does not tell.
[[nodiscard]] Failure MakeUnknownFailure(std::string path, Step step, std::string cause);
/// A failure whose cause is known.
[[nodiscard]] Failure MakeReasonFailure(std::string path, Step step, std::string cause);

} // namespace Client
