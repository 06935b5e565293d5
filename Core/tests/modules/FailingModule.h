#pragma once

// The common part of the modules that register a factory and then fail.

#include "Core/Behaviour.h"
#include "Core/CoreContext.h"
#include "Core/Logger.h"
#include "Core/Module.h"

#include <memory>
#include <utility>

namespace FailingModule {

inline void Log(const char* message)
{
    Core::LogEntry entry;
    entry.level = Core::LogLevel::Debug;
    entry.category = "FailingModule";
    entry.message = message;
    Core::Logger::Instance().AppendEntry(std::move(entry));
}

/// Logs the unloading of the module's code.
struct Presence
{
    Presence() = default;
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;
    ~Presence() { Log("unloaded"); }
};

class Factory final : public Core::IBehaviourFactory
{
public:
    Factory() = default;
    Factory(const Factory&) = delete;
    Factory& operator=(const Factory&) = delete;
    ~Factory() override { Log("factory destroyed"); }

    [[nodiscard]] std::shared_ptr<Core::IBehaviour>
    MakeBehaviour(Core::INode& /*node*/) const override
    {
        return nullptr;
    }
};

inline void RegisterOne(Core::CoreContext& context, const char* identifier)
{
    context.GetNodeFactory().RegisterBehaviourFactory(Core::Guid(identifier),
                                                      std::make_shared<Factory>());
}

} // namespace FailingModule
