#include "Descriptors.h"
#include "Host.h"
#include "HostDoubles.h"
#include "LogCapture.h"
#include "ProcessLimits.h"
#include "Waiting.h"

#include <future>
#include <string_view>
#include <thread>
#include <utility>

namespace FileSystemTests {

using FileSystem::BehaviourProbe;
using FileSystem::FileSystemBehaviour;

namespace {

using Lines = std::vector<std::string>;

const Lines cacheLines{"GetObjectType 54", "GetObjectType 64", "GetObjectType 66",
                       "GetObjectType 67", "GetObjectType 68"};

struct MethodCall
{
    const char* name;
    std::vector<Core::Value> inputs;
};

std::vector<MethodCall> MakeCallsOfAllMethods(const std::string& path)
{
    const Core::Value text(path);
    const Core::Value bytes(std::vector<unsigned char>{1}, true);
    const Core::Value time(Core::DateTime::FromUnixEpochTime(1));
    const Core::Value permissions(static_cast<unsigned char>(0));
    const Core::Value handle(1U);
    return {{"Open", {text, Core::Value(0U)}},
            {"Close", {handle}},
            {"UploadFile", {text, bytes, time, permissions}},
            {"OpenWrite", {text, bytes}},
            {"Write", {handle, bytes}},
            {"WriteClose", {handle, bytes, time, permissions}},
            {"CreateDirectory", {text}},
            {"Delete", {Core::Value(std::vector<std::string>{path})}},
            {"List", {text, Core::Value(true)}},
            {"Exists", {text}},
            {"Read", {handle, Core::Value(1U)}},
            {"GetDateTime", {text}},
            {"SetDateTime", {text, time}},
            {"GetPosition", {handle}},
            {"SetPosition", {handle, Core::Value(0UL)}}};
}

} // namespace

/// A behaviour on a host that records the calls it gets.
class StartStopOrder : public ::testing::Test
{
protected:
    StartStopOrder() { context.journal.Clear(); }

