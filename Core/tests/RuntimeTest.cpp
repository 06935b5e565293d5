#include "support/RuntimeFixture.h"

#include <algorithm>
#include <stdexcept>

namespace CoreTests {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Throws;
using testing::ThrowsMessage;

class ARuntime : public RuntimeFixture
{
protected:
    /// True if another thread can use all of the runtime at this moment, which it cannot
    /// while a lock is held.
    [[nodiscard]] bool IsFree()
    {
        std::jthread other([this] {
            const auto probe = runtime->CreateFolder(QualifiedName(1, "probe"));
            static_cast<void>(runtime->Browse(probe));
            static_cast<void>(runtime->GetContext().GetObjectType(EventType()));
            static_cast<void>(runtime->GetInformationModel());
            const auto visitor = runtime->OpenSession("probe");
            EXPECT_THROW(static_cast<void>(runtime->Call(visitor, probe, "Run", {})),
                         NotExecutableException);
            visitor->Close();
            auto subscription = runtime->Subscribe(probe, [](const auto&) {});
            RaiseDeviceEvent(probe, 1);
            subscription.Reset();
            auto registration = Observe(probe, 1, {});
            const auto guard = runtime->GetContext().GetDispatcher().TerminateDispatchOnStop(1);
            registration.Reset();
            runtime->GetContext().GetNodeFactory().RegisterBehaviourFactory(
                Guid::Random(), std::make_shared<DeviceFactory>(DeviceFactory::Make()));
            runtime->RemoveObject(probe);
            free.Raise();
        });
        return free.Wait();
    }

    [[nodiscard]] NodeId CreateBelow(const NodeId& parent)
    {
        return runtime->CreateObject({DeviceType(), QualifiedName(1, "below"), parent, {}});
    }

    [[nodiscard]] CallResult Call(const NodeId& object, const std::vector<Value>& inputs = {})
    {
        return runtime->Call(session, object, "Run", inputs);
    }

