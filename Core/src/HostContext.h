#pragma once

#include "AddressSpace.h"
#include "Core/CoreContext.h"
#include "DispatcherImplementation.h"
#include "FactoryRegistry.h"
#include "SessionRegistry.h"

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

namespace Core {

/// The shared state of the modules, nodes and sessions of one runtime. Lives as long as any of
/// them; the runtime empties it when it ends.
class HostContext final : public CoreContext, public std::enable_shared_from_this<HostContext>
{
public:
    HostContext();
    ~HostContext() override;

    [[nodiscard]] std::shared_ptr<INode> GetNode(const NodeId& nodeId) override;
    [[nodiscard]] std::shared_ptr<IObjectType> GetObjectType(const NodeId& nodeId) override;
    [[nodiscard]] unsigned int AssignAffinityId() override;
    [[nodiscard]] NodeFactory& GetNodeFactory() noexcept override { return factories; }
    [[nodiscard]] Dispatcher& GetDispatcher() noexcept override { return *dispatcher; }
    [[nodiscard]] Sessions& GetSessions() noexcept override { return *sessions; }
    [[nodiscard]] const std::vector<Folder>& GetFolders() const noexcept override
    {
        return folders;
    }

    /// REQUIRES: no other thread uses the host yet.
    void SetFolders(std::vector<Folder> value) noexcept { folders = std::move(value); }

    /// Returns the environment for new nodes.
    [[nodiscard]] NodeEnvironment GetEnvironment();

    [[nodiscard]] AddressSpace& GetAddressSpace() noexcept { return *addressSpace; }
    [[nodiscard]] FactoryRegistry& GetFactories() noexcept { return factories; }
    [[nodiscard]] SessionRegistry& GetSessionRegistry() noexcept { return *sessions; }
    [[nodiscard]] DispatcherImplementation& GetDispatcherImplementation() noexcept
    {
        return *dispatcher;
    }
    [[nodiscard]] WaitGraph& GetWaitGraph() noexcept { return dispatcher->GetWaitGraph(); }

private:
    const std::shared_ptr<DispatcherImplementation> dispatcher;
    const std::shared_ptr<AddressSpace> addressSpace;
    const std::shared_ptr<SessionRegistry> sessions;
    FactoryRegistry factories;
    std::vector<Folder> folders;
    std::atomic<unsigned int> lastAffinityId = 0;
};

} // namespace Core