    Doubles::Context context;
    std::shared_ptr<FileSystemBehaviour> behaviour =
        std::make_shared<FileSystemBehaviour>(*context.node);
    BehaviourProbe probe{*behaviour};
};

TEST_F(StartStopOrder, StartingFillsTheCachesThenAsksForTheSessionThenObservesTheSessionsFolder)
{
    behaviour->OnStart();
    Lines expected = cacheLines;
    expected.insert(expected.end(),
                    {"GetCurrentSession", "GetNode " + Core::Objects::SessionsFolder().ToString(),
                     "RegisterEventObserver"});
    EXPECT_EQ(context.journal.GetLines(), expected);
    behaviour->OnStop();
}

TEST_F(StartStopOrder, TheRegistrationCarriesItsPublishedArguments)
{
    context.sessions.current = std::make_shared<Doubles::Session>(context.sessionObject);
    behaviour->OnStart();
    const auto& registration = context.sessionsFolder->registration;
    EXPECT_EQ(registration.observer.lock(),
              std::static_pointer_cast<Core::IEventObserver>(behaviour));
    EXPECT_EQ(registration.filter, 0x0000000800000000U);
    EXPECT_EQ(registration.affinityId, context.affinityId);
    EXPECT_EQ(registration.session, context.sessions.current);
    EXPECT_EQ(registration.options, 0);
    EXPECT_EQ(probe.CurrentSession(), context.sessions.current);
    behaviour->OnStop();
}

TEST_F(StartStopOrder, TheWorkerRunsBeforeTheSessionsFolderIsObserved)
{
    context.sessions.beforeAnswering = [this] {
        FinishQueue(*behaviour);
    };
    behaviour->OnStart();
    behaviour->OnStop();
}

TEST_F(StartStopOrder, StoppingSilencesThenEndsTheRegistrationThenDrainsThenLeavesTheGuard)
{
    behaviour->OnStart();
    WorkerGate gate(*behaviour);
    Enqueue(*behaviour, [this] { context.journal.Add("task"); });
    context.journal.Clear();
    std::thread stopping([this] { behaviour->OnStop(); });
    EXPECT_TRUE(WaitUntil([this] { return context.journal.GetLines().size() == 2; }));
    gate.Open();
    stopping.join();
    EXPECT_EQ(context.journal.GetLines(), (Lines{"TerminateDispatchOnStop 4711",
                                                 "End of registration", "task", "End of guard"}));
}

TEST_F(StartStopOrder, TheGuardIsHeldUntilEverythingIsClosedAndReleased)
{
    const TemporaryFolder folder;
    const std::string path = folder / "x";
    const auto session = std::make_shared<Doubles::Session>(context.sessionObject);
    context.sessions.current = session;
    behaviour->OnStart();
    const unsigned int handle = behaviour->GetFreshHandle();
    behaviour->RegisterFileHandle(handle, path);
    ASSERT_TRUE(behaviour->OpenFile(handle, path, FileSystem::OpenModeEnum::CreateWrite));
    context.sessions.current.reset();
    context.sessionsFolder->registration.session.reset();
    EXPECT_EQ(session.use_count(), 2);
    bool looked = false;
    context.dispatcher.beforeLeaving = [&] {
        looked = true;
        EXPECT_FALSE(probe.HasWorker());
        EXPECT_FALSE(probe.HasAnyEventType());
        EXPECT_EQ(session.use_count(), 1);
        EXPECT_TRUE(probe.SessionsMap().empty());
        EXPECT_TRUE(probe.HandlesMap().empty());
        EXPECT_EQ(CountDescriptors(path), 0U);
    };
    behaviour->OnStop();
    EXPECT_TRUE(looked);
}

TEST_F(StartStopOrder, TheGuardIsLeftAlsoWhenStoppingThrows)
{
    if (std::string_view(TALVENSOR_SANITIZER) == "thread")
        GTEST_SKIP() << "ThreadSanitizer gives up on a thread that tries to join itself";
    behaviour->OnStart();
    // The worker cannot wait for itself, so its own stop throws in the middle.
    const bool threw = OnWorker(*behaviour, [this] {
        try {
            behaviour->OnStop();
            return false;
        } catch (const std::system_error&) {
            return true;
        }
    });
    EXPECT_TRUE(threw);
    EXPECT_EQ(context.journal.GetLines().back(), "End of guard");
    behaviour->OnStop();
}

TEST_F(StartStopOrder, AnUnarmedGuardIsLeftQuietly)
{
    context.dispatcher.armed = false;
    behaviour->OnStart();
    behaviour->OnStop();
    EXPECT_EQ(context.journal.GetLines().back(), "End of registration");
}

TEST_F(StartStopOrder, AMissingEventTypePassesToTheHostAndNothingIsStarted)
{
    context.eventTypes.erase(67);
    EXPECT_THROW(behaviour->OnStart(), Core::NotFoundException);
    EXPECT_EQ(context.journal.GetLines().back(), "GetObjectType 67");
    EXPECT_FALSE(probe.HasWorker());
}

TEST_F(StartStopOrder, ARefusedRegistrationPassesToTheHostWhichThenStopsTheWorker)
{
    context.sessionsFolder->refuses = true;
    EXPECT_THROW(behaviour->OnStart(), Core::InvalidArgumentException);
    FinishQueue(*behaviour);
    behaviour->OnStop();
    EXPECT_FALSE(probe.HasWorker());
}

TEST_F(StartStopOrder, ABehaviourThatNobodySharesCannotBeObserver)
{
    FileSystemBehaviour unshared(*context.node);
    EXPECT_THROW(unshared.OnStart(), std::bad_weak_ptr);
    for (const auto& line : context.journal.GetLines())
        EXPECT_NE(line, "RegisterEventObserver");
    unshared.OnStop();
}

TEST_F(StartStopOrder, ARestartFillsTheCachesAndRegistersAgain)
{
    behaviour->OnStart();
    const Lines firstStart = context.journal.GetLines();
    behaviour->OnStop();
    EXPECT_FALSE(probe.HasAnyEventType());
    context.journal.Clear();
    behaviour->OnStart();
    EXPECT_EQ(context.journal.GetLines(), firstStart);
    EXPECT_TRUE(probe.HasEventTypes());
    behaviour->OnStop();
}

TEST_F(StartStopOrder, ACallThatWasLetInBeforeTheStopLeavesNoHandleBehind)
{
    context.sessions.current = std::make_shared<Doubles::Session>(context.sessionObject);
    behaviour->OnStart();
    std::promise<void> entered;
    std::promise<void> leave;
    context.sessions.beforeAnswering = [&, left = leave.get_future().share()] {
        entered.set_value();
        left.wait();
    };
    std::vector<Core::Value> outputs;
    bool taken = true;
    std::thread late([&] {
        taken = behaviour->OnExecuteMethod(nullptr, "Open",
                                           {Core::Value("/nowhere"), Core::Value(1U)}, outputs);
    });
    entered.get_future().wait();
    behaviour->OnStop();
    leave.set_value();
    late.join();
    EXPECT_FALSE(taken);
    EXPECT_TRUE(outputs.empty());
    EXPECT_TRUE(probe.HandlesMap().empty());
    EXPECT_TRUE(probe.SessionsMap().empty());
    EXPECT_TRUE(probe.TaskQueue().empty());
    EXPECT_TRUE(probe.TasksSetAside().empty());
}

TEST_F(StartStopOrder, ACallThatComesDuringTheStartLeavesNoHandleBehind)
{
    context.sessions.current = std::make_shared<Doubles::Session>(context.sessionObject);
    behaviour->OnStart();
    behaviour->OnStop();
    bool called = false;
    bool taken = true;
    std::vector<Core::Value> outputs;
    context.sessions.beforeAnswering = [&] {
        if (!std::exchange(called, true))
            taken = behaviour->OnExecuteMethod(nullptr, "Open",
                                               {Core::Value("/nowhere"), Core::Value(1U)}, outputs);
    };
    behaviour->OnStart();
    EXPECT_TRUE(called);
    EXPECT_FALSE(taken);
    EXPECT_TRUE(outputs.empty());
    EXPECT_TRUE(probe.HandlesMap().empty());
    behaviour->OnStop();
}

class StartStop : public FileSystemTest
{
protected:
    bool Call(const char* method, const std::vector<Core::Value>& inputs)
    {
        std::vector<Core::Value> outputs;
        return behaviour.OnExecuteMethod(nullptr, method, inputs, outputs);
    }
};

TEST_F(StartStop, AfterTheStopEveryCallIsRefusedAndNothingIsQueued)
{
    host.GetRuntime().StopBehaviour(host.GetObject());
    for (const auto& call : MakeCallsOfAllMethods(folder / "x"))
        EXPECT_FALSE(Call(call.name, call.inputs)) << call.name;
    EXPECT_TRUE(probe.TaskQueue().empty());
    EXPECT_TRUE(probe.TasksSetAside().empty());
    EXPECT_TRUE(probe.HandlesMap().empty());
    EXPECT_TRUE(std::filesystem::is_empty(folder.GetPath()));
}

TEST_F(StartStop, BeforeTheStopTheSameCallsAreTaken)
{
    for (const auto& call : MakeCallsOfAllMethods(folder / "x"))
        EXPECT_TRUE(Call(call.name, call.inputs)) << call.name;
}

TEST_F(StartStop, StoppingClosesEveryFile)
{
    const std::string first = folder / "first";
    const std::string second = folder / "second";
    OpenRegistered(first, OpenModeEnum::CreateWrite);
    OpenRegistered(second, OpenModeEnum::CreateWrite);
    ASSERT_EQ(CountDescriptors(first) + CountDescriptors(second), 2U);
    host.GetRuntime().StopBehaviour(host.GetObject());
    EXPECT_EQ(CountDescriptors(first) + CountDescriptors(second), 0U);
    EXPECT_TRUE(probe.HandlesMap().empty());
    EXPECT_TRUE(probe.SessionsMap().empty());
    EXPECT_TRUE(probe.StreamUsersMap().empty());
}

TEST_F(StartStop, AFailedCloseIsLoggedOnceAndTheOtherFilesAreClosedAllTheSame)
{
    std::vector<std::string> paths;
    for (const char* name : {"a", "b", "c", "d"})
        paths.push_back(folder / name);
    for (const auto& path : paths)
        OpenRegistered(path, OpenModeEnum::CreateWrite);
    const unsigned int full = OpenRegistered("/dev/full", OpenModeEnum::CreateWrite);
    ASSERT_TRUE(FileSystemBehaviour::Write(GetStream(full), Bytes("lost")));
    const LogCapture log;
    host.GetRuntime().StopBehaviour(host.GetObject());
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message, "Cannot close file handle");
    for (const auto& path : paths)
        EXPECT_EQ(CountDescriptors(path), 0U);
    EXPECT_EQ(CountDescriptors("/dev/full"), 0U);
}

