#include "Descriptors.h"
#include "Host.h"
#include "HostDoubles.h"
#include "LogCapture.h"
#include "Waiting.h"

#include <barrier>
#include <future>
#include <set>
#include <stdexcept>
#include <thread>

namespace FileSystemTests {

using FileSystem::BehaviourProbe;
using FileSystem::FileSystemBehaviour;

class HandleRegistry : public FileSystemTest
{
protected:
    /// Ends the session as its client would.
    void EndSession() { session->Close(); }

    [[nodiscard]] std::set<unsigned int> GetHandles(const Core::NodeId& sessionId) const
    {
        const std::lock_guard lock(probe.HandlesMutex());
        const auto found = probe.SessionsMap().find(sessionId);
        return found == probe.SessionsMap().end() ? std::set<unsigned int>() : found->second;
    }

    [[nodiscard]] unsigned int CountUsers(unsigned int handle) const
    {
        const std::lock_guard lock(probe.HandlesMutex());
        const auto found = probe.StreamUsersMap().find(handle);
        return found == probe.StreamUsersMap().end() ? 0 : found->second->count;
    }

    /// Returns the text that the behaviour throws for a removed reference, empty without one.
    std::string RemoveReferenceTo(const std::shared_ptr<Core::INode>& target)
    {
        try {
            behaviour.OnReferenceRemoved({Core::NodeId(0, 35U), nullptr, target});
            return {};
        } catch (const std::logic_error& error) {
            return error.what();
        }
    }
};

// Drawing

TEST_F(HandleRegistry, AFreshHandleIsNeverOneInUse)
{
    const std::mt19937 engine(1);
    auto draws = engine;
    std::uniform_int_distribution<unsigned int> distribution(1, 0xFFFFFFFFU);
    const unsigned int first = distribution(draws);
    const unsigned int second = distribution(draws);
    const unsigned int third = distribution(draws);
    behaviour.RegisterFileHandle(first, "a");
    behaviour.RegisterFileHandle(second, "b");
    probe.RandomEngine() = engine;
    EXPECT_EQ(behaviour.GetFreshHandle(), third);
}

TEST_F(HandleRegistry, AFreshHandleIsNotReserved)
{
    const std::mt19937 engine(1);
    probe.RandomEngine() = engine;
    const unsigned int handle = behaviour.GetFreshHandle();
    EXPECT_FALSE(IsRegistered(handle));
    probe.RandomEngine() = engine;
    EXPECT_EQ(behaviour.GetFreshHandle(), handle);
}

TEST_F(HandleRegistry, AHandleThatIsGoneMayBeDrawnAgain)
{
    const std::mt19937 engine(1);
    probe.RandomEngine() = engine;
    const unsigned int handle = Register("a");
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(handle));
    probe.RandomEngine() = engine;
    EXPECT_EQ(behaviour.GetFreshHandle(), handle);
}

TEST_F(HandleRegistry, CallsOnSeveralThreadsAreNeverGivenTheSameHandle)
{
    const WorkerGate gate(behaviour);
    constexpr unsigned int threadCount = 4;
    constexpr unsigned int callCount = 500;
    // So few numbers that the threads keep drawing the numbers of others.
    probe.HandleDistribution() =
        std::uniform_int_distribution<unsigned int>(1, threadCount * callCount * 2);
    std::vector<std::future<std::vector<Core::Value>>> threads;
    for (unsigned int i = 0; i < threadCount; ++i)
        threads.push_back(std::async(std::launch::async, [this] {
            const Core::Embedding::SessionScope scope(session);
            std::vector<Core::Value> outputs;
            for (unsigned int call = 0; call < callCount; ++call)
                behaviour.OnExecuteMethod(
                    nullptr, "Open", {Core::Value(folder / "missing"), Core::Value(1U)}, outputs);
            return outputs;
        }));
    std::set<unsigned int> handles;
    for (auto& thread : threads)
        for (const auto& output : Await(thread))
            handles.insert(output.Get<unsigned int>());
    EXPECT_EQ(handles.size(), threadCount * callCount);
    EXPECT_EQ(GetHandles(session->GetNodeId()), handles);
}