    Signal free;
    const std::shared_ptr<Session> session = runtime->OpenSession("tester");
};

bool IsReferenced(const std::vector<ReferenceDescription>& references, const NodeId& type,
                  bool isForward, const NodeId& other)
{
    return std::any_of(references.begin(), references.end(), [&](const auto& reference) {
        return reference.referenceTypeId == type && reference.isForward == isForward &&
               reference.other->GetNodeId() == other;
    });
}

TEST_F(ARuntime, MakesAndStartsTheBehaviourOfANewObjectAndStopsItBeforeItIsReleased)
{
    const auto device = CreateDevice();
    EXPECT_THAT(record->Get(), ElementsAre("made", "started"));
    runtime->RemoveObject(device);
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped", "destroyed"));
    EXPECT_FALSE(Exists(device));
}

TEST_F(ARuntime, GivesObjectsOfASubtypeTheInheritedBehaviour)
{
    static_cast<void>(runtime->CreateObject(
        {TestId(2), QualifiedName(1, "special"), Objects::ObjectsFolder(), {}}));
    EXPECT_THAT(record->Get(), ElementsAre("made", "started"));
}

TEST_F(ARuntime, GivesAnObjectTheIdentifierThatIsAskedForOrAnUnguessableOne)
{
    const NodeId chosen(1, "chosen");
    EXPECT_EQ(runtime->CreateObject(
                  {DeviceType(), QualifiedName(1, "a"), Objects::ObjectsFolder(), chosen}),
              chosen);
    const auto drawn = CreateDevice();
    EXPECT_NE(drawn.GetGuid(), nullptr);
    EXPECT_NE(drawn, CreateDevice());
    EXPECT_EQ(GetNode(chosen)->GetBrowseName(), QualifiedName(1, "a"));
    EXPECT_EQ(&GetNode(chosen)->GetCoreContext(), &runtime->GetContext());
    EXPECT_EQ(GetNode(chosen)->GetSharedPointer(), GetNode(chosen));
}

TEST_F(ARuntime, RefusesObjectsThatCannotBe)
{
    const auto create = [this](const NodeId& type, const NodeId& parent, const NodeId& id) {
        static_cast<void>(runtime->CreateObject({type, QualifiedName(1, "x"), parent, id}));
    };
    const auto& root = Objects::ObjectsFolder();
    EXPECT_THAT([&] { create(TestId(99), root, {}); },
                ThrowsMessage<NotFoundException>(HasSubstr(TestId(99).ToString())));
    EXPECT_THAT([&] { create(DeviceType(), TestId(98), {}); },
                ThrowsMessage<NotFoundException>(HasSubstr(TestId(98).ToString())));
    EXPECT_THAT([&] { create(DeviceType(), DeviceType(), {}); }, Throws<NotFoundException>());
    EXPECT_THAT([&] { create(TestId(4), root, {}); },
                ThrowsMessage<NotFoundException>(HasSubstr("0000000000000000000000000000dead")));
    EXPECT_THAT([&] { create(TestId(3), root, {}); }, Throws<InvalidArgumentException>());
    EXPECT_THAT([&] { create(EventType(), root, {}); }, Throws<InvalidArgumentException>());
    EXPECT_THAT([&] { create(DeviceType(), Objects::SessionsFolder(), {}); },
                Throws<InvalidArgumentException>());
    EXPECT_THAT([&] { create(DeviceType(), session->GetNodeId(), {}); },
                Throws<InvalidArgumentException>());
    EXPECT_THAT([&] { create(DeviceType(), root, root); }, Throws<AlreadyExistsException>());
    const auto device = CreateDevice();
    EXPECT_THAT([&] { create(DeviceType(), root, device); }, Throws<AlreadyExistsException>());
    EXPECT_THAT(record->Get(), ElementsAre("made", "started"));
}

TEST_F(ARuntime, SaysWhichNodeItDoesNotKnow)
{
    const NodeId unknown(1, "unknown");
    const auto hasName = HasSubstr(unknown.ToString());
    auto& context = runtime->GetContext();
    EXPECT_THAT([&] { static_cast<void>(context.GetNode(unknown)); },
                ThrowsMessage<NotFoundException>(hasName));
    EXPECT_THAT([&] { static_cast<void>(context.GetObjectType(unknown)); },
                ThrowsMessage<NotFoundException>(hasName));
    EXPECT_THAT([&] { static_cast<void>(context.GetObjectType(Objects::ObjectsFolder())); },
                Throws<NotFoundException>());
    EXPECT_THAT([&] { static_cast<void>(runtime->Browse(unknown)); },
                ThrowsMessage<NotFoundException>(hasName));
    EXPECT_THAT([&] { static_cast<void>(runtime->Subscribe(unknown, [](const auto&) {})); },
                ThrowsMessage<NotFoundException>(hasName));
    EXPECT_THAT([&] { runtime->RemoveObject(unknown); }, ThrowsMessage<NotFoundException>(hasName));
    EXPECT_THAT([&] { runtime->StopBehaviour(unknown); },
                ThrowsMessage<NotFoundException>(hasName));
    EXPECT_THAT([&] { runtime->StartBehaviour(unknown); },
                ThrowsMessage<NotFoundException>(hasName));
    EXPECT_THAT([&] { static_cast<void>(Call(unknown)); },
                ThrowsMessage<NotFoundException>(hasName));
}

TEST_F(ARuntime, LeavesNothingBehindWhenABehaviourCannotBeMade)
{
    script.make = [](INode&) {
        throw std::runtime_error("no parts");
    };
    const NodeId id(1, "broken");
    const NewObject object{DeviceType(), QualifiedName(1, "broken"), Objects::ObjectsFolder(), id};
    EXPECT_THAT([&] { static_cast<void>(runtime->CreateObject(object)); },
                ThrowsMessage<std::runtime_error>("no parts"));
    EXPECT_FALSE(Exists(id));
    script.make = {};
    EXPECT_EQ(runtime->CreateObject(object), id);
}

TEST_F(ARuntime, StopsABehaviourWhoseStartFailedAndReportsTheFailureOfTheStart)
{
    script.start = [] {
        throw std::runtime_error("no power");
    };
    script.stop = [] {
        throw std::runtime_error("no brakes");
    };
    const NodeId id(1, "broken");
    EXPECT_THAT(
        [&] {
            static_cast<void>(runtime->CreateObject(
                {DeviceType(), QualifiedName(1, "broken"), Objects::ObjectsFolder(), id}));
        },
        ThrowsMessage<std::runtime_error>("no power"));
    // Parts of it may still be at work.
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped"));
    EXPECT_TRUE(IsLogged("no brakes"));
    EXPECT_FALSE(Exists(id));
}

TEST_F(ARuntime, StopsTheBehaviourOfAnObjectWhoseParentHasGoneMeanwhile)
{
    const auto parent = runtime->CreateFolder(QualifiedName(1, "parent"));
    script.start = [&] {
        runtime->RemoveObject(parent);
    };
    EXPECT_THROW(static_cast<void>(CreateBelow(parent)), NotFoundException);
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped", "destroyed"));
}

TEST_F(ARuntime, StopsAndStartsABehaviourOnce)
{
    const auto device = CreateDevice();
    runtime->StartBehaviour(device);
    runtime->StopBehaviour(device);
    runtime->StopBehaviour(device);
    runtime->StartBehaviour(device);
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped", "started"));
    runtime->StopBehaviour(device);
    runtime->RemoveObject(device);
    EXPECT_THAT(record->Get(),
                ElementsAre("made", "started", "stopped", "started", "stopped", "destroyed"));
}

TEST_F(ARuntime, HandsOutWhatAStopThrowsButOnlyLogsItOnRemoval)
{
    script.stop = [] {
        throw std::runtime_error("stuck valve");
    };
    const auto first = CreateDevice();
    EXPECT_THAT([&] { runtime->StopBehaviour(first); },
                ThrowsMessage<std::runtime_error>("stuck valve"));
    EXPECT_THAT([&] { runtime->StopBehaviour(first); },
                ThrowsMessage<std::runtime_error>("stuck valve"));
    EXPECT_FALSE(IsLogged("stuck valve"));
    const auto second = CreateDevice();
    runtime->RemoveObject(second);
    EXPECT_TRUE(IsLogged("stuck valve"));
    EXPECT_FALSE(Exists(second));
}

TEST_F(ARuntime, NeverDestroysABehaviourThatCouldNotBeStopped)
{
    script.stop = [] {
        throw std::runtime_error("stuck valve");
    };
    const auto device = CreateDevice();
    runtime->RemoveObject(device);
    EXPECT_FALSE(Exists(device));
    runtime.reset();
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped"));
}

TEST_F(ARuntime, StopsABehaviourAgainThatCouldNotBeStoppedBefore)
{
    auto fails = true;
    script.stop = [&fails] {
        if (fails)
            throw std::runtime_error("stuck valve");
    };
    const auto device = CreateDevice();
    EXPECT_THROW(runtime->StopBehaviour(device), std::runtime_error);
    fails = false;
    runtime->RemoveObject(device);
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped", "stopped", "destroyed"));
}

TEST_F(ARuntime, StopsABehaviourThatCannotBeStartedAgainAndKeepsIt)
{
    auto fails = false;
    script.start = [&fails] {
        if (fails)
            throw std::runtime_error("worn out");
    };
    const auto device = CreateDevice();
    runtime->StopBehaviour(device);
    fails = true;
    EXPECT_THAT([&] { runtime->StartBehaviour(device); },
                ThrowsMessage<std::runtime_error>("worn out"));
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped", "started", "stopped"));
    fails = false;
    runtime->StartBehaviour(device);
    EXPECT_THAT(record->Get(),
                ElementsAre("made", "started", "stopped", "started", "stopped", "started"));
}

TEST_F(ARuntime, CallsABehaviourAndReturnsWhatItGives)
{
    script.call = [this](const std::string& method, const std::vector<Value>& inputs,
                         std::vector<Value>& outputs) {
        EXPECT_EQ(runtime->GetContext().GetSessions().GetCurrentSession(), session);
        outputs = inputs;
        return method == "Run";
    };
    const auto device = CreateDevice();
    const auto taken = Call(device, {Value(7U)});
    EXPECT_TRUE(taken.taken);
    EXPECT_THAT(taken.outputs, ElementsAre(Value(7U)));
    EXPECT_FALSE(runtime->Call(session, device, "Walk", {}).taken);
}

TEST_F(ARuntime, HandsOutWhatACallThrows)
{
    script.call = [](const auto&, const auto&, auto&) -> bool {
        throw OutOfRangeException("too far");
    };
    const auto device = CreateDevice();
    EXPECT_THAT([&] { static_cast<void>(Call(device)); },
                ThrowsMessage<OutOfRangeException>("too far"));
    EXPECT_EQ(runtime->GetContext().GetSessions().GetCurrentSession(), nullptr);
}

TEST_F(ARuntime, LetsAStoppedBehaviourRefuseByItself)
{
    script.call = [](const auto&, const auto&, auto&) {
        return false;
    };
    const auto device = CreateDevice();
    runtime->StopBehaviour(device);
    EXPECT_FALSE(Call(device).taken);
}

TEST_F(ARuntime, CallsOnlyObjectsThatTakeCalls)
{
    EXPECT_THROW(static_cast<void>(Call(Objects::ObjectsFolder())), NotExecutableException);
    EXPECT_THROW(static_cast<void>(Call(runtime->CreateFolder(QualifiedName(1, "folder")))),
                 NotExecutableException);
    EXPECT_THROW(static_cast<void>(Call(DeviceType())), NotFoundException);
}

TEST_F(ARuntime, KeepsABehaviourAndItsNodeAliveForACallInFlight)
{
    Signal entered;
    Signal leave;
    script.call = [&](const auto&, const auto&, auto&) {
        entered.Raise();
        return leave.Wait();
    };
    const auto device = CreateDevice();
    std::jthread caller([&] { EXPECT_TRUE(Call(device).taken); });
    ASSERT_TRUE(entered.Wait());
    runtime->RemoveObject(device);
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped"));
    EXPECT_THROW(static_cast<void>(Call(device)), NotFoundException);
    leave.Raise();
    caller.join();
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped", "destroyed"));
}

TEST_F(ARuntime, RemovesAnObjectFromInsideItsOwnCall)
{
    NodeId device;
    script.call = [&](const auto&, const auto&, auto&) {
        runtime->RemoveObject(device);
        EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped"));
        return true;
    };
    device = CreateDevice();
    EXPECT_TRUE(Call(device).taken);
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped", "destroyed"));
}

TEST_F(ARuntime, KeepsTheNodeOfABehaviourThatOthersStillHold)
{
    std::shared_ptr<IBehaviour> held;
    std::weak_ptr<INode> node;
    runtime->GetContext().GetNodeFactory().RegisterBehaviourFactory(
        Guid("00000000000000000000000000000001"), std::make_shared<DeviceFactory>([&](INode& made) {
            node = made.GetSharedPointer();
            held = std::make_shared<Device>(made, std::make_shared<const Script>(), record);
            return held;
        }));
    runtime->RemoveObject(runtime->CreateObject(
        {TestId(5), QualifiedName(1, "shared"), Objects::ObjectsFolder(), {}}));
    EXPECT_TRUE(IsLogged("still held by others"));
    runtime.reset();
    EXPECT_FALSE(node.expired());
    held.reset(); // its end checks that its node lives
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped", "destroyed"));
    runtime = std::make_unique<Runtime>();
    runtime.reset();
    EXPECT_TRUE(node.expired());
}

TEST_F(ARuntime, HoldsNoLockWhileABehaviourIsMade)
{
    script.make = [this](INode&) {
        EXPECT_TRUE(IsFree());
    };
    static_cast<void>(CreateDevice());
    EXPECT_TRUE(free.IsRaised());
}

TEST_F(ARuntime, HoldsNoLockWhileABehaviourIsStarted)
{
    script.start = [this] {
        EXPECT_TRUE(IsFree());
    };
    static_cast<void>(CreateDevice());
    EXPECT_TRUE(free.IsRaised());
}

TEST_F(ARuntime, HoldsNoLockWhileABehaviourIsStopped)
{
    script.stop = [this] {
        EXPECT_TRUE(IsFree());
    };
    runtime->RemoveObject(CreateDevice());
    EXPECT_TRUE(free.IsRaised());
}

TEST_F(ARuntime, HoldsNoLockWhileABehaviourIsCalled)
{
    script.call = [this](const auto&, const auto&, auto&) {
        return IsFree();
    };
    EXPECT_TRUE(Call(CreateDevice()).taken);
}

TEST_F(ARuntime, HoldsNoLockWhileABehaviourIsDestroyed)
{
    script.destroy = [this] {
        EXPECT_TRUE(IsFree());
    };
    runtime->RemoveObject(CreateDevice());
    EXPECT_TRUE(free.IsRaised());
}

TEST_F(ARuntime, HoldsNoLockWhileAnObserverIsNotified)
{
    bool wasFree = false;
    Signal isNotified;
    const auto registration = Observe(Objects::SessionsFolder(), 0, [&](const ReferenceData&) {
        if (!isNotified.IsRaised()) { // the probe also opens a session
            isNotified.Raise();
            wasFree = IsFree();
        }
    });
    static_cast<void>(runtime->OpenSession("noticed"));
    EXPECT_TRUE(wasFree);
}

TEST_F(ARuntime, HoldsNoLockWhileAnObserverIsDestroyed)
{
    auto registration =
        Observe(Objects::ObjectsFolder(), 0, [probe = std::shared_ptr<void>(nullptr, [this](void*) {
                                                  EXPECT_TRUE(IsFree());
                                              })](const ReferenceData&) {});
    EXPECT_FALSE(free.IsRaised());
    registration.Reset();
    EXPECT_TRUE(free.IsRaised());
}

TEST_F(ARuntime, HoldsNoLockWhileAnEventCallbackRuns)
{
    const auto device = CreateDevice();
    auto heard = false;
    const auto subscription = runtime->Subscribe(device, [&](const auto&) { heard = IsFree(); });
    RaiseDeviceEvent(device, 1);
    EXPECT_TRUE(heard);
}

TEST_F(ARuntime, RefusesToChangeAnObjectFromInsideItsOwnStartOrStop)
{
    const NodeId id(1, "self");
    const NewObject object{DeviceType(), QualifiedName(1, "self"), Objects::ObjectsFolder(), id};
    const auto tryAll = [&] {
        EXPECT_THROW(runtime->StopBehaviour(id), InvalidStateException);
        EXPECT_THROW(runtime->StartBehaviour(id), InvalidStateException);
        EXPECT_THROW(runtime->RemoveObject(id), InvalidStateException);
        EXPECT_THROW(static_cast<void>(runtime->CreateObject(object)), InvalidStateException);
    };
    script.start = tryAll;
    script.stop = tryAll;
    static_cast<void>(runtime->CreateObject(object));
    runtime->RemoveObject(id);
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped", "destroyed"));
}

TEST_F(ARuntime, DoesNotHangWhenTwoObjectsStopEachOther)
{
    NodeId ids[2];
    Signal entered[2];
    std::atomic<int> refused = 0;
    for (const auto own : {0, 1}) {
        script.stop = [&, own] {
            entered[own].Raise();
            ASSERT_TRUE(entered[1 - own].Wait());
            try {
                runtime->StopBehaviour(ids[1 - own]);
            } catch (const InvalidStateException&) {
                ++refused;
            }
        };
        ids[own] = CreateDevice();
    }
    {
        std::jthread first([&] { runtime->StopBehaviour(ids[0]); });
        std::jthread second([&] { runtime->StopBehaviour(ids[1]); });
    }
    EXPECT_EQ(refused, 1);
}

TEST_F(ARuntime, RefusesToRemoveOrStopAnObjectFromInsideItsOwnEvent)
{
    const auto device = CreateDevice();
    int refused = 0;
    const auto subscription = runtime->Subscribe(device, [&](const auto&) {
        EXPECT_THROW(runtime->StopBehaviour(device), InvalidStateException);
        EXPECT_THROW(runtime->RemoveObject(device), InvalidStateException);
        ++refused;
    });
    RaiseDeviceEvent(device, 1);
    EXPECT_EQ(refused, 1);
    EXPECT_THAT(record->Get(), ElementsAre("made", "started"));
    EXPECT_TRUE(Exists(device));
}

TEST_F(ARuntime, RemovesAnotherObjectFromInsideAnEvent)
{
    const auto device = CreateDevice();
    const auto other = CreateDevice();
    const auto subscription =
        runtime->Subscribe(device, [&](const auto&) { runtime->RemoveObject(other); });
    RaiseDeviceEvent(device, 1);
    EXPECT_FALSE(Exists(other));
    EXPECT_TRUE(Exists(device));
}

/// Two objects with a worker each, which raises events; stopping one joins its worker.
TEST_F(ARuntime, DoesNotHangWhenTheEventsOfTwoObjectsRemoveEachOther)
{
    NodeId ids[2];
    std::thread workers[2];
    Signal entered[2];
    Signal left[2];
    std::atomic<int> refused = 0;
    std::vector<EventSubscription> subscriptions;
    for (const auto own : {0, 1}) {
        script.stop = [&, own] {
            if (workers[own].joinable())
                workers[own].join();
        };
        ids[own] = CreateDevice();
        subscriptions.push_back(runtime->Subscribe(ids[own], [&, own](const auto&) {
            entered[own].Raise();
            ASSERT_TRUE(entered[1 - own].Wait());
            try {
                runtime->RemoveObject(ids[1 - own]);
            } catch (const InvalidStateException&) {
                ++refused;
            }
            left[own].Raise();
        }));
    }
    Signal bothMade;
    for (const auto own : {0, 1})
        workers[own] = std::thread([&, own] {
            ASSERT_TRUE(bothMade.Wait());
            RaiseDeviceEvent(ids[own], 1);
        });
    bothMade.Raise();
    // The refused one goes on and thereby lets the other one end.
    ASSERT_TRUE(left[0].Wait());
    ASSERT_TRUE(left[1].Wait());
    runtime.reset();
    EXPECT_EQ(refused, 1);
    for (auto& worker : workers)
        if (worker.joinable())
            worker.join();
}

TEST_F(ARuntime, NeverRunsStartsAndStopsOfOneBehaviourAtTheSameTime)
{
    std::atomic<int> inside = 0;
    std::atomic<bool> isStarted = false;
    script.start = [&] {
        EXPECT_EQ(++inside, 1);
        EXPECT_FALSE(isStarted.exchange(true));
        --inside;
    };
    script.stop = [&] {
        EXPECT_EQ(++inside, 1);
        EXPECT_TRUE(isStarted.exchange(false));
        --inside;
    };
    const auto device = CreateDevice();
    {
        std::vector<std::jthread> threads;
        threads.reserve(4);
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&, thread] {
                for (int i = 0; i < 500; ++i) {
                    if ((i + thread) % 2 == 0)
                        runtime->StopBehaviour(device);
                    else
                        runtime->StartBehaviour(device);
                }
            });
        }
    }
    runtime->RemoveObject(device);
    EXPECT_FALSE(isStarted);
}

