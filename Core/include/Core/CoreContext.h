#pragma once

#include "Core/Dispatcher.h"
#include "Core/Export.h"
#include "Core/Folder.h"
#include "Core/Node.h"
#include "Core/NodeFactory.h"
#include "Core/Sessions.h"

#include <memory>
#include <vector>

namespace Core {

/// The host, as a module sees it. All operations may be called from any thread.
class CORE_API CoreContext
{
public:
    CoreContext() = default;
    CoreContext(const CoreContext&) = delete;
    CoreContext& operator=(const CoreContext&) = delete;
    virtual ~CoreContext();

    /// Throws NotFoundException for an identifier that no node has.
    [[nodiscard]] virtual std::shared_ptr<INode> GetNode(const NodeId& nodeId) = 0;
    /// Throws NotFoundException for an identifier that no object or event type has.
    [[nodiscard]] virtual std::shared_ptr<IObjectType> GetObjectType(const NodeId& nodeId) = 0;
    /// Returns a fresh affinity identifier, never 0.
    [[nodiscard]] virtual unsigned int AssignAffinityId() = 0;

    [[nodiscard]] virtual NodeFactory& GetNodeFactory() noexcept = 0;
    [[nodiscard]] virtual Dispatcher& GetDispatcher() noexcept = 0;
    [[nodiscard]] virtual Sessions& GetSessions() noexcept = 0;

    /// Returns the directories that the host lets its modules serve; none if it sets no bounds.
    /// They stay the same once there are behaviours.
    [[nodiscard]] virtual const std::vector<Folder>& GetFolders() const noexcept = 0;
};

} // namespace Core