TEST(HandleRegistryOrder, DrawingAHandleAndEnteringItAreOneStep)
{
    constexpr unsigned int count = 4;
    Doubles::Context context;
    context.sessions.current = std::make_shared<Doubles::Session>(context.sessionObject);
    const auto behaviour = std::make_shared<FileSystemBehaviour>(*context.node);
    const BehaviourProbe probe{*behaviour};
    probe.HandleDistribution() = std::uniform_int_distribution<unsigned int>(1, count);
    // All calls meet where each asks for its session: one that draws before would draw twice.
    std::barrier together(count);
    context.sessions.beforeAnswering = [&together] {
        together.arrive_and_wait();
    };
    for (int round = 0; round < 20; ++round) {
        std::vector<std::future<unsigned int>> threads;
        for (unsigned int i = 0; i < count; ++i)
            threads.push_back(std::async(std::launch::async, [&behaviour] {
                std::vector<Core::Value> outputs;
                behaviour->OnExecuteMethod(nullptr, "Open",
                                           {Core::Value("missing"), Core::Value(1U)}, outputs);
                return outputs.at(0).Get<unsigned int>();
            }));
        std::set<unsigned int> handles;
        for (auto& thread : threads)
            handles.insert(Await(thread));
        ASSERT_EQ(handles, (std::set<unsigned int>{1, 2, 3, 4})) << round;
        for (const unsigned int handle : handles)
            ASSERT_TRUE(behaviour->UnregisterAndCloseFile(handle));
    }
}

TEST_F(HandleRegistry, HandlesCanBeDrawnOnSeveralThreadsAtOnce)
{
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([this] {
            for (int draw = 0; draw < 2000; ++draw)
                EXPECT_NE(behaviour.GetFreshHandle(), 0U);
        });
    for (auto& thread : threads)
        thread.join();
}

// Registering

TEST_F(HandleRegistry, ARegisteredHandleHasItsSessionAndItsPathByteForByteAndNoStream)
{
    const std::string path("a/../\xff\0 b/", 10);
    const unsigned int handle = Register(path);
    const auto info = behaviour.GetFileInfo(handle);
    EXPECT_EQ(info.file, nullptr);
    EXPECT_EQ(info.session, session->GetNodeId());
    EXPECT_EQ(info.path, path);
    EXPECT_EQ(GetHandles(session->GetNodeId()), std::set<unsigned int>{handle});
}

TEST_F(HandleRegistry, ASessionHoldsSeveralHandles)
{
    const unsigned int first = Register("a");
    const unsigned int second = Register("a");
    EXPECT_EQ(GetHandles(session->GetNodeId()), (std::set<unsigned int>{first, second}));
}

TEST_F(HandleRegistry, HandleZeroIsRefusedBeforeTheSessionIsAskedFor)
{
    Doubles::Context context;
    const auto other = std::make_shared<FileSystemBehaviour>(*context.node);
    context.journal.Clear();
    EXPECT_THROW(other->RegisterFileHandle(0, "a"), std::logic_error);
    EXPECT_TRUE(context.journal.GetLines().empty());
    EXPECT_TRUE(BehaviourProbe{*other}.HandlesMap().empty());
}

TEST_F(HandleRegistry, WithoutASessionHandlerNothingIsRegistered)
{
    const Core::Embedding::SessionScope none(nullptr);
    EXPECT_THROW(behaviour.RegisterFileHandle(5, "a"), std::logic_error);
    EXPECT_TRUE(probe.HandlesMap().empty());
    EXPECT_TRUE(probe.SessionsMap().empty());
}