TEST_F(ARuntime, CreatesAnObjectAnewOnlyAfterItsRemovalHasEnded)
{
    Signal stopping;
    Signal goOn;
    script.stop = [&] {
        stopping.Raise();
        EXPECT_TRUE(goOn.Wait());
    };
    const NewObject object{DeviceType(), QualifiedName(1, "again"), Objects::ObjectsFolder(),
                           NodeId(1, "again")};
    static_cast<void>(runtime->CreateObject(object));
    std::jthread remover([&] { runtime->RemoveObject(object.id); });
    ASSERT_TRUE(stopping.Wait());
    std::jthread creator([&] { static_cast<void>(runtime->CreateObject(object)); });
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped"));
    goOn.Raise();
    creator.join();
    remover.join();
    EXPECT_THAT(record->Get(),
                ElementsAre("made", "started", "stopped", "destroyed", "made", "started"));
    runtime.reset(); // before the signals
}

TEST_F(ARuntime, RemovesOnlyCreatedObjectsWithoutOthersBelowThem)
{
    EXPECT_THROW(runtime->RemoveObject(Objects::ObjectsFolder()), InvalidArgumentException);
    EXPECT_THROW(runtime->RemoveObject(Objects::SessionsFolder()), InvalidArgumentException);
    EXPECT_THROW(runtime->RemoveObject(session->GetNodeId()), InvalidArgumentException);
    EXPECT_THROW(runtime->RemoveObject(DeviceType()), InvalidArgumentException);
    const auto folder = runtime->CreateFolder(QualifiedName(1, "folder"));
    const auto device = CreateBelow(folder);
    EXPECT_THROW(runtime->RemoveObject(folder), InvalidArgumentException);
    runtime->RemoveObject(device);
    runtime->RemoveObject(folder);
    EXPECT_FALSE(Exists(folder));
}

