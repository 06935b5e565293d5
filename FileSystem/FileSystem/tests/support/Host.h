#pragma once

#include "BehaviourProbe.h"
#include "Core/Embedding/Runtime.h"
#include "EventRecorder.h"
#include "FileSystemBehaviour.h"
#include "ModuleIdentifiers.h"
#include "Tasks.h"
#include "TemporaryFolder.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace FileSystemTests {

/// Makes the module's behaviours and remembers them.
class RememberingFactory final : public Core::IBehaviourFactory
{
public:
    struct Made
    {
        Core::INode* node = nullptr;
        std::weak_ptr<FileSystem::FileSystemBehaviour> behaviour;
    };

    [[nodiscard]] std::shared_ptr<Core::IBehaviour> MakeBehaviour(Core::INode& node) const override
    {
        auto behaviour = std::make_shared<FileSystem::FileSystemBehaviour>(node);
        const std::lock_guard lock(mutex);
        made.push_back({&node, behaviour});
        return behaviour;
    }

    [[nodiscard]] Made GetLast() const
    {
        const std::lock_guard lock(mutex);
        return made.back();
    }

private:
    mutable std::mutex mutex;
    mutable std::vector<Made> made; // guarded by mutex
};

/// A running host with one started `FileSystem` object, whose behaviour tests can reach.
class Host
{
public:
    Host()
    {
        runtime.LoadInformationModel(TALVENSOR_MODEL);
        runtime.GetContext().GetNodeFactory().RegisterBehaviourFactory(
            Core::Guid("f3fff72d2665419db0820fe66246027f"), factory);
        object = runtime.CreateObject(
            {FileSystem::ObjectTypes::FileSystem(), Core::QualifiedName(1, "Files")});
        made = factory->GetLast();
    }

    [[nodiscard]] Core::Embedding::Runtime& GetRuntime() { return runtime; }
    [[nodiscard]] const Core::NodeId& GetObject() const { return object; }
    [[nodiscard]] Core::INode& GetNode() const { return *made.node; }
    /// Returns the object's behaviour, which the host keeps as long as it lives.
    [[nodiscard]] FileSystem::FileSystemBehaviour& GetBehaviour() const
    {
        return *made.behaviour.lock();
    }

    /// Makes one more behaviour for the object's node, of which the host does not know: it does not
    /// start it.
    [[nodiscard]] std::shared_ptr<FileSystem::FileSystemBehaviour> MakeUnstartedBehaviour() const
    {
        return std::make_shared<FileSystem::FileSystemBehaviour>(*made.node);
    }

private:
    std::shared_ptr<RememberingFactory> factory = std::make_shared<RememberingFactory>();
    Core::Embedding::Runtime runtime;
    Core::NodeId object;
    RememberingFactory::Made made;
};

inline std::vector<unsigned char> Bytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

/// A test of one started behaviour, on a thread that works for a session.
class FileSystemTest : public ::testing::Test
{
protected:
    using OpenModeEnum = FileSystem::OpenModeEnum;

    /// Returns a fresh handle for a path, of this thread's session.
    unsigned int Register(const std::string& path)
    {
        const unsigned int handle = behaviour.GetFreshHandle();
        behaviour.RegisterFileHandle(handle, path);
        return handle;
    }

    unsigned int OpenRegistered(const std::string& path, OpenModeEnum mode)
    {
        const unsigned int handle = Register(path);
        EXPECT_TRUE(behaviour.OpenFile(handle, path, mode)) << path;
        return handle;
    }

    [[nodiscard]] FILE* GetStream(unsigned int handle)
    {
        return behaviour.GetFileInfo(handle).file;
    }

    [[nodiscard]] bool IsRegistered(unsigned int handle) const
    {
        const std::lock_guard lock(probe.HandlesMutex());
        return probe.HandlesMap().contains(handle);
    }

    /// Expects no event of the tasks queued so far.
    void ExpectNoEvent()
    {
        FinishQueue(behaviour);
        EXPECT_EQ(events.TakeAll().size(), 0U);
    }

    /// Expects one acknowledgement of the tasks queued so far, and no other event.
    void ExpectOnlyAck(unsigned int handle, unsigned int result)
    {
        FinishQueue(behaviour);
        const auto taken = events.TakeAll();
        ASSERT_EQ(taken.size(), 1U);
        EXPECT_EQ(TypeNumber(*taken[0]), ackEvent);
        EXPECT_EQ(OwnField(*taken[0], "FileHandle"), Core::Value(handle));
        EXPECT_EQ(OwnField(*taken[0], "Result"), Core::Value(result));
    }

    Host host;
    FileSystem::FileSystemBehaviour& behaviour = host.GetBehaviour();
    FileSystem::BehaviourProbe probe{behaviour};
    EventRecorder events{host.GetRuntime(), host.GetObject()};
    TemporaryFolder folder;
    std::shared_ptr<Core::Embedding::Session> session = host.GetRuntime().OpenSession("test");
    Core::Embedding::SessionScope sessionScope{session};
};

} // namespace FileSystemTests
