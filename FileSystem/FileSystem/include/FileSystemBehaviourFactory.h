#pragma once

#include "Core/Behaviour.h"
#include "Core/CoreContext.h"
#include "Export.h"

#include <memory>

namespace FileSystem {

/// Makes one `FileSystemBehaviour` per node of the object type `FileSystem`. Has no state; any
/// thread.
class FileSystemBehaviourFactory final : public Core::IBehaviourFactory
{
public:
    [[nodiscard]] std::shared_ptr<Core::IBehaviour> MakeBehaviour(Core::INode& node) const override;
};

/// Hands the factory to the host's node factory, which keeps it alive. Exceptions of the host pass.
void RegisterFactories(Core::CoreContext& context);

} // namespace FileSystem

/// The module's entry: the host looks it up by this plain name and calls it once per load. Returns
/// 1 whenever it returns.
extern "C" FILESYSTEM_API int RegisterFactories(Core::CoreContext& context);
