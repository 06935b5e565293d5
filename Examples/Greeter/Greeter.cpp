// A module with one object type, which has one method: Greet("Ada") returns "Hello, Ada!".

#include <Core/Behaviour.h>
#include <Core/CoreContext.h>
#include <Core/Module.h>

#include <memory>
#include <string>
#include <vector>

namespace {

/// The behaviour of one object.
class Greeter final : public Core::IExecutableBehaviour
{
public:
    void OnStart() override {} // comes before the first call: begin work here
    void OnStop() override {}  // end it here; calls in flight may still run

    /// Called on the thread of the session that calls; several sessions may call at once. Number
    /// and types of the inputs are those of the model.
    bool OnExecuteMethod(const std::shared_ptr<Core::INode>& /*node*/,
                         const std::string& methodName, const std::vector<Core::Value>& inputs,
                         std::vector<Core::Value>& outputs) override
    {
        if (methodName != "Greet")
            return false;
        outputs.emplace_back("Hello, " + inputs.at(0).Get<std::string>() + "!");
        return true;
    }
};

class Factory final : public Core::IBehaviourFactory
{
public:
    std::shared_ptr<Core::IBehaviour> MakeBehaviour(Core::INode& /*node*/) const override
    {
        return std::make_shared<Greeter>();
    }
};

} // namespace

int RegisterFactories(Core::CoreContext& context)
{
    // The model names this number at the type whose objects get this behaviour.
    context.GetNodeFactory().RegisterBehaviourFactory(
        Core::Guid("d790591f1b574378a04ff08260215661"), std::make_shared<Factory>());
    return 1;
}