TEST_F(ARuntime, ShowsTheReferencesOfObjectsBothWays)
{
    const auto folder = runtime->CreateFolder(QualifiedName(1, "folder"));
    const auto device = CreateBelow(folder);
    const auto part = CreateBelow(device);
    const NodeId organizes(0, 35);
    const NodeId hasComponent(0, 47);
    const NodeId hasTypeDefinition(0, 40);
    EXPECT_TRUE(IsReferenced(runtime->Browse(Objects::ObjectsFolder()), organizes, true, folder));
    EXPECT_TRUE(IsReferenced(runtime->Browse(folder), organizes, false, Objects::ObjectsFolder()));
    EXPECT_TRUE(IsReferenced(runtime->Browse(folder), organizes, true, device));
    EXPECT_TRUE(IsReferenced(runtime->Browse(device), hasComponent, true, part));
    EXPECT_TRUE(IsReferenced(runtime->Browse(device), hasTypeDefinition, true, DeviceType()));
    EXPECT_TRUE(
        IsReferenced(runtime->Browse(folder), hasTypeDefinition, true, BaseTypes::folderType));
    runtime->RemoveObject(part);
    EXPECT_FALSE(IsReferenced(runtime->Browse(device), hasComponent, true, part));
}

TEST_F(ARuntime, HasNodesForTheTypesAndMethodsOfItsModel)
{
    const auto type = runtime->Browse(DeviceType());
    EXPECT_TRUE(IsReferenced(type, NodeId(0, 45), false, BaseTypes::baseObjectType));
    EXPECT_TRUE(IsReferenced(type, NodeId(0, 45), true, TestId(2)));
    EXPECT_TRUE(IsReferenced(type, NodeId(0, 47), true, TestId(1000)));
    EXPECT_TRUE(IsReferenced(type, NodeId(0, 41), true, EventType()));
    EXPECT_TRUE(IsReferenced(runtime->Browse(TestId(20)), NodeId(0, 45), false, NodeId(0, 7)));
    EXPECT_EQ(GetNode(TestId(1000))->GetBrowseName().GetName(), "Run");
    EXPECT_EQ(
        runtime->GetContext().GetObjectType(DeviceType())->GetEventArguments().GetFieldsSize(), 0U);
    const auto event = runtime->GetContext().GetObjectType(EventType());
    EXPECT_GT(event->GetEventArguments().GetFieldsSize(),
              event->GetEventArguments().GetFieldIndex(NumberField()));
}

