#include "FileSystemBehaviour.h"
#include "FileSystemBehaviourFactory.h"
#include "Host.h"
#include "HostDoubles.h"

#include <cstdlib>

namespace FileSystemTests {

namespace {

using FileSystem::Module::GetURI;

const Core::Guid factoryIdentifier("f3fff72d2665419db0820fe66246027f");

/// A namespace is registered once in a process, so the failing look-up needs a process of its own.
/// Ends the process with 0 on success.
[[noreturn]] void LookUpBeforeAndAfterTheNamespaceIsKnown()
{
    bool failedBefore = false;
    try {
        static_cast<void>(FileSystem::ObjectTypes::AckEvent());
    } catch (const Core::NotFoundException&) {
        failedBefore = true;
    }
    const int index = Core::NamespaceMap::Register(GetURI());
    const bool foundAfter = FileSystem::ObjectTypes::AckEvent() == Core::NodeId(index, 54U);
    std::_Exit(failedBefore && foundAfter ? 0 : 1);
}

} // namespace

TEST(ModuleIdentifiers, TheModuleHasItsPublishedNameAndUri)
{
    EXPECT_EQ(FileSystem::Module::GetName(), "Talvensor.FileSystem");
    EXPECT_EQ(FileSystem::Module::GetURI(), "urn:Talvensor:FileSystem");
    EXPECT_EQ(&FileSystem::Module::GetName(), &FileSystem::Module::GetName());
    EXPECT_EQ(&FileSystem::Module::GetURI(), &FileSystem::Module::GetURI());
}

struct PublishedIdentifier
{
    const char* name;
    const Core::NodeId& (*get)();
    unsigned int number;
};

class ModuleIdentifiers : public ::testing::TestWithParam<PublishedIdentifier>
{
protected:
    int index = Core::NamespaceMap::Register(GetURI());
};

TEST_P(ModuleIdentifiers, AnIdentifierIsItsPublishedNumberInTheModulesNamespace)
{
    EXPECT_EQ(GetParam().get(), Core::NodeId(index, GetParam().number));
    EXPECT_EQ(index, Core::NamespaceMap::GetNamespaceIndex("urn:Talvensor:FileSystem"));
}

TEST_P(ModuleIdentifiers, AnIdentifierIsTheSameObjectOnEveryCall)
{
    EXPECT_EQ(&GetParam().get(), &GetParam().get());
}

INSTANTIATE_TEST_SUITE_P(
    Published, ModuleIdentifiers,
    ::testing::Values(
        PublishedIdentifier{"FileSystem", FileSystem::ObjectTypes::FileSystem, 1},
        PublishedIdentifier{"AckEvent", FileSystem::ObjectTypes::AckEvent, 54},
        PublishedIdentifier{"ExistsResultEvent", FileSystem::ObjectTypes::ExistsResultEvent, 64},
        PublishedIdentifier{"DeleteResultEvent", FileSystem::ObjectTypes::DeleteResultEvent, 66},
        PublishedIdentifier{"CreateDirectoryResultEvent",
                            FileSystem::ObjectTypes::CreateDirectoryResultEvent, 67},
        PublishedIdentifier{"ListResultEvent", FileSystem::ObjectTypes::ListResultEvent, 68},
        PublishedIdentifier{"OpenModeEnum", FileSystem::DataTypes::OpenModeEnum, 33},
        PublishedIdentifier{"ModeEnum", FileSystem::DataTypes::ModeEnum, 51},
        PublishedIdentifier{"ListItem", FileSystem::DataTypes::ListItem, 50}),
    [](const auto& test) { return test.param.name; });

TEST(ModuleIdentifiersDeathTest, ALookUpThatFailedIsTriedAgain)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(LookUpBeforeAndAfterTheNamespaceIsKnown(), ::testing::ExitedWithCode(0), "");
}

TEST(ModuleRegistration, TheEntryReturnsOneAndRegistersOneFactoryUnderThePublishedIdentifier)
{
    Doubles::Context context;
    EXPECT_EQ(RegisterFactories(context), 1);
    ASSERT_EQ(context.nodeFactory.registered.size(), 1U);
    EXPECT_EQ(context.nodeFactory.registered[0].first, factoryIdentifier);
    EXPECT_NE(dynamic_cast<FileSystem::FileSystemBehaviourFactory*>(
                  context.nodeFactory.registered[0].second.get()),
              nullptr);
}

TEST(ModuleRegistration, OnlyTheHostKeepsTheFactory)
{
    Doubles::Context context;
    RegisterFactories(context);
    EXPECT_EQ(context.nodeFactory.registered.at(0).second.use_count(), 1);
}

TEST(ModuleRegistration, WhatTheHostThrowsPasses)
{
    Doubles::Context context;
    context.nodeFactory.refuses = true;
    EXPECT_THROW(RegisterFactories(context), Core::AlreadyExistsException);
}

TEST(ModuleRegistration, ARealHostTakesTheFactoryAndMakesBehavioursWithIt)
{
    Core::Embedding::Runtime runtime;
    runtime.LoadInformationModel(TALVENSOR_MODEL);
    EXPECT_EQ(RegisterFactories(runtime.GetContext()), 1);
    const auto object = runtime.CreateObject(
        {FileSystem::ObjectTypes::FileSystem(), Core::QualifiedName(1, "Files")});
    EventRecorder events(runtime, object);
    const auto session = runtime.OpenSession("test");
    EXPECT_TRUE(runtime.Call(session, object, "Exists", {Core::Value("/")}).taken);
    EXPECT_NE(events.Take(), nullptr);
    EXPECT_THROW(RegisterFactories(runtime.GetContext()), Core::AlreadyExistsException);
}

TEST(ModuleRegistration, ABehaviourOutlivesItsFactory)
{
    Doubles::Context context;
    auto factory = std::make_unique<FileSystem::FileSystemBehaviourFactory>();
    const auto behaviour = factory->MakeBehaviour(*context.node);
    factory.reset();
    ASSERT_EQ(behaviour.use_count(), 1);
    behaviour->OnStart();
    behaviour->OnStop();
}

TEST(ModuleRegistration, ABehaviourCanObtainASharedPointerToItself)
{
    Doubles::Context context;
    const auto behaviour = FileSystem::FileSystemBehaviourFactory().MakeBehaviour(*context.node);
    auto& itself = dynamic_cast<FileSystem::FileSystemBehaviour&>(*behaviour);
    EXPECT_EQ(std::static_pointer_cast<Core::IBehaviour>(itself.shared_from_this()), behaviour);
}

TEST(ModuleRegistration, EveryNodeGetsABehaviourOfItsOwn)
{
    Doubles::Context context;
    const FileSystem::FileSystemBehaviourFactory factory;
    EXPECT_NE(factory.MakeBehaviour(*context.node), factory.MakeBehaviour(*context.node));
}

TEST(ModuleRegistration, WhatTheConstructionOfABehaviourThrowsPasses)
{
    Doubles::Context context;
    context.refusesAffinity = true;
    EXPECT_THROW(
        static_cast<void>(FileSystem::FileSystemBehaviourFactory().MakeBehaviour(*context.node)),
        Core::InvalidStateException);
}

} // namespace FileSystemTests
