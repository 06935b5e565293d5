// A module without faults. It logs each of its steps, so that a test can follow it beyond its
// unloading.

#include "Core/Behaviour.h"
#include "Core/CoreContext.h"
#include "Core/Exception.h"
#include "Core/Logger.h"
#include "Core/Module.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Core;

void Log(const char* message)
{
    LogEntry entry;
    entry.level = LogLevel::Debug;
    entry.category = "RecordingModule";
    entry.message = message;
    Logger::Instance().AppendEntry(std::move(entry));
}

struct Presence
{
    Presence() { Log("loaded"); }
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;
    ~Presence() { Log("unloaded"); }
};

const Presence presence;

std::shared_ptr<IBehaviour>& Newest()
{
    static std::shared_ptr<IBehaviour> newest;
    return newest;
}

/// An exception whose code is unloaded with the module.
template <typename Base>
class OwnException final : public Base
{
public:
    using Base::Base;
    [[nodiscard]] const char* what() const noexcept override { return "the module's own words"; }
};

class Behaviour final : public IExecutableBehaviour, public std::enable_shared_from_this<Behaviour>
{
public:
    Behaviour() = default;
    Behaviour(const Behaviour&) = delete;
    Behaviour& operator=(const Behaviour&) = delete;
    ~Behaviour() override { Log("behaviour destroyed"); }
    void OnStart() override { Log("started"); }
    void OnStop() override { Log("stopped"); }

    bool OnExecuteMethod(const std::shared_ptr<INode>& /*node*/, const std::string& methodName,
                         const std::vector<Value>& inputs, std::vector<Value>& outputs) override
    {
        if (methodName == "ThrowOwn")
            throw OwnException<std::runtime_error>("");
        if (methodName == "ThrowOwnOfCore")
            throw OwnException<NotFoundException>("the message", "the details");
        if (methodName == "ThrowCores")
            throw NotFoundException("Core's words");
        if (methodName == "Share")
            Newest() = shared_from_this();
        else
            outputs = inputs;
        return true;
    }
};

class Factory final : public IBehaviourFactory
{
public:
    Factory() = default;
    Factory(const Factory&) = delete;
    Factory& operator=(const Factory&) = delete;
    ~Factory() override { Log("factory destroyed"); }

    [[nodiscard]] std::shared_ptr<IBehaviour> MakeBehaviour(INode& /*node*/) const override
    {
        return std::make_shared<Behaviour>();
    }
};

} // namespace

/// Returns the last behaviour that was called with "Share".
extern "C" CORE_API void TakeSharedBehaviour(std::shared_ptr<Core::IBehaviour>& behaviour);

void TakeSharedBehaviour(std::shared_ptr<Core::IBehaviour>& behaviour)
{
    behaviour = std::exchange(Newest(), nullptr);
}

int RegisterFactories(Core::CoreContext& context)
{
    context.GetNodeFactory().RegisterBehaviourFactory(
        Core::Guid("00000000000000000000000000000001"), std::make_shared<Factory>());
    return 1;
}