TEST_F(ARuntime, PublishesAnExtendedModelAsAWhole)
{
    Runtime fresh;
    const auto before = fresh.GetInformationModel();
    EXPECT_THROW(fresh.LoadInformationModel("/nonexistent/model.xml"), SystemException);
    EXPECT_EQ(fresh.GetInformationModel(), before);
    fresh.LoadInformationModel(CORE_TEST_DATA "/Runtime.NodeSet2.xml");
    EXPECT_THROW(static_cast<void>(before->GetObjectType(DeviceType())), NotFoundException);
    EXPECT_EQ(fresh.GetInformationModel()->GetObjectType(DeviceType()).displayName, "Device");
}

TEST_F(ARuntime, NeverGivesAnAffinityTwiceNorZero)
{
    const auto first = runtime->GetContext().AssignAffinityId();
    const auto second = runtime->GetContext().AssignAffinityId();
    EXPECT_NE(first, 0U);
    EXPECT_NE(second, 0U);
    EXPECT_NE(first, second);
}

TEST_F(ARuntime, TellsObserversOfAFolderWhatComesAndGoes)
{
    Record changes;
    const auto& root = Objects::ObjectsFolder();
    const auto registration = Observe(
        root, 0,
        [&](const ReferenceData& reference) {
            EXPECT_EQ(reference.source->GetNodeId(), root);
            EXPECT_EQ(reference.referenceTypeId, BaseTypes::organizes);
            changes.Add("added " + reference.target->GetNodeId().ToString());
        },
        [&](const ReferenceData& reference) {
            changes.Add("removed " + reference.target->GetNodeId().ToString());
        });
    const auto device = CreateDevice();
    runtime->RemoveObject(device);
    EXPECT_THAT(changes.Get(),
                ElementsAre("added " + device.ToString(), "removed " + device.ToString()));
}

