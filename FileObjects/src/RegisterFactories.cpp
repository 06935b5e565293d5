#include "Core/CoreContext.h"
#include "Core/Guid.h"
#include "Core/Module.h"
#include "Core/NodeFactory.h"
#include "FileObjectsBehaviour.h"
#include "MimeTypes.h"

#include <memory>

namespace FileObjects {

namespace {

class BehaviourFactory final : public Core::IBehaviourFactory
{
public:
    [[nodiscard]] std::shared_ptr<Core::IBehaviour> MakeBehaviour(Core::INode& node) const override
    {
        return std::make_shared<FileObjectsBehaviour>(node, mimeTypes);
    }

private:
    // Read when the module is loaded: later the host may have left the machine's folders.
    const std::shared_ptr<const MimeTypes> mimeTypes =
        std::make_shared<const MimeTypes>(MimeTypes::Load());
};

} // namespace

} // namespace FileObjects

int RegisterFactories(Core::CoreContext& context)
{
    // The information model ties the type to the factory by this identifier.
    context.GetNodeFactory().RegisterBehaviourFactory(
        Core::Guid("028b95e0f2fa4a6298818fa5af0ecb82"),
        std::make_shared<FileObjects::BehaviourFactory>());
    return 1;
}
