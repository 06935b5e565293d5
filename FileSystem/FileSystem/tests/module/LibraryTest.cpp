#include "ModuleTest.h"

#include "Core/Exception.h"
#include "Core/NodeFactory.h"
#include "Core/Objects.h"
#include "LogCapture.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <dlfcn.h>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

namespace {

using namespace FileSystemTests;

using testing::HasSubstr;

/// Returns the output of a command.
std::string RunCommand(const std::string& command)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen(command.c_str(), "r"), ::pclose);
    if (output == nullptr)
        throw std::system_error(errno, std::generic_category(), command);
    std::string text;
    std::array<char, 4096> part{};
    for (std::size_t count = 0;
         (count = std::fread(part.data(), 1, part.size(), output.get())) > 0;)
        text.append(part.data(), count);
    return text;
}

std::vector<std::string> SplitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/// Returns the demangled names of the module's exports.
std::vector<std::string> GetExports()
{
    std::vector<std::string> names;
    for (const auto& line : SplitLines(RunCommand("nm -D -C --defined-only " TALVENSOR_MODULE))) {
        // address, kind, name
        const auto kind = line.find(' ');
        names.push_back(line.substr(kind + 3));
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST(TheLibrary, ExportsWhatItPromisesAndNothingElse)
{
    std::vector<std::string> expected{
        "RegisterFactories",
        "FileSystem::Module::GetName[abi:cxx11]()",
        "FileSystem::Module::GetURI[abi:cxx11]()",
        "FileSystem::ObjectTypes::FileSystem()",
        "FileSystem::ObjectTypes::AckEvent()",
        "FileSystem::ObjectTypes::ExistsResultEvent()",
        "FileSystem::ObjectTypes::DeleteResultEvent()",
        "FileSystem::ObjectTypes::CreateDirectoryResultEvent()",
        "FileSystem::ObjectTypes::ListResultEvent()",
        "FileSystem::DataTypes::OpenModeEnum()",
        "FileSystem::DataTypes::ModeEnum()",
        "FileSystem::DataTypes::ListItem()",
        "SecurityEnhancedUtils::memcpy(void*, unsigned long, void const*, unsigned long)",
        "SecurityEnhancedUtils::strncpy(char*, char const*, unsigned long)",
    };
    constexpr const char* text =
        "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&";
    expected.push_back(std::string("SecurityEnhancedUtils::fopen(") + text + ", " + text + ")");
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(GetExports(), expected);
}

TEST(TheLibrary, NeedsTheHostsLibrary)
{
    const std::string needed = RunCommand("readelf -d " TALVENSOR_MODULE);
    EXPECT_THAT(needed, HasSubstr("Shared library: [libCore.so"));
}

TEST(TheLibrary, HoldsNoPathOfTheMachineThatBuiltIt)
{
    if (std::string_view(TALVENSOR_SANITIZER) == "address")
        GTEST_SKIP() << "The compiler puts source paths beside the sanitizer's checks";
    const std::string model = TALVENSOR_MODEL;
    const std::string root = model.substr(0, model.find("FileSystem/FileSystem/model"));
    for (const char* section : {".rodata", ".data", ".data.rel.ro"}) {
        const std::string texts =
            RunCommand(std::string("readelf -p ") + section + " " TALVENSOR_MODULE " 2>&1");
        EXPECT_EQ(texts.find(root), std::string::npos) << section;
    }
    const std::string texts = RunCommand("readelf -p .rodata " TALVENSOR_MODULE);
    EXPECT_NE(texts.find("FileSystem/FileSystem/src/"), std::string::npos);
}

/// Each test is alone in its process: the module's identifiers last as long as the process.
class Loading : public testing::Test
{
protected:
    static bool IsNamespaceKnown()
    {
        const auto uris = Core::NamespaceMap::GetUris();
        return std::find(uris.begin(), uris.end(), moduleUri) != uris.end();
    }

    /// True when the test has been run in a new process, because this one is not fresh.
    static bool RunsElsewhere()
    {
        if (!IsNamespaceKnown())
            return false;
        const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
        const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
        // Not only a part of the tests, as this process may be told to run.
        const std::string output =
            RunCommand("env -u GTEST_TOTAL_SHARDS -u GTEST_SHARD_INDEX '" + self +
                       "' --gtest_filter=" + test->test_suite_name() + "." + test->name());
        EXPECT_THAT(output, HasSubstr("[  PASSED  ] 1 test."));
        return true;
    }
};

TEST_F(Loading, NeitherStartsAThreadNorAsksForTheNamespace)
{
    if (RunsElsewhere())
        return;
    std::thread([] {}).join(); // some sanitizers add a thread of their own to the first
    Core::Embedding::Runtime runtime;
    const std::size_t threads = CountThreads();
    runtime.LoadModule(TALVENSOR_MODULE);
    EXPECT_EQ(CountThreads(), threads);
    EXPECT_FALSE(IsNamespaceKnown());
    // Found although registered after the load: an identifier made at load time would be missing.
    runtime.LoadInformationModel(TALVENSOR_MODEL);
    const auto object =
        runtime.CreateObject({.type = LoadedModule::MakeTypeId(1), .browseName = {1, "Files"}});
    EXPECT_EQ(CountThreads(), threads + 1);
    const Client client(runtime, object);
    EventRecorder recorder(runtime, object);
    EXPECT_TRUE(WaitForBarrier(client, recorder).empty());
}

using Identifiers = Loading;

TEST_F(Identifiers, AreFoundLaterWhenTheNamespaceCameLate)
{
    if (RunsElsewhere())
        return;
    void* const library = ::dlopen(TALVENSOR_MODULE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr);
    using Identifier = const Core::NodeId&();
    // FileSystem::ObjectTypes::AckEvent()
    auto* const ackEventId =
        reinterpret_cast<Identifier*>(::dlsym(library, "_ZN10FileSystem11ObjectTypes8AckEventEv"));
    ASSERT_NE(ackEventId, nullptr);
    // A host's exception crosses the module, which is built by itself.
    EXPECT_THROW(static_cast<void>(ackEventId()), Core::NotFoundException);
    const int index = Core::NamespaceMap::Register(moduleUri);
    EXPECT_EQ(ackEventId(), Core::NodeId(index, 54));
    EXPECT_EQ(&ackEventId(), &ackEventId());
    ::dlclose(library);
}

TEST(AModel, WithoutTheEventTypesFailsTheStartWithTheHostsException)
{
    const TemporaryFolder folder;
    const std::string model = folder.MakeFile("Model.xml", R"(<?xml version="1.0" encoding="utf-8"?>
<UANodeSet xmlns="http://opcfoundation.org/UA/2011/03/UANodeSet.xsd">
  <NamespaceUris><Uri>urn:Talvensor:FileSystem</Uri></NamespaceUris>
  <Models><Model ModelUri="urn:Talvensor:FileSystem" Version="1.0.0"/></Models>
  <UAObjectType NodeId="ns=1;i=1" BrowseName="1:FileSystem">
    <DisplayName>FileSystem</DisplayName>
    <References><Reference ReferenceType="i=45" IsForward="false">i=58</Reference></References>
    <Extensions><Extension>
      <BehaviourFactory xmlns="urn:Talvensor:Core:Model" Guid="f3fff72d2665419db0820fe66246027f"/>
    </Extension></Extensions>
  </UAObjectType>
</UANodeSet>
)");
    Core::Embedding::Runtime runtime;
    runtime.LoadInformationModel(model);
    runtime.LoadModule(TALVENSOR_MODULE);
    const std::size_t threads = CountThreads();
    EXPECT_THROW(
        runtime.CreateObject({.type = LoadedModule::MakeTypeId(1), .browseName = {1, "Files"}}),
        Core::NotFoundException);
    EXPECT_EQ(CountThreads(), threads);
}

/// A host of the test's own around a real one. Takes the module's factory, and has a node on which
/// raising events can fail.
class OwnHost final : public Core::CoreContext, public Core::NodeFactory
{
public:
    explicit OwnHost(Core::CoreContext& host)
        : host(&host)
    {}

    std::shared_ptr<Core::INode> GetNode(const Core::NodeId& nodeId) override
    {
        return host->GetNode(nodeId);
    }
    std::shared_ptr<Core::IObjectType> GetObjectType(const Core::NodeId& nodeId) override
    {
        return host->GetObjectType(nodeId);
    }
    unsigned int AssignAffinityId() override { return host->AssignAffinityId(); }
    Core::NodeFactory& GetNodeFactory() noexcept override { return *this; }
    Core::Dispatcher& GetDispatcher() noexcept override { return host->GetDispatcher(); }
    Core::Sessions& GetSessions() noexcept override { return host->GetSessions(); }
    const std::vector<Core::Folder>& GetFolders() const noexcept override
    {
        return host->GetFolders();
    }

    void RegisterBehaviourFactory(const Core::Guid& identifier,
                                  std::shared_ptr<Core::IBehaviourFactory> factory) override
    {
        factories.emplace_back(identifier, std::move(factory));
    }

    std::vector<std::pair<Core::Guid, std::shared_ptr<Core::IBehaviourFactory>>> factories;

private:
    Core::CoreContext* host;
};

class FailingNode final : public Core::IObject, public std::enable_shared_from_this<FailingNode>
{
public:
    FailingNode(Core::CoreContext& context, std::function<void()> raise)
        : context(&context)
        , raise(std::move(raise))
    {}

    const Core::NodeId& GetNodeId() const noexcept override { return id; }
    const Core::QualifiedName& GetBrowseName() const noexcept override { return name; }
    Core::CoreContext& GetCoreContext() const noexcept override { return *context; }
    Core::EventRegistrationHandler
    RegisterEventObserver(std::shared_ptr<Core::IEventObserver> /*observer*/,
                          std::uint64_t /*filter*/, unsigned int /*affinityId*/,
                          std::shared_ptr<Core::SessionHandler> /*session*/,
                          int /*options*/) override
    {
        return {};
    }
    std::shared_ptr<Core::INode> GetSharedPointer() override { return shared_from_this(); }
    void RaiseEvent(const std::shared_ptr<Core::IObjectType>& /*eventType*/,
                    const std::vector<Core::Value>& /*fields*/) override
    {
        raise();
    }

private:
    Core::CoreContext* context;
    std::function<void()> raise;
    Core::NodeId id{1, 4711U};
    Core::QualifiedName name{1, "Failing"};
};

class TheEntry : public testing::Test
{
protected:
    TheEntry() { runtime.LoadInformationModel(TALVENSOR_MODEL); }
    ~TheEntry() override
    {
        host.factories.clear();
        ::dlclose(library);
    }

    int Register()
    {
        using Entry = int(Core::CoreContext&);
        auto* const entry = reinterpret_cast<Entry*>(::dlsym(library, "RegisterFactories"));
        return entry == nullptr ? -1 : entry(host);
    }

    Core::Embedding::Runtime runtime;
    OwnHost host{runtime.GetContext()};
    void* library = ::dlopen(TALVENSOR_MODULE, RTLD_NOW | RTLD_LOCAL);
};

TEST_F(TheEntry, RegistersOneFactoryAndReturnsOne)
{
    EXPECT_EQ(Register(), 1);
    ASSERT_EQ(host.factories.size(), 1U);
    EXPECT_EQ(host.factories.front().first, Core::Guid("f3fff72d2665419db0820fe66246027f"));
    EXPECT_EQ(host.factories.front().second.use_count(), 1);
}

TEST_F(TheEntry, LeadsToAWorkerThatLogsWhatTheHostThrowsWithItsCodeAndGoesOn)
{
    ASSERT_EQ(Register(), 1);
    std::atomic<int> raised = 0;
    const auto node = std::make_shared<FailingNode>(host, [&raised] {
        switch (++raised) {
        case 1:
            throw Core::AlreadyExistsException("the host refuses", "more about it");
        case 2:
            throw std::runtime_error("something else");
        default:
            throw 5; // NOLINT(hicpp-exception-baseclass): whatever it may be
        }
    });
    const auto session = runtime.OpenSession("client");
    const LogCapture log;
    {
        const auto behaviour = host.factories.front().second->MakeBehaviour(*node);
        auto* const executable = dynamic_cast<Core::IExecutableBehaviour*>(behaviour.get());
        ASSERT_NE(executable, nullptr);
        behaviour->OnStart();
        const Core::Embedding::SessionScope scope(session);
        for (int i = 0; i < 3; ++i) {
            Values outputs;
            EXPECT_TRUE(executable->OnExecuteMethod(node, "Exists", {"/"}, outputs));
        }
        behaviour->OnStop();
    }
    const auto entries = log.GetEntries();
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].message, "Exception caught: the host refuses");
    EXPECT_EQ(entries[0].code, 5U * 65536U + 535U);
    EXPECT_EQ(entries[0].details, "more about it");
    EXPECT_EQ(entries[1].message, "Exception caught: something else");
    EXPECT_EQ(entries[1].code, 535U);
    EXPECT_EQ(entries[2].message, "Unknown exception caught");
    for (const auto& entry : entries) {
        EXPECT_EQ(entry.level, Core::LogLevel::Error);
        EXPECT_EQ(entry.function, "operator()");
        EXPECT_EQ(entry.line, 820);
        EXPECT_EQ(entry.file, "FileSystem/FileSystem/src/FileSystemBehaviour.cpp");
    }
}

TEST_F(TheEntry, MakesBehavioursThatOutliveTheFactory)
{
    ASSERT_EQ(Register(), 1);
    const auto node = std::make_shared<FailingNode>(host, [] {});
    const auto behaviour = host.factories.front().second->MakeBehaviour(*node);
    host.factories.clear();
    behaviour->OnStart(); // registers itself, by a pointer to itself
    behaviour->OnStop();
}

using TheLog = AFileSystem;

TEST_F(TheLog, NamesPlacesBelowTheRootOfTheSources)
{
    const LogCapture log(Core::LogLevel::Trace);
    client.List(folder.GetPath(), true);
    client.Open(folder / "missing", 1);
    EXPECT_EQ(WaitForBarrier().size(), 2U);
    const auto entries = log.GetEntries();
    ASSERT_EQ(entries.size(), 4U); // three requests and one failure
    for (const auto& entry : entries)
        EXPECT_EQ(entry.file, "FileSystem/FileSystem/src/WorkerQueueTask.cpp");
    EXPECT_EQ(entries[0].message,
              "ListTask, rootDirectory = " + folder.GetPath().string() + " , recusrive = 1");
}

} // namespace