TEST_F(ARuntime, RemovesItsObjectsWhenItEnds)
{
    const auto folder = runtime->CreateFolder(QualifiedName(1, "folder"));
    static_cast<void>(CreateBelow(folder));
    const auto node = GetNode(folder);
    auto registration = Observe(folder, 0, {});
    runtime.reset();
    EXPECT_THAT(record->Get(), ElementsAre("made", "started", "stopped", "destroyed"));
    EXPECT_EQ(node->GetNodeId(), folder); // the node lives as long as it is held
    EXPECT_THROW(static_cast<void>(node->GetCoreContext().GetNode(folder)), NotFoundException);
    registration.Reset();
}

TEST_F(ARuntime, EndsAlsoWhenAnObserverOpensASessionAsItHearsOfARemoval)
{
    int refused = 0;
    const auto another = runtime->OpenSession("another");
    const auto registration = Observe(Objects::SessionsFolder(), 0, {}, [&](const auto&) {
        EXPECT_THROW(static_cast<void>(runtime->OpenSession("late")), InvalidStateException);
        ++refused;
    });
    EndWhileInUse();
    EXPECT_GE(refused, 1);
}

TEST_F(ARuntime, EndsAlsoWhenAStopRemovesAnotherObject)
{
    std::vector<NodeId> devices;
    script.stop = [&] {
        for (const auto& device : devices) {
            try {
                runtime->RemoveObject(device);
            } catch (const Exception&) { // the same object, or removed already
            }
        }
    };
    for (int i = 0; i < 5; ++i)
        devices.push_back(CreateDevice());
    EndWhileInUse();
    const auto happened = record->Get();
    EXPECT_EQ(std::count(happened.begin(), happened.end(), "stopped"), 5);
    EXPECT_EQ(std::count(happened.begin(), happened.end(), "destroyed"), 5);
}

