#include "support/RuntimeFixture.h"

#include <algorithm>
#include <dlfcn.h>
#include <filesystem>

namespace CoreTests {

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

class AModule : public RuntimeFixture
{
protected:
    AModule()
    {
        LogControl::SetLevel("RecordingModule", LogLevel::Debug);
        LogControl::SetLevel("FailingModule", LogLevel::Debug);
    }
    ~AModule() override { LogControl::ResetCategoryLevels(); }

    /// Returns the messages that a module has logged, in order.
    [[nodiscard]] std::vector<std::string> GetLog(const std::string& category) const
    {
        std::vector<std::string> messages;
        for (const auto& entry : log->GetEntries()) {
            if (entry.category == category)
                messages.push_back(entry.message);
        }
        return messages;
    }

    [[nodiscard]] NodeId Create(const NodeId& type)
    {
        return runtime->CreateObject(
            {type, QualifiedName(1, "made by a module"), Objects::ObjectsFolder(), {}});
    }

    [[nodiscard]] static bool IsLoaded(const char* library)
    {
        auto* const handle = dlopen(library, RTLD_NOW | RTLD_NOLOAD);
        if (handle != nullptr)
            dlclose(handle);
        return handle != nullptr;
    }

    /// True when the factory that the failing modules register is found.
    [[nodiscard]] bool IsFailedFactoryKnown()
    {
        try {
            static_cast<void>(Create(TestId(6)));
        } catch (const NotFoundException&) {
            return false;
        } catch (const InvalidStateException&) { // the factory makes nothing
        }
        return true;
    }
};

TEST_F(AModule, MakesBehavioursAndIsUnloadedAfterTheLastOfThem)
{
    runtime->LoadModule(CORE_TEST_MODULE_Recording);
    const auto device = Create(TestId(5));
    const auto session = runtime->OpenSession("caller");
    EXPECT_THAT(runtime->Call(session, device, "Echo", {Value("hello")}).outputs,
                ElementsAre(Value("hello")));
    runtime.reset();
    EXPECT_THAT(GetLog("RecordingModule"),
                ElementsAre("loaded", "started", "stopped", "behaviour destroyed",
                            "factory destroyed", "unloaded"));
    EXPECT_FALSE(IsLoaded(CORE_TEST_MODULE_Recording));
}

TEST_F(AModule, LeavesNoExceptionOfItsOwnTypeBehindWhenItIsUnloaded)
{
    runtime->LoadModule(CORE_TEST_MODULE_Recording);
    const auto call = [device = Create(TestId(5)), session = runtime->OpenSession("caller"),
                       this](const char* method) -> std::exception_ptr {
        try {
            static_cast<void>(runtime->Call(session, device, method, {}));
        } catch (...) {
            return std::current_exception();
        }
        return nullptr;
    };
    const auto own = call("ThrowOwn");
    const auto ownOfCore = call("ThrowOwnOfCore");
    const auto cores = call("ThrowCores");
    runtime.reset();
    ASSERT_FALSE(IsLoaded(CORE_TEST_MODULE_Recording));
    EXPECT_THAT([&] { std::rethrow_exception(own); },
                ThrowsMessage<std::runtime_error>("the module's own words"));
    try {
        std::rethrow_exception(ownOfCore);
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.GetErrorCode(), static_cast<unsigned int>(ErrorCode::NotFound));
        EXPECT_EQ(exception.GetMessage(), "the message");
        EXPECT_EQ(exception.GetDetails(), "the details");
    }
    EXPECT_THAT([&] { std::rethrow_exception(cores); },
                ThrowsMessage<NotFoundException>("Core's words"));
}

TEST_F(AModule, StaysLoadedAsLongAsItsRuntimeEvenWithoutObjects)
{
    runtime->LoadModule(CORE_TEST_MODULE_Recording);
    runtime->RemoveObject(Create(TestId(5)));
    EXPECT_TRUE(IsLoaded(CORE_TEST_MODULE_Recording));
    static_cast<void>(Create(TestId(5)));
}