TEST_F(HandleRegistry, ForASessionWithoutAnObjectNothingIsRegistered)
{
    Doubles::Context context;
    context.sessions.current = std::make_shared<Doubles::Session>(nullptr);
    const auto other = std::make_shared<FileSystemBehaviour>(*context.node);
    EXPECT_THROW(other->RegisterFileHandle(5, "a"), std::logic_error);
    EXPECT_TRUE(BehaviourProbe{*other}.HandlesMap().empty());
    EXPECT_TRUE(BehaviourProbe{*other}.SessionsMap().empty());
}

TEST_F(HandleRegistry, ForASessionThatHasEndedNothingIsRegistered)
{
    EndSession();
    EXPECT_THROW(behaviour.RegisterFileHandle(5, "a"), std::logic_error);
    EXPECT_TRUE(probe.HandlesMap().empty());
}

TEST_F(HandleRegistry, ANumberOfAnotherSessionKeepsItsRecordAndJoinsTheNewSessionsHandles)
{
    behaviour.RegisterFileHandle(5, "mine");
    const auto other = host.GetRuntime().OpenSession("other");
    {
        const Core::Embedding::SessionScope scope(other);
        behaviour.RegisterFileHandle(5, "theirs");
    }
    EXPECT_EQ(behaviour.GetFileInfo(5).path, "mine");
    EXPECT_EQ(behaviour.GetFileInfo(5).session, session->GetNodeId());
    EXPECT_EQ(GetHandles(session->GetNodeId()), std::set<unsigned int>{5});
    EXPECT_EQ(GetHandles(other->GetNodeId()), std::set<unsigned int>{5});
    const std::lock_guard lock(probe.HandlesMutex());
    probe.SessionsMap().erase(other->GetNodeId());
}

TEST_F(HandleRegistry, ANumberThatTheSessionHoldsAlreadyIsRefusedAndItsRecordStays)
{
    behaviour.RegisterFileHandle(5, "first");
    EXPECT_THROW(behaviour.RegisterFileHandle(5, "second"), std::logic_error);
    EXPECT_EQ(behaviour.GetFileInfo(5).path, "first");
    EXPECT_EQ(GetHandles(session->GetNodeId()), std::set<unsigned int>{5});
}

TEST_F(HandleRegistry, ASessionWithAnEmptySetIsRefusedButTheRecordStaysInserted)
{
    probe.SessionsMap()[session->GetNodeId()];
    EXPECT_THROW(behaviour.RegisterFileHandle(5, "a"), std::logic_error);
    EXPECT_EQ(behaviour.GetFileInfo(5).path, "a");
    probe.SessionsMap().clear();
    probe.HandlesMap().clear();
}

TEST_F(HandleRegistry, AfterARefusalTheRegistryIsNotLeftLocked)
{
    behaviour.RegisterFileHandle(5, "a");
    EXPECT_THROW(behaviour.RegisterFileHandle(5, "a"), std::logic_error);
    EXPECT_EQ(behaviour.GetFileInfo(5).path, "a");
}

// Looking up

TEST_F(HandleRegistry, AnUnknownHandleHasAnEmptyRecord)
{
    const auto info = behaviour.GetFileInfo(12345);
    EXPECT_EQ(info.file, nullptr);
    EXPECT_EQ(info.session, Core::NodeId::Empty());
    EXPECT_TRUE(info.path.empty());
}

TEST_F(HandleRegistry, ARecordThatWasLookedUpIsACopy)
{
    const unsigned int handle = Register("a");
    const auto info = behaviour.GetFileInfo(handle);
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(handle));
    EXPECT_EQ(info.path, "a");
}

TEST_F(HandleRegistry, AHandleWorksForWhoeverKnowsIt)
{
    const std::string path = folder.MakeFile("x", "content");
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::Read);
    const auto other = host.GetRuntime().OpenSession("other");
    const auto result = host.GetRuntime().Call(other, host.GetObject(), "Read",
                                               {Core::Value(handle), Core::Value(100U)});
    ASSERT_EQ(result.outputs.size(), 1U);
    EXPECT_EQ(result.outputs[0].Get<std::vector<unsigned char>>(), Bytes("content"));
}

