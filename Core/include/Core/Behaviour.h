#pragma once

#include "Core/Export.h"
#include "Core/Node.h"
#include "Core/Value.h"

#include <memory>
#include <string>
#include <vector>

namespace Core {

/// The behaviour of a node. The host makes it, starts it, calls it, stops it and releases it. Start
/// and stop never overlap, and the last stop comes before the release. The host holds no lock while
/// it calls a behaviour.
class CORE_API IBehaviour
{
public:
    virtual ~IBehaviour();
    virtual void OnStart() = 0;
    virtual void OnStop() = 0;
};

/// A behaviour that takes method calls.
class CORE_API IExecutableBehaviour : public virtual IBehaviour
{
public:
    ~IExecutableBehaviour() override;

    /// Runs a method for the session of the calling thread; several calls may run at once. Appends
    /// to `outputs`. Returns true when it takes the call, false when it refuses it. May throw.
    virtual bool OnExecuteMethod(const std::shared_ptr<INode>& node, const std::string& methodName,
                                 const std::vector<Value>& inputs, std::vector<Value>& outputs) = 0;
};

/// Makes behaviours for nodes. The order of its virtual operations is part of the contract.
class CORE_API IBehaviourFactory
{
public:
    /// `node` outlives the behaviour. May throw; then the host does not create the node.
    [[nodiscard]] virtual std::shared_ptr<IBehaviour> MakeBehaviour(INode& node) const = 0;
    virtual ~IBehaviourFactory();
};

} // namespace Core
