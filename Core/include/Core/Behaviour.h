#pragma once

#include "Core/Export.h"
#include "Core/Node.h"
#include "Core/Value.h"

#include <memory>
#include <string>
#include <vector>

namespace Core {

/// What gives a node its life. The host makes it, starts it, calls it, stops it and lets it go;
/// start and stop never overlap, and the last stop comes before the release. No lock of the host is
/// held.
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

    /// Runs a method for the session of the calling thread; several calls may run at once.
    /// Appends to `outputs`. True: the call was taken; false: it was refused. May throw.
    virtual bool OnExecuteMethod(const std::shared_ptr<INode>& node, const std::string& methodName,
                                 const std::vector<Value>& inputs, std::vector<Value>& outputs) = 0;
};

/// Makes behaviours for nodes. The order of its virtual operations is part of the contract.
class CORE_API IBehaviourFactory
{
public:
    /// `node` outlives the behaviour. May throw; then the node is not created.
    [[nodiscard]] virtual std::shared_ptr<IBehaviour> MakeBehaviour(INode& node) const = 0;
    virtual ~IBehaviourFactory();
};

} // namespace Core
