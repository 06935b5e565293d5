#pragma once

#include "Core/Behaviour.h"
#include "Core/Embedding/LogControl.h"
#include "Core/Embedding/Runtime.h"
#include "Core/Exception.h"
#include "Core/NamespaceMap.h"
#include "Signal.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace CoreTests {

using namespace Core;
using namespace Core::Embedding;

/// The record of a test: its steps, in order.
class Record
{
public:
    void Add(const std::string& entry)
    {
        const std::scoped_lock lock(mutex);
        entries.push_back(entry);
    }

    [[nodiscard]] std::vector<std::string> Get() const
    {
        const std::scoped_lock lock(mutex);
        return entries;
    }

private:
    mutable std::mutex mutex;
    std::vector<std::string> entries; // guarded by mutex
};

/// The script of a device, which also records each of its steps.
struct Script
{
    std::function<void(INode&)> make;
    std::function<void()> start;
    std::function<void()> stop;
    std::function<bool(const std::string&, const std::vector<Value>&, std::vector<Value>&)> call;
    std::function<void()> destroy;
};

/// A behaviour that follows a script.
class Device final : public IExecutableBehaviour, public std::enable_shared_from_this<Device>
{
public:
    Device(INode& node, std::shared_ptr<const Script> script, std::shared_ptr<Record> record)
        : node(node)
        , script(std::move(script))
        , record(std::move(record))
    {
        this->record->Add("made");
        if (this->script->make)
            this->script->make(node);
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    ~Device() override
    {
        record->Add(isStarted ? "destroyed while started" : "destroyed");
        EXPECT_FALSE(watchedNode.expired()) << "the node went before its behaviour";
        if (script->destroy)
            script->destroy();
    }

    void OnStart() override
    {
        record->Add("started");
        isStarted = true;
        if (script->start)
            script->start();
    }

    void OnStop() override
    {
        record->Add("stopped");
        isStarted = false;
        if (script->stop)
            script->stop();
    }

    bool OnExecuteMethod(const std::shared_ptr<INode>& called, const std::string& methodName,
                         const std::vector<Value>& inputs, std::vector<Value>& outputs) override
    {
        EXPECT_EQ(called.get(), &node);
        return !script->call || script->call(methodName, inputs, outputs);
    }

private:
    INode& node;
    const std::weak_ptr<INode> watchedNode = node.GetSharedPointer();
    const std::shared_ptr<const Script> script;
    const std::shared_ptr<Record> record;
    bool isStarted = false;
};

class DeviceFactory final : public IBehaviourFactory
{
public:
    using Make = std::function<std::shared_ptr<IBehaviour>(INode&)>;

    explicit DeviceFactory(Make make)
        : make(std::move(make))
    {}

    [[nodiscard]] std::shared_ptr<IBehaviour> MakeBehaviour(INode& node) const override
    {
        return make(node);
    }

private:
    const Make make;
};

/// Calls back for each reference.
class ReferenceObserver final : public IReferenceObserver
{
public:
    using Callback = std::function<void(const ReferenceData&)>;

    explicit ReferenceObserver(Callback onAdded, Callback onRemoved = {})
        : onAdded(std::move(onAdded))
        , onRemoved(std::move(onRemoved))
    {}

    void OnReferenceAdded(const ReferenceData& reference) override
    {
        if (onAdded)
            onAdded(reference);
    }
    void OnReferenceRemoved(const ReferenceData& reference) override
    {
        if (onRemoved)
            onRemoved(reference);
    }

private:
    const Callback onAdded;
    const Callback onRemoved;
};

/// A runtime with the model of the tests; its devices follow `script`, which is taken over when one
/// is made.
class RuntimeFixture : public testing::Test
{
protected:
    RuntimeFixture()
    {
        LogControl::AddSink(log);
        runtime = std::make_unique<Runtime>();
        runtime->LoadInformationModel(CORE_TEST_DATA "/Runtime.NodeSet2.xml");
        runtime->GetContext().GetNodeFactory().RegisterBehaviourFactory(
            deviceFactoryId, std::make_shared<DeviceFactory>([this](INode& node) {
                return std::make_shared<Device>(node, std::make_shared<const Script>(script),
                                                record);
            }));
    }

    ~RuntimeFixture() override { LogControl::RemoveSink(log); }

    [[nodiscard]] static NodeId TestId(unsigned int number)
    {
        return {NamespaceMap::GetNamespaceIndex("urn:Talvensor:Core:RuntimeTest"), number};
    }
    [[nodiscard]] static NodeId DeviceType() { return TestId(1); }
    [[nodiscard]] static NodeId EventType() { return TestId(10); }

    [[nodiscard]] NodeId CreateDevice()
    {
        return runtime->CreateObject(
            {DeviceType(), QualifiedName(1, "device"), Objects::ObjectsFolder(), {}});
    }

    [[nodiscard]] std::shared_ptr<INode> GetNode(const NodeId& id)
    {
        return runtime->GetContext().GetNode(id);
    }

    [[nodiscard]] std::shared_ptr<IObject> GetObject(const NodeId& id)
    {
        return std::dynamic_pointer_cast<IObject>(GetNode(id));
    }

    [[nodiscard]] bool Exists(const NodeId& id)
    {
        try {
            return GetNode(id) != nullptr;
        } catch (const NotFoundException&) {
            return false;
        }
    }

    /// Registers an observer of a node's references, in an affinity.
    [[nodiscard]] EventRegistrationHandler Observe(const NodeId& id, unsigned int affinityId,
                                                   ReferenceObserver::Callback onAdded,
                                                   ReferenceObserver::Callback onRemoved = {})
    {
        return GetNode(id)->RegisterEventObserver(
            std::make_shared<ReferenceObserver>(std::move(onAdded), std::move(onRemoved)),
            EventFilter::references, affinityId, nullptr, 0);
    }

    void RaiseDeviceEvent(const NodeId& object, unsigned int number)
    {
        const auto type = runtime->GetContext().GetObjectType(EventType());
        const auto& arguments = type->GetEventArguments();
        std::vector<Value> fields(arguments.GetFieldsSize());
        fields[arguments.GetFieldIndex(NumberField())] = number;
        GetObject(object)->RaiseEvent(type, fields);
    }

    [[nodiscard]] static QualifiedName NumberField()
    {
        return {EventType().GetNamespaceIndex(), "Number"};
    }

    [[nodiscard]] static unsigned int NumberOf(const Event& event)
    {
        return event.GetField(NumberField()).Get<unsigned int>();
    }

    /// Ends the runtime and leaves it in reach meanwhile, for observers that use it when they hear
    /// of its end.
    void EndWhileInUse()
    {
        delete runtime.get();
        static_cast<void>(runtime.release());
    }

    /// True when an entry of the category "Core" holds this text.
    [[nodiscard]] bool IsLogged(const std::string& text) const
    {
        const auto entries = log->GetEntries();
        return std::any_of(entries.begin(), entries.end(), [&text](const LogEntry& entry) {
            return entry.category == "Core" && entry.message.find(text) != std::string::npos;
        });
    }

    const Guid deviceFactoryId{"0000000000000000000000000000de1c"};
    const std::shared_ptr<CapturingLogSink> log = std::make_shared<CapturingLogSink>();
    const std::shared_ptr<Record> record = std::make_shared<Record>();
    Script script;
    std::unique_ptr<Runtime> runtime;
};

} // namespace CoreTests