TEST_F(StartStop, AHandleWithoutAStreamIsJustForgotten)
{
    Register(folder / "never opened");
    const LogCapture log;
    host.GetRuntime().StopBehaviour(host.GetObject());
    EXPECT_TRUE(probe.HandlesMap().empty());
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(StartStop, AFileInUseIsClosedByItsLastUserAndTheStopDoesNotWait)
{
    const std::string path = folder / "x";
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    auto lease = behaviour.UseStream(handle);
    auto other = behaviour.UseStream(handle);
    host.GetRuntime().StopBehaviour(host.GetObject());
    EXPECT_EQ(CountDescriptors(path), 1U);
    EXPECT_NE(std::fputs("written after the stop", lease.GetFile()), EOF);
    lease.Release();
    EXPECT_EQ(CountDescriptors(path), 1U);
    other.Release();
    EXPECT_EQ(CountDescriptors(path), 0U);
    EXPECT_EQ(ReadWholeFile(path), "written after the stop");
}

TEST_F(StartStop, AFileInUseWhoseCloseFailsIsLoggedAsTheStopWould)
{
    const unsigned int handle = OpenRegistered("/dev/full", OpenModeEnum::CreateWrite);
    auto lease = behaviour.UseStream(handle);
    ASSERT_TRUE(FileSystemBehaviour::Write(lease.GetFile(), Bytes("lost")));
    const LogCapture log;
    host.GetRuntime().StopBehaviour(host.GetObject());
    EXPECT_TRUE(log.GetEntries().empty());
    lease.Release();
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message, "Cannot close file handle");
    EXPECT_EQ(log.GetEntries()[0].function, "OnStop");
}

