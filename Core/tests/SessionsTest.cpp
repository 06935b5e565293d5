#include "support/RuntimeFixture.h"

namespace CoreTests {

namespace {

using testing::ElementsAre;

class ASession : public RuntimeFixture
{
protected:
    ASession()
    {
        registration = Observe(
            Objects::SessionsFolder(), 0,
            [this](const ReferenceData& reference) {
                changes.Add("added " + reference.target->GetNodeId().ToString());
            },
            [this](const ReferenceData& reference) {
                removalThread = std::this_thread::get_id();
                EXPECT_EQ(reference.source->GetNodeId(), Objects::SessionsFolder());
                EXPECT_NE(std::dynamic_pointer_cast<IObject>(reference.target), nullptr);
                EXPECT_FALSE(Exists(reference.target->GetNodeId()));
                changes.Add("removed " + reference.target->GetNodeId().ToString());
            });
        session = runtime->OpenSession("tester");
        added = "added " + session->GetNodeId().ToString();
        removed = "removed " + session->GetNodeId().ToString();
    }

    [[nodiscard]] Sessions& GetSessions() { return runtime->GetContext().GetSessions(); }

    Record changes;
    std::thread::id removalThread;
    EventRegistrationHandler registration;
    std::shared_ptr<Session> session;
    std::string added;
    std::string removed;
};

TEST_F(ASession, HasItsObjectInTheSessionsFolder)
{
    EXPECT_THAT(changes.Get(), ElementsAre(added));
    EXPECT_EQ(session->GetName(), "tester");
    EXPECT_NE(session->GetNodeId().GetGuid(), nullptr);
    EXPECT_EQ(session->GetSessionObject()->GetNodeId(), session->GetNodeId());
    EXPECT_EQ(GetNode(session->GetNodeId())->GetBrowseName().GetName(), "tester");
    EXPECT_NE(runtime->OpenSession("tester")->GetNodeId(), session->GetNodeId());
}

TEST_F(ASession, LeavesTheSessionsFolderWhenItIsClosed)
{
    EXPECT_FALSE(session->IsClosed());
    session->Close();
    session->Close();
    EXPECT_TRUE(session->IsClosed());
    EXPECT_THAT(changes.Get(), ElementsAre(added, removed));
    EXPECT_EQ(session->GetSessionObject(), nullptr);
    EXPECT_FALSE(Exists(session->GetNodeId()));
}

TEST_F(ASession, HasNoObjectAnyMoreWhenItsRemovalIsAnnounced)
{
    bool isAnnounced = false;
    const auto second = Observe(Objects::SessionsFolder(), 0, {}, [&](const ReferenceData&) {
        EXPECT_EQ(session->GetSessionObject(), nullptr);
        isAnnounced = true;
    });
    session->Close();
    EXPECT_TRUE(isAnnounced);
}

TEST_F(ASession, TakesNoCallsOnceItIsClosed)
{
    const auto device = CreateDevice();
    session->Close();
    EXPECT_THROW(static_cast<void>(runtime->Call(session, device, "Run", {})),
                 SessionClosedException);
}

TEST_F(ASession, IsAnnouncedGoneByTheThreadOfItsLastCallInFlight)
{
    Signal entered[2];
    Signal leave[2];
    script.call = [&](const auto&, const std::vector<Value>& inputs, auto&) {
        const auto index = inputs.front().Get<unsigned int>();
        entered[index].Raise();
        return leave[index].Wait();
    };
    const auto device = CreateDevice();
    const auto call = [&](unsigned int index) {
        EXPECT_TRUE(runtime->Call(session, device, "Run", {Value(index)}).taken);
    };
    std::jthread first(call, 0U);
    std::jthread second(call, 1U);
    ASSERT_TRUE(entered[0].Wait());
    ASSERT_TRUE(entered[1].Wait());

    session->Close();
    EXPECT_THROW(call(0U), SessionClosedException);
    EXPECT_THAT(changes.Get(), ElementsAre(added));
    EXPECT_NE(session->GetSessionObject(), nullptr);
    EXPECT_TRUE(Exists(session->GetNodeId()));

    leave[1].Raise();
    second.join();
    EXPECT_THAT(changes.Get(), ElementsAre(added));

    const auto last = first.get_id();
    leave[0].Raise();
    first.join();
    EXPECT_THAT(changes.Get(), ElementsAre(added, removed));
    EXPECT_EQ(removalThread, last);
    EXPECT_EQ(session->GetSessionObject(), nullptr);
}

TEST_F(ASession, TellsItsCallsInFlightThatNobodyWaitsForThem)
{
    Signal entered;
    script.call = [&](const auto&, const auto&, auto&) {
        const auto current = runtime->GetContext().GetSessions().GetCurrentSession();
        EXPECT_FALSE(current->IsClosed());
        entered.Raise();
        while (!current->IsClosed())
            std::this_thread::yield();
        return true;
    };
    const auto device = CreateDevice();
    std::jthread call([&] { EXPECT_TRUE(runtime->Call(session, device, "Run", {}).taken); });
    ASSERT_TRUE(entered.Wait());
    session->RefuseCalls();
    call.join();
    EXPECT_THROW(static_cast<void>(runtime->Call(session, device, "Run", {})),
                 SessionClosedException);
    EXPECT_THAT(changes.Get(), ElementsAre(added));
    session->Close();
    EXPECT_THAT(changes.Get(), ElementsAre(added, removed));
}

TEST_F(ASession, IsAnnouncedGoneAfterItsLastCallFailed)
{
    script.call = [&](const auto&, const auto&, auto&) -> bool {
        session->Close();
        throw InvalidStateException("broken");
    };
    const auto device = CreateDevice();
    EXPECT_THROW(static_cast<void>(runtime->Call(session, device, "Run", {})),
                 InvalidStateException);
    EXPECT_THAT(changes.Get(), ElementsAre(added, removed));
}

TEST_F(ASession, CanBeClosedFromInsideItsOwnCall)
{
    script.call = [&](const auto&, const auto&, auto&) {
        session->Close();
        EXPECT_THAT(changes.Get(), ElementsAre(added));
        EXPECT_NE(session->GetSessionObject(), nullptr);
        return true;
    };
    EXPECT_TRUE(runtime->Call(session, CreateDevice(), "Run", {}).taken);
    EXPECT_THAT(changes.Get(), ElementsAre(added, removed));
}

TEST_F(ASession, IsAnnouncedGoneOnceWhenManyThreadsCloseIt)
{
    for (int round = 0; round < 200; ++round) {
        session->Close();
        session = runtime->OpenSession("contested");
        const auto before = changes.Get().size();
        {
            std::vector<std::jthread> threads;
            threads.reserve(4);
            for (int i = 0; i < 4; ++i)
                threads.emplace_back([this] { session->Close(); });
        }
        EXPECT_EQ(changes.Get().size(), before + 1);
    }
}

TEST_F(ASession, IsNotCurrentAnyMoreWhenItsLastCallAnnouncesItsEnd)
{
    std::shared_ptr<SessionHandler> current = session;
    const auto second = Observe(Objects::SessionsFolder(), 0, {},
                                [&](const auto&) { current = GetSessions().GetCurrentSession(); });
    script.call = [&](const auto&, const auto&, auto&) {
        session->Close();
        return true;
    };
    EXPECT_TRUE(runtime->Call(session, CreateDevice(), "Run", {}).taken);
    EXPECT_EQ(current, nullptr);
}

TEST_F(ASession, IsCurrentInItsScopeOnItsThreadOnly)
{
    EXPECT_EQ(GetSessions().GetCurrentSession(), nullptr);
    const auto other = runtime->OpenSession("other");
    {
        const SessionScope scope(session);
        EXPECT_EQ(GetSessions().GetCurrentSession(), session);
        {
            const SessionScope inner(other);
            EXPECT_EQ(GetSessions().GetCurrentSession(), other);
            const SessionScope none(nullptr);
            EXPECT_EQ(GetSessions().GetCurrentSession(), nullptr);
        }
        EXPECT_EQ(GetSessions().GetCurrentSession(), session);
        std::jthread([this] { EXPECT_EQ(GetSessions().GetCurrentSession(), nullptr); });
    }
    EXPECT_EQ(GetSessions().GetCurrentSession(), nullptr);
}

TEST_F(ASession, IsNoSessionOfAnotherRuntime)
{
    Runtime other;
    const SessionScope scope(session);
    EXPECT_EQ(other.GetContext().GetSessions().GetCurrentSession(), nullptr);
    EXPECT_THROW(static_cast<void>(other.Call(session, Objects::ObjectsFolder(), "Run", {})),
                 InvalidArgumentException);
    EXPECT_THROW(static_cast<void>(other.Call(nullptr, Objects::ObjectsFolder(), "Run", {})),
                 InvalidArgumentException);
}

TEST_F(ASession, LivesInTheRuntimeUntilItIsClosed)
{
    const std::weak_ptr<Session> watch = session;
    session.reset();
    ASSERT_FALSE(watch.expired());
    EXPECT_THAT(changes.Get(), ElementsAre(added));
    watch.lock()->Close();
    EXPECT_TRUE(watch.expired());
}

TEST_F(ASession, IsClosedWhenItsRuntimeEndsAndStaysHarmless)
{
    registration =
        Observe(Objects::SessionsFolder(), 0, {}, [this](const ReferenceData& reference) {
            changes.Add("removed " + reference.target->GetNodeId().ToString());
        });
    runtime.reset();
    EXPECT_THAT(changes.Get(), ElementsAre(added, removed));
    EXPECT_TRUE(session->IsClosed());
    EXPECT_EQ(session->GetSessionObject(), nullptr);
    session->Close();
    const SessionScope scope(session);
    Runtime other;
    EXPECT_EQ(other.GetContext().GetSessions().GetCurrentSession(), nullptr);
}

TEST_F(ASession, LetsItsObserversUseTheRuntimeWhenItsEndIsAnnounced)
{
    NodeId opened;
    const auto second = Observe(Objects::SessionsFolder(), 0, {}, [&](const auto&) {
        std::jthread([&] { opened = runtime->OpenSession("from elsewhere")->GetNodeId(); }).join();
    });
    session->Close();
    EXPECT_TRUE(Exists(opened));
}

} // namespace

} // namespace CoreTests