// Unregistering

TEST_F(HandleRegistry, UnregisteringAnUnknownHandleFails)
{
    EXPECT_FALSE(behaviour.UnregisterAndCloseFile(12345));
    EXPECT_FALSE(behaviour.UnregisterAndCloseFile(0));
}

TEST_F(HandleRegistry, UnregisteringAHandleThatWasNeverOpenedSucceeds)
{
    const unsigned int handle = Register("a");
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(handle));
    EXPECT_FALSE(IsRegistered(handle));
}

TEST_F(HandleRegistry, UnregisteringTheLastHandleOfASessionRemovesTheSession)
{
    const unsigned int first = Register("a");
    const unsigned int second = Register("b");
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(first));
    EXPECT_EQ(GetHandles(session->GetNodeId()), std::set<unsigned int>{second});
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(second));
    EXPECT_TRUE(probe.SessionsMap().empty());
}

TEST_F(HandleRegistry, UnregisteringClosesTheStream)
{
    const std::string path = folder / "x";
    const unsigned int handle = OpenRegistered(path, OpenModeEnum::CreateWrite);
    EXPECT_EQ(CountDescriptors(path), 1U);
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(handle));
    EXPECT_EQ(CountDescriptors(path), 0U);
    EXPECT_TRUE(probe.StreamUsersMap().empty());
    EXPECT_FALSE(behaviour.UnregisterAndCloseFile(handle));
}