TEST_F(ARuntime, WaitsForTheCallsInFlightWhenItEnds)
{
    Signal entered;
    Signal leave;
    script.call = [&](const auto&, const auto&, auto&) {
        entered.Raise();
        EXPECT_TRUE(leave.Wait());
        record->Add("call ended");
        return true;
    };
    const auto device = CreateDevice();
    std::jthread caller([&] { EXPECT_TRUE(Call(device).taken); });
    ASSERT_TRUE(entered.Wait());
    std::jthread ender([&] { runtime.reset(); });
    while (!session->IsClosed())
        std::this_thread::yield();
    EXPECT_THAT(record->Get(), ElementsAre("made", "started"));
    leave.Raise();
    ender.join();
    EXPECT_THAT(record->Get(),
                ElementsAre("made", "started", "call ended", "stopped", "destroyed"));
}

TEST_F(ARuntime, LetsGoOfEveryoneWhoListenedWhenItEnds)
{
    const auto observer = std::make_shared<ReferenceObserver>(ReferenceObserver::Callback());
    auto registration =
        GetNode(Objects::ObjectsFolder())
            ->RegisterEventObserver(observer, EventFilter::references, 0, nullptr, 0);
    const auto token = std::make_shared<int>(0);
    auto subscription = runtime->Subscribe(CreateDevice(), [token](const auto&) {});
    const auto node = GetNode(Objects::ObjectsFolder());
    runtime.reset();
    EXPECT_EQ(observer.use_count(), 1);
    EXPECT_EQ(token.use_count(), 1);
    registration.Reset();
    subscription.Reset();
}

} // namespace

} // namespace CoreTests
