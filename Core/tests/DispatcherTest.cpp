#include "support/RuntimeFixture.h"

#include <optional>

namespace CoreTests {

namespace {

using testing::Throws;

/// Observers of a folder below which objects come and go.
class ADispatcher : public RuntimeFixture
{
protected:
    /// Notifies the observers of `folder`, on the calling thread.
    void Notify() { static_cast<void>(NotifyIn(folder)); }

    NodeId NotifyIn(const NodeId& where)
    {
        return runtime->CreateFolder(QualifiedName(1, "news"), where);
    }

    [[nodiscard]] DispatchGuard Terminate(unsigned int affinityId)
    {
        return runtime->GetContext().GetDispatcher().TerminateDispatchOnStop(affinityId);
    }

    const NodeId folder = runtime->CreateFolder(QualifiedName(1, "folder"));
    const NodeId otherFolder = runtime->CreateFolder(QualifiedName(1, "other"));
    const unsigned int affinity = runtime->GetContext().AssignAffinityId();
    const unsigned int otherAffinity = runtime->GetContext().AssignAffinityId();
};

TEST_F(ADispatcher, SilencesAnAffinityUntilTheGuardHasGone)
{
    int heard = 0;
    const auto registration = Observe(folder, affinity, [&](const auto&) { ++heard; });
    Notify();
    EXPECT_EQ(heard, 1);
    {
        const auto guard = Terminate(affinity);
        EXPECT_TRUE(guard.IsArmed());
        Notify();
        EXPECT_EQ(heard, 1);
    }
    Notify();
    EXPECT_EQ(heard, 2);
}

TEST_F(ADispatcher, LeavesOtherAffinitiesAlone)
{
    int heard = 0;
    const auto other = Observe(folder, otherAffinity, [&](const auto&) { ++heard; });
    const auto nobody = Observe(folder, 0, [&](const auto&) { ++heard; });
    const auto guard = Terminate(affinity);
    Notify();
    EXPECT_EQ(heard, 2);
}

TEST_F(ADispatcher, CannotSilenceThoseWhoBelongToNobody)
{
    int heard = 0;
    const auto registration = Observe(folder, 0, [&](const auto&) { ++heard; });
    const auto guard = Terminate(0);
    EXPECT_FALSE(guard.IsArmed());
    Notify();
    EXPECT_EQ(heard, 1);
}

TEST_F(ADispatcher, CountsTerminationsOfOneAffinity)
{
    int heard = 0;
    const auto registration = Observe(folder, affinity, [&](const auto&) { ++heard; });
    std::optional<DispatchGuard> first(Terminate(affinity));
    std::optional<DispatchGuard> second(Terminate(affinity));
    first.reset();
    Notify();
    EXPECT_EQ(heard, 0);
    second.reset();
    Notify();
    EXPECT_EQ(heard, 1);
}

TEST_F(ADispatcher, WaitsForNotificationsOnOtherThreads)
{
    Signal entered;
    Signal leave;
    std::atomic<bool> hasLeft = false;
    const auto registration = Observe(folder, affinity, [&](const auto&) {
        entered.Raise();
        EXPECT_TRUE(leave.Wait());
        hasLeft = true;
    });
    std::jthread notifier([&] { Notify(); });
    ASSERT_TRUE(entered.Wait());
    std::atomic<int> heardElsewhere = 0;
    const auto probe = Observe(otherFolder, affinity, [&](const auto&) { ++heardElsewhere; });
    Signal hasReturned;
    std::jthread terminator([&] {
        const auto guard = Terminate(affinity);
        EXPECT_TRUE(hasLeft);
        hasReturned.Raise();
    });
    // Once no new notification starts, the termination has begun.
    for (int heard = -1; heard != heardElsewhere && !hasReturned.IsRaised();) {
        heard = heardElsewhere;
        NotifyIn(otherFolder);
    }
    leave.Raise();
}

TEST_F(ADispatcher, DoesNotWaitForTheNotificationThatItIsCalledFrom)
{
    bool hasTerminated = false;
    const auto registration = Observe(folder, affinity, [&](const auto&) {
        const auto guard = Terminate(affinity);
        hasTerminated = true;
    });
    Notify();
    EXPECT_TRUE(hasTerminated);
}

TEST_F(ADispatcher, DoesNotHangWhenTwoNotificationsTerminateEachOther)
{
    Signal entered[2];
    const auto observe = [&](const NodeId& where, unsigned int own, unsigned int others,
                             int index) {
        return Observe(where, own, [&, others, index](const auto&) {
            entered[index].Raise();
            ASSERT_TRUE(entered[1 - index].Wait());
            const auto guard = Terminate(others);
        });
    };
    const auto first = observe(folder, affinity, otherAffinity, 0);
    const auto second = observe(otherFolder, otherAffinity, affinity, 1);
    std::jthread one([&] { Notify(); });
    std::jthread two([&] { NotifyIn(otherFolder); });
}

TEST_F(ADispatcher, DoesNotHangWhenThreeNotificationsTerminateEachOtherInACircle)
{
    constexpr unsigned int count = 3;
    Signal entered[count];
    unsigned int affinities[count];
    NodeId folders[count];
    std::vector<EventRegistrationHandler> registrations;
    for (unsigned int i = 0; i < count; ++i) {
        affinities[i] = runtime->GetContext().AssignAffinityId();
        folders[i] = runtime->CreateFolder(QualifiedName(1, "member"));
        registrations.push_back(Observe(folders[i], affinities[i], [&, i](const auto&) {
            entered[i].Raise();
            for (auto& other : entered)
                ASSERT_TRUE(other.Wait());
            const auto guard = Terminate(affinities[(i + 1) % count]);
        }));
    }
    std::vector<std::jthread> threads;
    for (const auto& member : folders)
        threads.emplace_back([this, &member] { NotifyIn(member); });
}

TEST_F(ADispatcher, StillWaitsForOneOfTwoThatTerminateEachOther)
{
    // At most one of two that stop each other may give way: the later one.
    Signal entered[2];
    std::atomic<int> inside = 0;
    std::atomic<int> sawOtherInside = 0;
    const auto observe = [&](const NodeId& where, unsigned int own, unsigned int others,
                             int index) {
        return Observe(where, own, [&, others, index](const auto&) {
            ++inside;
            entered[index].Raise();
            ASSERT_TRUE(entered[1 - index].Wait());
            {
                const auto guard = Terminate(others);
                if (inside == 2)
                    ++sawOtherInside;
            }
            --inside;
        });
    };
    const auto first = observe(folder, affinity, otherAffinity, 0);
    const auto second = observe(otherFolder, otherAffinity, affinity, 1);
    {
        std::jthread one([&] { Notify(); });
        std::jthread two([&] { NotifyIn(otherFolder); });
    }
    EXPECT_EQ(sawOtherInside, 1);
}

TEST_F(ADispatcher, DoesNotHangWhenABehaviourIsStoppedFromANotificationThatItsStopWaitsFor)
{
    Signal isNotified;
    Signal isStopping;
    std::atomic<int> outcomes = 0;
    NodeId device;
    script.stop = [&] {
        isStopping.Raise();
        ASSERT_TRUE(isNotified.Wait());
        const auto guard = Terminate(affinity);
    };
    device = CreateDevice();
    const auto registration = Observe(folder, affinity, [&](const auto&) {
        isNotified.Raise();
        ASSERT_TRUE(isStopping.Wait());
        try {
            runtime->StopBehaviour(device); // waits for the other thread's stop, or is refused
        } catch (const InvalidStateException&) {
        }
        ++outcomes;
    });
    {
        std::jthread stopper([&] { runtime->StopBehaviour(device); });
        std::jthread notifier([&] { Notify(); });
    }
    EXPECT_EQ(outcomes, 1);
}

TEST_F(ADispatcher, StartsNoNotificationAfterTheRegistrationHasBeenReset)
{
    int heard = 0;
    auto registration = Observe(folder, affinity, [&](const auto&) { ++heard; });
    registration.Reset();
    Notify();
    EXPECT_EQ(heard, 0);
}

TEST_F(ADispatcher, StartsNoNotificationForARegistrationThatWasResetByAnEarlierOneOfTheSameChange)
{
    int heard = 0;
    EventRegistrationHandler second;
    const auto first = Observe(folder, affinity, [&](const auto&) { second.Reset(); });
    second = Observe(folder, affinity, [&](const auto&) { ++heard; });
    Notify();
    EXPECT_EQ(heard, 0);
}

TEST_F(ADispatcher, LetsARegistrationEndFromInsideItsOwnNotification)
{
    int heard = 0;
    EventRegistrationHandler registration;
    registration = Observe(folder, affinity, [&](const auto&) {
        ++heard;
        registration.Reset();
    });
    Notify();
    Notify();
    EXPECT_EQ(heard, 1);
}

TEST_F(ADispatcher, EndsARegistrationWithItsOwner)
{
    int heard = 0;
    {
        const auto registration = Observe(folder, affinity, [&](const auto&) { ++heard; });
        Notify();
        EXPECT_EQ(heard, 1);
    }
    Notify();
    EXPECT_EQ(heard, 1);
}

TEST_F(ADispatcher, EndsARegistrationThatAnotherOneReplaces)
{
    int first = 0;
    int second = 0;
    auto registration = Observe(folder, affinity, [&](const auto&) { ++first; });
    registration = Observe(folder, affinity, [&](const auto&) { ++second; });
    Notify();
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 1);
    const auto moved = std::move(registration);
    Notify();
    EXPECT_EQ(second, 2);
}

TEST_F(ADispatcher, HoldsAnObserverUntilItsRegistrationEnds)
{
    auto observer = std::make_shared<ReferenceObserver>(ReferenceObserver::Callback());
    const std::weak_ptr<ReferenceObserver> watch = observer;
    auto registration = GetNode(folder)->RegisterEventObserver(
        std::move(observer), EventFilter::references, affinity, nullptr, 0);
    EXPECT_FALSE(watch.expired());
    registration.Reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(ADispatcher, KeepsAnObserverAliveDuringItsNotification)
{
    Signal entered;
    Signal leave;
    auto token = std::make_shared<int>(7);
    const std::weak_ptr<int> watch = token;
    auto registration = Observe(folder, affinity, [&, own = std::move(token)](const auto&) {
        entered.Raise();
        EXPECT_TRUE(leave.Wait());
        EXPECT_EQ(*own, 7);
    });
    std::jthread notifier([&] { Notify(); });
    ASSERT_TRUE(entered.Wait());
    registration.Reset();
    EXPECT_FALSE(watch.expired());
    leave.Raise();
    const auto guard = Terminate(affinity);
    EXPECT_TRUE(watch.expired()); // a thread that waits for it may unload its code
}

TEST_F(ADispatcher, CatchesAndLogsWhatAnObserverThrows)
{
    const auto session = runtime->OpenSession("registrar");
    int heard = 0;
    const auto failing = GetNode(folder)->RegisterEventObserver(
        std::make_shared<ReferenceObserver>(
            [](const auto&) { throw InvalidArgumentException("bad news", "the details"); }),
        EventFilter::references, affinity, session, 0);
    const auto next = Observe(folder, affinity, [&](const auto&) { ++heard; });
    Notify();
    EXPECT_EQ(heard, 1);
    ASSERT_TRUE(IsLogged("bad news"));
    const auto entry = log->GetEntries().back();
    EXPECT_EQ(entry.level, LogLevel::Error);
    EXPECT_EQ(entry.details, "the details");
    EXPECT_EQ(entry.origin, "registrar");
    EXPECT_EQ(entry.code, static_cast<unsigned int>(ErrorCode::InvalidArgument));
}

TEST_F(ADispatcher, RefusesRegistrationsThatItCannotServe)
{
    class Deaf final : public IEventObserver
    {};
    const auto node = GetNode(folder);
    const auto able = std::make_shared<ReferenceObserver>(ReferenceObserver::Callback());
    const auto tryOne = [&](const std::shared_ptr<IEventObserver>& observer, std::uint64_t filter,
                            int options) {
        static_cast<void>(node->RegisterEventObserver(observer, filter, 0, nullptr, options));
    };
    const auto filter = EventFilter::references;
    EXPECT_THAT([&] { tryOne(nullptr, filter, 0); }, Throws<InvalidArgumentException>());
    EXPECT_THAT([&] { tryOne(able, filter | 1U, 0); }, Throws<InvalidArgumentException>());
    EXPECT_THAT([&] { tryOne(std::make_shared<Deaf>(), filter, 0); },
                Throws<InvalidArgumentException>());
    EXPECT_THAT([&] { tryOne(able, filter, 1); }, Throws<InvalidArgumentException>());
    EXPECT_NO_THROW(tryOne(std::make_shared<Deaf>(), 0, 0));
}

TEST_F(ADispatcher, TellsObserversNothingThatTheirFilterDoesNotAskFor)
{
    int heard = 0;
    const auto registration = GetNode(folder)->RegisterEventObserver(
        std::make_shared<ReferenceObserver>([&](const auto&) { ++heard; }), 0, affinity, nullptr,
        0);
    Notify();
    EXPECT_EQ(heard, 0);
}

TEST_F(ADispatcher, LetsRegistrationsAndGuardsOutliveTheRuntime)
{
    auto registration = Observe(folder, affinity, {});
    auto moved = EventRegistrationHandler();
    moved = std::move(registration);
    std::optional<DispatchGuard> guard(Terminate(affinity));
    runtime.reset();
    guard.reset();
    moved.Reset();
}

} // namespace

} // namespace CoreTests