TEST_F(AModule, StaysLoadedAsLongAsSomeoneHoldsOneOfItsBehaviours)
{
    runtime->LoadModule(CORE_TEST_MODULE_Recording);
    const auto device = Create(TestId(5));
    static_cast<void>(runtime->Call(runtime->OpenSession("caller"), device, "Share", {}));

    auto* const handle = dlopen(CORE_TEST_MODULE_Recording, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(handle, nullptr);
    std::shared_ptr<IBehaviour> behaviour;
    using Take = void(std::shared_ptr<IBehaviour>&);
    reinterpret_cast<Take*>(dlsym(handle, "TakeSharedBehaviour"))(behaviour);
    dlclose(handle);
    ASSERT_NE(behaviour, nullptr);

    runtime.reset();
    EXPECT_TRUE(IsLoaded(CORE_TEST_MODULE_Recording));
    behaviour.reset();
    EXPECT_EQ(GetLog("RecordingModule").back(), "behaviour destroyed");

    runtime = std::make_unique<Runtime>(); // its end releases the leftovers
    runtime.reset();
    EXPECT_FALSE(IsLoaded(CORE_TEST_MODULE_Recording));
}

TEST_F(AModule, IsLoadedByARelativePathToo)
{
    runtime->LoadModule(std::filesystem::relative(CORE_TEST_MODULE_Recording));
    static_cast<void>(Create(TestId(5)));
}

TEST_F(AModule, IsNeverSearchedFor)
{
    EXPECT_THROW(runtime->LoadModule("libc.so.6"), ModuleNotLoadableException);
}

TEST_F(AModule, CannotBeLoadedFromWhatIsNotThereOrNoLibrary)
{
    EXPECT_THAT([this] { runtime->LoadModule("/nonexistent/module.so"); },
                ThrowsMessage<ModuleNotLoadableException>(
                    AllOf(HasSubstr("/nonexistent/module.so"), HasSubstr("No such file"))));
    EXPECT_THAT([this] { runtime->LoadModule(CORE_TEST_DATA "/Runtime.NodeSet2.xml"); },
                ThrowsMessage<ModuleNotLoadableException>(HasSubstr("invalid ELF header")));
    EXPECT_THROW(runtime->LoadModule(CORE_TEST_DATA), ModuleNotLoadableException);
    EXPECT_THROW(runtime->LoadModule(""), ModuleNotLoadableException);
    EXPECT_THROW(runtime->LoadModule(CORE_TEST_MODULE_Recording + std::string("\0.bak", 5)),
                 ModuleNotLoadableException);
}

TEST_F(AModule, CannotBeLoadedWithUndefinedSymbols)
{
    EXPECT_THAT([this] { runtime->LoadModule(CORE_TEST_MODULE_Undefined); },
                ThrowsMessage<ModuleNotLoadableException>(HasSubstr("MissingOperation")));
}

TEST_F(AModule, CannotBeLoadedWithoutItsEntry)
{
    EXPECT_THAT([this] { runtime->LoadModule(CORE_TEST_MODULE_WithoutEntry); },
                ThrowsMessage<ModuleEntryMissingException>(HasSubstr("RegisterFactories")));
    EXPECT_FALSE(IsLoaded(CORE_TEST_MODULE_WithoutEntry));
}

TEST_F(AModule, LeavesNothingBehindWhenItRefuses)
{
    EXPECT_THAT([this] { runtime->LoadModule(CORE_TEST_MODULE_Refusing); },
                ThrowsMessage<ModuleRefusedException>(HasSubstr("returned 0")));
    EXPECT_FALSE(IsFailedFactoryKnown());
    EXPECT_THAT(GetLog("FailingModule"), ElementsAre("factory destroyed", "unloaded"));
    EXPECT_FALSE(IsLoaded(CORE_TEST_MODULE_Refusing));
}

TEST_F(AModule, LeavesNothingBehindWhenItThrows)
{
    EXPECT_THAT([this] { runtime->LoadModule(CORE_TEST_MODULE_Throwing); },
                ThrowsMessage<ModuleFailedException>(HasSubstr("not today")));
    EXPECT_FALSE(IsFailedFactoryKnown());
    EXPECT_THAT(GetLog("FailingModule"), ElementsAre("factory destroyed", "unloaded"));
}

TEST_F(AModule, FailsWhenAFactoryIsRegisteredAlreadyAndLeavesTheOtherAlone)
{
    runtime->LoadModule(CORE_TEST_MODULE_Recording);
    EXPECT_THAT(
        [this] { runtime->LoadModule(CORE_TEST_MODULE_Duplicate); },
        ThrowsMessage<ModuleFailedException>(HasSubstr("00000000000000000000000000000001")));
    EXPECT_FALSE(IsFailedFactoryKnown());
    static_cast<void>(Create(TestId(5)));
}

TEST_F(AModule, FailsWhenItIsLoadedTwiceAndStaysUsable)
{
    runtime->LoadModule(CORE_TEST_MODULE_Recording);
    EXPECT_THROW(runtime->LoadModule(CORE_TEST_MODULE_Recording), ModuleFailedException);
    static_cast<void>(Create(TestId(5)));
}

TEST_F(AModule, ServesTwoRuntimesAndStaysForTheSecond)
{
    Runtime second;
    second.LoadInformationModel(CORE_TEST_DATA "/Runtime.NodeSet2.xml");
    runtime->LoadModule(CORE_TEST_MODULE_Recording);
    second.LoadModule(CORE_TEST_MODULE_Recording);
    runtime.reset();
    static_cast<void>(
        second.CreateObject({TestId(5), QualifiedName(1, "device"), Objects::ObjectsFolder(), {}}));
    EXPECT_TRUE(IsLoaded(CORE_TEST_MODULE_Recording));
}

TEST_F(AModule, HasItsFactoriesCheckedWhenTheyAreRegistered)
{
    auto& factories = runtime->GetContext().GetNodeFactory();
    EXPECT_THROW(factories.RegisterBehaviourFactory(Guid::Random(), nullptr),
                 InvalidArgumentException);
    EXPECT_THROW(factories.RegisterBehaviourFactory(
                     deviceFactoryId, std::make_shared<DeviceFactory>(DeviceFactory::Make())),
                 AlreadyExistsException);
}

TEST_F(AModule, HasToMakeABehaviourWhenItIsAskedForOne)
{
    runtime->GetContext().GetNodeFactory().RegisterBehaviourFactory(
        Guid("00000000000000000000000000000002"),
        std::make_shared<DeviceFactory>([](INode&) { return nullptr; }));
    EXPECT_THROW(static_cast<void>(Create(TestId(6))), InvalidStateException);
}

} // namespace

} // namespace CoreTests