TEST_F(HandleRegistry, UnregisteringReportsAFailedCloseAndForgetsTheHandleAllTheSame)
{
    const unsigned int handle = OpenRegistered("/dev/full", OpenModeEnum::CreateWrite);
    ASSERT_TRUE(FileSystemBehaviour::Write(GetStream(handle), Bytes("lost")));
    const LogCapture log(Core::LogLevel::Trace);
    EXPECT_FALSE(behaviour.UnregisterAndCloseFile(handle));
    EXPECT_FALSE(IsRegistered(handle));
    EXPECT_EQ(CountDescriptors("/dev/full"), 0U);
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(HandleRegistry, UnregisteringReportsAStreamWhoseDescriptorIsGone)
{
    const unsigned int handle = OpenRegistered(folder / "x", OpenModeEnum::CreateWrite);
    ::close(fileno(GetStream(handle)));
    EXPECT_FALSE(behaviour.UnregisterAndCloseFile(handle));
    EXPECT_FALSE(IsRegistered(handle));
}

TEST_F(HandleRegistry, UnregisteringAHandleWhoseSessionHasNoEntryIsRefused)
{
    const unsigned int handle = Register("a");
    probe.SessionsMap().clear();
    EXPECT_THROW(behaviour.UnregisterAndCloseFile(handle), std::logic_error);
    EXPECT_TRUE(IsRegistered(handle));
}

// Sessions that end

TEST_F(HandleRegistry, AnAddedReferenceChangesNothing)
{
    const unsigned int handle = Register("a");
    behaviour.OnReferenceAdded({Core::NodeId(0, 35U), nullptr, session->GetSessionObject()});
    EXPECT_TRUE(IsRegistered(handle));
    EXPECT_EQ(GetHandles(session->GetNodeId()), std::set<unsigned int>{handle});
}

TEST_F(HandleRegistry, ARemovedReferenceToSomethingElseChangesNothing)
{
    const unsigned int handle = OpenRegistered(folder / "x", OpenModeEnum::CreateWrite);
    EXPECT_EQ(RemoveReferenceTo(host.GetNode().GetSharedPointer()), "");
    EXPECT_EQ(RemoveReferenceTo(nullptr), "");
    EXPECT_TRUE(IsRegistered(handle));
    EXPECT_EQ(CountDescriptors(folder / "x"), 1U);
}

TEST_F(HandleRegistry, TheKindOfARemovedReferenceDoesNotMatter)
{
    const unsigned int handle = Register("a");
    behaviour.OnReferenceRemoved({Core::NodeId(7, 7U), nullptr, session->GetSessionObject()});
    EXPECT_FALSE(IsRegistered(handle));
}

TEST_F(HandleRegistry, TheFilesOfASessionAreClosedWhenItEnds)
{
    const unsigned int first = OpenRegistered(folder / "a", OpenModeEnum::CreateWrite);
    const unsigned int second = OpenRegistered(folder / "b", OpenModeEnum::CreateWrite);
    EndSession();
    EXPECT_FALSE(IsRegistered(first));
    EXPECT_FALSE(IsRegistered(second));
    EXPECT_TRUE(probe.SessionsMap().empty());
    EXPECT_TRUE(probe.StreamUsersMap().empty());
    EXPECT_EQ(CountDescriptors(folder / "a"), 0U);
    EXPECT_EQ(CountDescriptors(folder / "b"), 0U);
    ExpectNoEvent();
}

TEST_F(HandleRegistry, TheFilesOfOtherSessionsStayOpen)
{
    const unsigned int handle = OpenRegistered(folder / "a", OpenModeEnum::CreateWrite);
    const auto other = host.GetRuntime().OpenSession("other");
    other->Close();
    EXPECT_TRUE(IsRegistered(handle));
    EXPECT_EQ(CountDescriptors(folder / "a"), 1U);
}

TEST_F(HandleRegistry, AHandleThatWasNeverOpenedGoesWithItsSession)
{
    const unsigned int handle = Register(folder / "a");
    const LogCapture log;
    EndSession();
    EXPECT_FALSE(IsRegistered(handle));
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(HandleRegistry, FailedClosesAtASessionsEndAreLoggedOneByOneAndNothingStays)
{
    for (int i = 0; i < 2; ++i) {
        const unsigned int handle = OpenRegistered("/dev/full", OpenModeEnum::CreateWrite);
        ASSERT_TRUE(FileSystemBehaviour::Write(GetStream(handle), Bytes("lost")));
    }
    OpenRegistered(folder / "x", OpenModeEnum::CreateWrite);
    const LogCapture log;
    EndSession();
    ASSERT_EQ(log.GetEntries().size(), 2U);
    for (const auto& entry : log.GetEntries())
        EXPECT_EQ(entry.message, "Cannot close file handler");
    EXPECT_TRUE(probe.HandlesMap().empty());
    EXPECT_TRUE(probe.SessionsMap().empty());
    EXPECT_EQ(CountDescriptors("/dev/full"), 0U);
    EXPECT_EQ(CountDescriptors(folder / "x"), 0U);
}

TEST_F(HandleRegistry, ASessionThatListsAHandleWithoutARecordIsReported)
{
    Register("a");
    probe.HandlesMap().clear();
    EXPECT_NE(RemoveReferenceTo(session->GetSessionObject()), "");
    probe.SessionsMap().clear();
}

TEST_F(HandleRegistry, StreamsFoundBeforeAMissingRecordAreClosedAllTheSame)
{
    behaviour.RegisterFileHandle(1, folder / "x");
    ASSERT_TRUE(behaviour.OpenFile(1, folder / "x", OpenModeEnum::CreateWrite));
    behaviour.RegisterFileHandle(2, "a");
    probe.HandlesMap().erase(2);
    EXPECT_NE(RemoveReferenceTo(session->GetSessionObject()), "");
    EXPECT_EQ(CountDescriptors(folder / "x"), 0U);
    probe.SessionsMap().clear();
}

// Streams in use

/// A reader that waits in a pipe for bytes, in a handle of this test's session.
class StreamInUse : public HandleRegistry
{
public:
    StreamInUse(const StreamInUse&) = delete;
    StreamInUse& operator=(const StreamInUse&) = delete;

protected:
    StreamInUse()
    {
        EXPECT_TRUE(WaitUntil([this] { return CountUsers(handle) == 1; }));
    }
    // NOLINTNEXTLINE(bugprone-exception-escape): without its pipe there is no going on
    ~StreamInUse() override
    {
        if (reader.joinable())
            ReleaseReader();
    }

    void ReleaseReader()
    {
        pipe.Write(1);
        reader.join();
    }

    Fifo pipe{folder / "pipe"};
    unsigned int handle = OpenRegistered(pipe.GetPath(), OpenModeEnum::ReadWrite);
    std::vector<Core::Value> outputs;
    std::thread reader{[this] {
        behaviour.OnExecuteMethod(nullptr, "Read", {Core::Value(handle), Core::Value(1U)}, outputs);
    }};
};

TEST_F(StreamInUse, OutlivesItsSessionWhichEndsAtOnceAndIsClosedOnceByItsReader)
{
    EndSession();
    EXPECT_FALSE(IsRegistered(handle));
    EXPECT_EQ(behaviour.UseStream(handle).GetFile(), nullptr);
    EXPECT_EQ(CountDescriptors(pipe.GetPath()), 1U);
    ReleaseReader();
    EXPECT_EQ(CountDescriptors(pipe.GetPath()), 0U);
    ASSERT_EQ(outputs.size(), 1U);
    EXPECT_EQ(outputs[0].Get<std::vector<unsigned char>>(), Bytes("x"));
}

TEST_F(StreamInUse, DelaysTheCloseOfItsHandleUntilItsReaderHasLeft)
{
    behaviour.EnqueueAsyncTask(std::make_shared<FileSystem::CloseTask>(behaviour, handle));
    EXPECT_TRUE(WaitUntil([this] { return !IsRegistered(handle); }));
    EXPECT_EQ(CountDescriptors(pipe.GetPath()), 1U);
    EXPECT_TRUE(events.TakeAll().empty());
    EXPECT_EQ(behaviour.UseStream(handle).GetFile(), nullptr);
    ReleaseReader();
    ExpectOnlyAck(handle, 0);
    EXPECT_EQ(CountDescriptors(pipe.GetPath()), 0U);
    EXPECT_EQ(outputs.size(), 1U);
}

TEST_F(StreamInUse, OutlivesTheStopWhichDoesNotWaitAndIsClosedOnceByItsReader)
{
    host.GetRuntime().StopBehaviour(host.GetObject());
    EXPECT_EQ(CountDescriptors(pipe.GetPath()), 1U);
    EXPECT_FALSE(IsRegistered(handle));
    ReleaseReader();
    EXPECT_EQ(CountDescriptors(pipe.GetPath()), 0U);
}

TEST_F(StreamInUse, LeavesTheRegistryFreeForOthers)
{
    const unsigned int other = OpenRegistered(folder / "other", OpenModeEnum::CreateWrite);
    EXPECT_EQ(behaviour.GetPosition(other), 0);
    EXPECT_TRUE(behaviour.UnregisterAndCloseFile(other));
}

TEST_F(HandleRegistry, AFailedCloseByTheLastUserIsLoggedAsTheSessionsEndWould)
{
    const unsigned int handle = OpenRegistered("/dev/full", OpenModeEnum::CreateWrite);
    auto lease = behaviour.UseStream(handle);
    auto other = behaviour.UseStream(handle);
    ASSERT_TRUE(FileSystemBehaviour::Write(lease.GetFile(), Bytes("lost")));
    const LogCapture log;
    EndSession();
    other.Release();
    EXPECT_TRUE(log.GetEntries().empty());
    EXPECT_EQ(CountDescriptors("/dev/full"), 1U);
    lease.Release();
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message, "Cannot close file handler");
    EXPECT_EQ(log.GetEntries()[0].function, "OnReferenceRemoved");
    EXPECT_EQ(CountDescriptors("/dev/full"), 0U);
}

TEST_F(HandleRegistry, AStreamWithoutUsersIsNotClosedByALeaseThatLeft)
{
    const unsigned int handle = OpenRegistered(folder / "x", OpenModeEnum::CreateWrite);
    {
        const auto lease = behaviour.UseStream(handle);
        EXPECT_EQ(lease.GetFile(), GetStream(handle));
        EXPECT_EQ(lease.GetInfo().path, folder / "x");
        EXPECT_EQ(CountUsers(handle), 1U);
    }
    EXPECT_EQ(CountUsers(handle), 0U);
    EXPECT_EQ(CountDescriptors(folder / "x"), 1U);
}

TEST_F(HandleRegistry, ALeaseThatWasMovedLeavesOnce)
{
    const unsigned int handle = OpenRegistered(folder / "x", OpenModeEnum::CreateWrite);
    auto lease = behaviour.UseStream(handle);
    {
        const auto moved = std::move(lease);
        EXPECT_EQ(CountUsers(handle), 1U);
    }
    EXPECT_EQ(CountUsers(handle), 0U);
}

TEST_F(HandleRegistry, AHandleWithoutAStreamCannotBeEntered)
{
    EXPECT_EQ(behaviour.UseStream(Register("a")).GetFile(), nullptr);
    EXPECT_EQ(behaviour.UseStream(12345).GetFile(), nullptr);
}

// Opens that come too late

TEST_F(HandleRegistry, AnOpenWhoseSessionHasEndedLeavesTheFileUntouched)
{
    const std::string path = folder.MakeFile("x", "precious");
    std::vector<Core::Value> outputs;
    {
        const WorkerGate gate(behaviour);
        behaviour.OnExecuteMethod(nullptr, "Open", {Core::Value(path), Core::Value(0U)}, outputs);
        EndSession();
    }
    ExpectOnlyAck(outputs.at(0).Get<unsigned int>(), 1);
    EXPECT_EQ(ReadWholeFile(path), "precious");
    EXPECT_EQ(CountDescriptors(path), 0U);
}

TEST_F(HandleRegistry, AnUploadWhoseSessionHasEndedLeavesTheFileUntouched)
{
    const std::string path = folder.MakeFile("x", "precious");
    std::vector<Core::Value> outputs;
    {
        const WorkerGate gate(behaviour);
        behaviour.OnExecuteMethod(nullptr, "UploadFile",
                                  {Core::Value(path), Core::Value(Bytes("new"), true),
                                   Core::Value(Core::DateTime()),
                                   Core::Value(static_cast<unsigned char>(0))},
                                  outputs);
        EndSession();
    }
    ExpectOnlyAck(outputs.at(0).Get<unsigned int>(), 1);
    EXPECT_EQ(ReadWholeFile(path), "precious");
}

TEST_F(HandleRegistry, AnOpenDuringWhichTheSessionEndsFailsAndLeavesNothingOpen)
{
    const Fifo pipe(folder / "pipe");
    const unsigned int handle = Register(pipe.GetPath());
    const auto threadId = OnWorker(behaviour, [] { return ::gettid(); });
    auto opened = std::async(std::launch::async, [&] {
        return OnWorker(behaviour, [&] {
            return behaviour.OpenFile(handle, pipe.GetPath(), OpenModeEnum::CreateWrite);
        });
    });
    // Opening a pipe for writing waits for a reader, which comes only after the session's end.
    ASSERT_TRUE(WaitUntilStuckIn(SYS_openat, threadId));
    EndSession();
    pipe.Drain([] {});
    EXPECT_FALSE(Await(opened));
    EXPECT_EQ(CountDescriptors(pipe.GetPath()), 0U);
    EXPECT_TRUE(probe.StreamUsersMap().empty());
}

} // namespace FileSystemTests