TEST_F(StartStop, ARestartedBehaviourBeginsWithoutHandlesAndTakesCalls)
{
    const unsigned int handle = OpenRegistered(folder / "x", OpenModeEnum::CreateWrite);
    host.GetRuntime().StopBehaviour(host.GetObject());
    host.GetRuntime().StartBehaviour(host.GetObject());
    EXPECT_FALSE(IsRegistered(handle));
    std::vector<Core::Value> outputs;
    ASSERT_TRUE(behaviour.OnExecuteMethod(
        nullptr, "OpenWrite", {Core::Value(folder / "y"), Core::Value(Bytes("again"), true)},
        outputs));
    FinishQueue(behaviour);
    EXPECT_EQ(CountDescriptors(folder / "y"), 1U);
}

TEST_F(StartStop, ARestartedBehaviourHearsOfSessionsThatEnd)
{
    host.GetRuntime().StopBehaviour(host.GetObject());
    host.GetRuntime().StartBehaviour(host.GetObject());
    const unsigned int handle = OpenRegistered(folder / "x", OpenModeEnum::CreateWrite);
    session->Close();
    EXPECT_FALSE(IsRegistered(handle));
    EXPECT_EQ(CountDescriptors(folder / "x"), 0U);
}

TEST_F(StartStop, AStoppedBehaviourHearsNothingMoreOfSessions)
{
    host.GetRuntime().StopBehaviour(host.GetObject());
    const LogCapture log(Core::LogLevel::Trace);
    session->Close();
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(StartStop, StoppingABehaviourThatNeverRanClosesItsFilesAndKeepsItsRequests)
{
    const auto unstarted = host.MakeUnstartedBehaviour();
    const BehaviourProbe unstartedProbe{*unstarted};
    std::vector<Core::Value> outputs;
    ASSERT_TRUE(unstarted->OnExecuteMethod(nullptr, "Open",
                                           {Core::Value(folder / "x"), Core::Value(0U)}, outputs));
    const unsigned int handle = outputs.at(0).Get<unsigned int>();
    ASSERT_TRUE(unstarted->OpenFile(handle, folder / "x", OpenModeEnum::CreateWrite));
    unstarted->OnStop();
    EXPECT_EQ(CountDescriptors(folder / "x"), 0U);
    EXPECT_TRUE(unstartedProbe.HandlesMap().empty());
    EXPECT_TRUE(unstartedProbe.SessionsMap().empty());
    EXPECT_EQ(unstartedProbe.TaskQueue().size(), 1U);
}

TEST_F(StartStop, ABehaviourThatNeverRanTakesCallsAlsoAfterItsStop)
{
    const auto unstarted = host.MakeUnstartedBehaviour();
    unstarted->OnStop();
    std::vector<Core::Value> outputs;
    ASSERT_TRUE(unstarted->OnExecuteMethod(nullptr, "Open",
                                           {Core::Value(folder / "x"), Core::Value(0U)}, outputs));
    unstarted->OnStart();
    FinishQueue(*unstarted);
    EXPECT_EQ(CountDescriptors(folder / "x"), 1U);
    unstarted->OnStop();
}

TEST_F(StartStop, ARestartWithoutAThreadLeavesItStoppedAndRefusingCalls)
{
    host.GetRuntime().StopBehaviour(host.GetObject());
    {
        const NoMoreThreads limit;
        EXPECT_THROW(behaviour.OnStart(), std::system_error);
    }
    for (const auto& call : MakeCallsOfAllMethods(folder / "x"))
        EXPECT_FALSE(Call(call.name, call.inputs)) << call.name;
    EXPECT_TRUE(probe.TaskQueue().empty());
    EXPECT_FALSE(probe.HasWorker());
    host.GetRuntime().StartBehaviour(host.GetObject());
    EXPECT_TRUE(Call("Exists", {Core::Value("/")}));
}

TEST_F(StartStop, AFirstStartWithoutAThreadLeavesRequestsForTheNextOne)
{
    const auto unstarted = host.MakeUnstartedBehaviour();
    {
        const NoMoreThreads limit;
        EXPECT_THROW(unstarted->OnStart(), std::system_error);
    }
    std::vector<Core::Value> outputs;
    EXPECT_TRUE(unstarted->OnExecuteMethod(
        nullptr, "OpenWrite", {Core::Value(folder / "x"), Core::Value(Bytes("x"), true)}, outputs));
    unstarted->OnStart();
    FinishQueue(*unstarted);
    EXPECT_EQ(CountDescriptors(folder / "x"), 1U);
    unstarted->OnStop();
}

TEST_F(StartStop, ABehaviourCanBeStoppedAndStartedManyTimes)
{
    for (int i = 0; i < 20; ++i) {
        host.GetRuntime().StopBehaviour(host.GetObject());
        EXPECT_FALSE(Call("Exists", {Core::Value("/")}));
        host.GetRuntime().StartBehaviour(host.GetObject());
        EXPECT_TRUE(Call("Exists", {Core::Value("/")}));
    }
    FinishQueue(behaviour);
    EXPECT_EQ(events.TakeAll().size(), 20U);
}

} // namespace FileSystemTests
