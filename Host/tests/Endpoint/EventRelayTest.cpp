#include "Endpoint/EventRelay.h"

#include "Core/CoreContext.h"
#include "Core/NamespaceMap.h"
#include "Core/Node.h"
#include "Core/Objects.h"
#include "Endpoint/TypeProjection.h"
#include "Log/UaLogger.h"

#include <gtest/gtest.h>

#include <open62541/server_config_default.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace Host {
namespace {

using namespace Core::Embedding;

struct ServerDeleter
{
    void operator()(UA_Server* server) const noexcept { UA_Server_delete(server); }
};

std::unique_ptr<Runtime> MakeRuntime()
{
    auto runtime = std::make_unique<Runtime>();
    runtime->LoadInformationModel(TALVENSOR_MODEL);
    runtime->LoadModule(TALVENSOR_MODULE);
    return runtime;
}

/// A file system whose events go into a server that nobody has connected to.
class AnEventRelay : public testing::Test
{
protected:
    AnEventRelay()
    {
        UA_Server_getConfig(server.get())->customDataTypes = &structures.GetArray();
        TypeProjection(*server, *runtime->GetInformationModel(), namespaces).Project();
        NewObject object{{fileSystem, 1},
                         Core::QualifiedName(fileSystem, "Files"),
                         Core::Objects::ObjectsFolder(),
                         {}};
        object.id = runtime->CreateObject(object);
        objects.Add(object, nullptr);
        files = object.id;
        subscription = relay.Follow(files);
    }

    std::unique_ptr<UA_Server, ServerDeleter> MakeServer()
    {
        UA_ServerConfig configuration{};
        configuration.logging = &logger.Get();
        configuration.eventLoop = loop.GetHandle();
        EXPECT_EQ(UA_ServerConfig_setBasics_withPort(&configuration, 0), UA_STATUSCODE_GOOD);
        nodeStore.Install(configuration);
        return std::unique_ptr<UA_Server, ServerDeleter>(UA_Server_newWithConfig(&configuration));
    }

    void RaiseAck(const Core::Value& handle, const Core::Value& result)
    {
        const auto type = runtime->GetContext().GetObjectType({fileSystem, ackEvent});
        const auto& arguments = type->GetEventArguments();
        std::vector<Core::Value> fields(arguments.GetFieldsSize());
        fields[arguments.GetFieldIndex({fileSystem, "FileHandle"})] = handle;
        fields[arguments.GetFieldIndex({fileSystem, "Result"})] = result;
        const auto node = runtime->GetContext().GetNode(files);
        std::dynamic_pointer_cast<Core::IObject>(node)->RaiseEvent(type, fields);
        bool isThrough = false;
        loop.Post([&isThrough] { isThrough = true; });
        UA_EventLoop* handleOfLoop = loop.GetHandle();
        while (!isThrough)
            handleOfLoop->run(handleOfLoop, 1'000);
    }

    /// Returns the only node of the event type.
    Ua<UA_NodeId> FindEvent()
    {
        UA_BrowseDescription instances;
        UA_BrowseDescription_init(&instances);
        const auto type = namespaces.ToUa(Core::NodeId{fileSystem, ackEvent});
        instances.nodeId = *type;
        instances.browseDirection = UA_BROWSEDIRECTION_INVERSE;
        instances.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HASTYPEDEFINITION);
        UA_BrowseResult found = UA_Server_browse(server.get(), 0, &instances);
        EXPECT_EQ(found.referencesSize, 1U);
        UA_NodeId copy;
        EXPECT_EQ(UA_NodeId_copy(&found.references[0].nodeId.nodeId, &copy), UA_STATUSCODE_GOOD);
        UA_BrowseResult_clear(&found);
        return Ua<UA_NodeId>(copy);
    }

    Core::Value ReadField(const char* name)
    {
        const UA_QualifiedName path{namespaces.ToUa(fileSystem), ViewOf(name)};
        UA_BrowsePathResult found =
            UA_Server_browseSimplifiedBrowsePath(server.get(), *FindEvent(), 1, &path);
        EXPECT_EQ(found.targetsSize, 1U);
        Ua<UA_Variant> value;
        const UA_StatusCode status =
            UA_Server_readValue(server.get(), found.targets[0].targetId.nodeId, &*value);
        UA_BrowsePathResult_clear(&found);
        if (status == UA_STATUSCODE_BADWAITINGFORINITIALDATA)
            return {}; // the library's word for a variable without a value
        EXPECT_EQ(status, UA_STATUSCODE_GOOD);
        return values.ToCore(*value);
    }

    static constexpr unsigned int ackEvent = 54;

    std::unique_ptr<Runtime> runtime = MakeRuntime();
    const int fileSystem = Core::NamespaceMap::GetNamespaceIndex("urn:Talvensor:FileSystem");
    UaLogger logger{UaLogger::Source::Transport};
    EventLoop loop{logger.Get(), {}};
    NodeStore nodeStore;
    std::unique_ptr<UA_Server, ServerDeleter> server = MakeServer();
    const Namespaces namespaces{*server};
    const StructureTypes structures{*runtime->GetInformationModel(), namespaces};
    const Values values{namespaces, structures};
    Objects objects{*server, nodeStore, namespaces};
    EventBacklog backlog{namespaces, 1'000'000};
    EventPacing pacing{*server, loop, 1'000'000};
    EventRelay relay{*server, loop, *runtime, namespaces, values, objects, backlog, pacing};
    Core::NodeId files;
    EventSubscription subscription;
};

TEST_F(AnEventRelay, LeavesNoFieldOfTheEventBeforeInOneThatHasNone)
{
    RaiseAck(7U, 1U);
    EXPECT_EQ(ReadField("FileHandle").Get<unsigned int>(), 7U);
    EXPECT_EQ(ReadField("Result").Get<unsigned int>(), 1U);
    RaiseAck(8U, {});
    EXPECT_EQ(ReadField("FileHandle").Get<unsigned int>(), 8U);
    EXPECT_TRUE(ReadField("Result").IsEmpty());
    RaiseAck({}, 2U);
    EXPECT_TRUE(ReadField("FileHandle").IsEmpty());
    EXPECT_EQ(ReadField("Result").Get<unsigned int>(), 2U);
}

} // namespace
} // namespace Host
