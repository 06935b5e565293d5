#include "support/RuntimeFixture.h"

#include <set>
#include <stdexcept>

namespace CoreTests {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AnEvent : public RuntimeFixture
{
protected:
    using Events = std::vector<std::shared_ptr<const Event>>;

    /// Keeps the events that it hears; for events raised on one thread.
    [[nodiscard]] EventSubscription Record(const NodeId& object)
    {
        return runtime->Subscribe(object, [this](const auto& event) { heard.push_back(event); });
    }

    [[nodiscard]] std::vector<unsigned int> HeardNumbers() const
    {
        std::vector<unsigned int> numbers;
        for (const auto& event : heard)
            numbers.push_back(NumberOf(*event));
        return numbers;
    }

    [[nodiscard]] static const Value& Base(const Event& event, const char* name)
    {
        return event.GetField(QualifiedName(0, name));
    }

    const NodeId device = CreateDevice();
    Events heard;
};

TEST_F(AnEvent, ReachesTheSubscribersOfItsObjectInOrder)
{
    const auto subscription = Record(device);
    for (unsigned int number = 1; number <= 3; ++number)
        RaiseDeviceEvent(device, number);
    RaiseDeviceEvent(CreateDevice(), 4);
    EXPECT_THAT(HeardNumbers(), ElementsAre(1U, 2U, 3U));
}

TEST_F(AnEvent, ReachesEverySubscriber)
{
    const auto first = Record(device);
    const auto second = Record(device);
    RaiseDeviceEvent(device, 1);
    EXPECT_THAT(HeardNumbers(), ElementsAre(1U, 1U));
}

TEST_F(AnEvent, HasEveryBaseFieldFilled)
{
    const auto subscription = Record(device);
    const auto before = DateTime::Now();
    RaiseDeviceEvent(device, 7);
    const auto after = DateTime::Now();
    ASSERT_EQ(heard.size(), 1U);
    const auto& event = *heard.front();
    EXPECT_EQ(event.source, device);
    EXPECT_EQ(event.type->GetNodeId(), EventType());
    for (const auto& field : event.fields)
        EXPECT_FALSE(field.IsEmpty());
    EXPECT_EQ(Base(event, "EventId").GetByteString().size(), 16U);
    EXPECT_EQ(Base(event, "EventType").Get<NodeId>(), EventType());
    EXPECT_EQ(Base(event, "SourceNode").Get<NodeId>(), device);
    EXPECT_EQ(Base(event, "SourceName").Get<std::string>(), "device");
    EXPECT_GE(Base(event, "Time").Get<DateTime>(), before);
    EXPECT_LE(Base(event, "ReceiveTime").Get<DateTime>(), after);
    EXPECT_EQ(Base(event, "Message").Get<std::string>(),
              "Something happened to a device: Number 7");
    EXPECT_EQ(Base(event, "Severity").GetKind(), ValueKind::UInt16);
    EXPECT_EQ(Base(event, "Severity").Get<unsigned short>(), 100);
    EXPECT_THROW(static_cast<void>(event.GetField(QualifiedName(0, "Nothing"))), NotFoundException);
}

TEST_F(AnEvent, TellsOfAFailureInWordsAndWithAHigherSeverity)
{
    const auto subscription = Record(device);
    RaiseDeviceEvent(device, 8);
    RaiseDeviceEvent(device, 9);
    ASSERT_EQ(heard.size(), 2U);
    for (const auto& event : heard)
        EXPECT_GT(Base(*event, "Severity").Get<unsigned short>(), 100);
    EXPECT_EQ(Base(*heard[0], "Message").Get<std::string>(),
              "Something happened to a device: it broke (Number 8)");
    EXPECT_EQ(Base(*heard[1], "Message").Get<std::string>(),
              "Something happened to a device: failed (Number 9)");
}

TEST_F(AnEvent, KeepsTheBaseFieldsThatItsRaiserFilled)
{
    const auto subscription = Record(device);
    const auto type = runtime->GetContext().GetObjectType(EventType());
    const auto& arguments = type->GetEventArguments();
    std::vector<Value> fields(arguments.GetFieldsSize());
    const auto time = DateTime::FromUnixEpochTime(1);
    fields[arguments.GetFieldIndex(QualifiedName(0, "Time"))] = time;
    fields[arguments.GetFieldIndex(QualifiedName(0, "Message"))] = "my own words";
    fields[arguments.GetFieldIndex(QualifiedName(0, "Severity"))] =
        static_cast<unsigned short>(900);
    GetObject(device)->RaiseEvent(type, fields);
    const auto& event = *heard.at(0);
    EXPECT_EQ(Base(event, "Time").Get<DateTime>(), time);
    EXPECT_GT(Base(event, "ReceiveTime").Get<DateTime>(), time);
    EXPECT_EQ(Base(event, "Message").Get<std::string>(), "my own words");
    EXPECT_EQ(Base(event, "Severity").Get<unsigned short>(), 900);
    EXPECT_TRUE(event.GetField(NumberField()).IsEmpty()); // the host fills in base fields only
}

TEST_F(AnEvent, HasFieldsOfItsOwnAndOfItsSupertypes)
{
    const auto subscription = Record(device);
    const auto type = runtime->GetContext().GetObjectType(TestId(11));
    const auto& arguments = type->GetEventArguments();
    std::vector<Value> fields(arguments.GetFieldsSize());
    const QualifiedName remark(EventType().GetNamespaceIndex(), "Remark");
    fields[arguments.GetFieldIndex(NumberField())] = 5U;
    fields[arguments.GetFieldIndex(remark)] = "special";
    GetObject(device)->RaiseEvent(type, fields);
    EXPECT_EQ(NumberOf(*heard.at(0)), 5U);
    EXPECT_EQ(heard.at(0)->GetField(remark).Get<std::string>(), "special");
    EXPECT_EQ(Base(*heard.at(0), "EventType").Get<NodeId>(), TestId(11));
}

TEST_F(AnEvent, HasAnIdentifierOfItsOwn)
{
    const auto subscription = Record(device);
    std::set<Value::ByteString> identifiers;
    for (unsigned int i = 0; i < 1000; ++i)
        RaiseDeviceEvent(device, i);
    for (const auto& event : heard)
        identifiers.insert(Base(*event, "EventId").GetByteString());
    EXPECT_EQ(identifiers.size(), 1000U);
}

TEST_F(AnEvent, IsRefusedWithoutATypeOrWithFieldsOfAnotherNumber)
{
    const auto object = GetObject(device);
    auto& context = runtime->GetContext();
    const auto type = context.GetObjectType(EventType());
    EXPECT_THROW(object->RaiseEvent(nullptr, {}), InvalidArgumentException);
    EXPECT_THROW(object->RaiseEvent(context.GetObjectType(DeviceType()), {}),
                 InvalidArgumentException);
    EXPECT_THROW(object->RaiseEvent(type, {}), InvalidArgumentException);
    EXPECT_THROW(
        object->RaiseEvent(type, std::vector<Value>(type->GetEventArguments().GetFieldsSize() + 1)),
        InvalidArgumentException);
}

TEST_F(AnEvent, IsRaisedFromAnyThreadAndHeardThere)
{
    std::thread::id heardOn;
    const auto subscription =
        runtime->Subscribe(device, [&](const auto&) { heardOn = std::this_thread::get_id(); });
    std::jthread raiser([this] { RaiseDeviceEvent(device, 1); });
    const auto raisedOn = raiser.get_id();
    raiser.join();
    EXPECT_EQ(heardOn, raisedOn);
}

TEST_F(AnEvent, IsNotHeardAfterTheSubscriptionHasEnded)
{
    auto subscription = Record(device);
    subscription.Reset();
    subscription.Reset();
    RaiseDeviceEvent(device, 1);
    EXPECT_THAT(heard, IsEmpty());
    {
        const auto scoped = Record(device);
    }
    RaiseDeviceEvent(device, 2);
    EXPECT_THAT(heard, IsEmpty());
}

TEST_F(AnEvent, MayEndTheSubscriptionItIsHeardThrough)
{
    EventSubscription subscription;
    int count = 0;
    subscription = runtime->Subscribe(device, [&](const auto&) {
        ++count;
        subscription.Reset();
    });
    RaiseDeviceEvent(device, 1);
    RaiseDeviceEvent(device, 2);
    EXPECT_EQ(count, 1);
}

TEST_F(AnEvent, IsWaitedForWhenItsSubscriptionEndsOnAnotherThread)
{
    Signal entered;
    Signal leave;
    std::atomic<bool> hasLeft = false;
    std::atomic<int> count = 0;
    auto subscription = runtime->Subscribe(device, [&](const auto&) {
        if (++count > 1)
            return;
        entered.Raise();
        EXPECT_TRUE(leave.Wait());
        hasLeft = true;
    });
    std::jthread raiser([this] { RaiseDeviceEvent(device, 1); });
    ASSERT_TRUE(entered.Wait());
    Signal hasReturned;
    std::jthread ender([&] {
        subscription.Reset();
        EXPECT_TRUE(hasLeft);
        hasReturned.Raise();
    });
    // Once the callback hears nothing new, the subscription's end has begun.
    for (int before = -1; before != count && !hasReturned.IsRaised();) {
        before = count;
        RaiseDeviceEvent(device, 2);
    }
    leave.Raise();
}

TEST_F(AnEvent, DoesNotHangWhenTwoCallbacksEndEachOthersSubscriptions)
{
    const NodeId devices[2] = {device, CreateDevice()};
    Signal entered[2];
    EventSubscription subscriptions[2];
    for (const auto own : {0, 1}) {
        subscriptions[own] = runtime->Subscribe(devices[own], [&, own](const auto&) {
            entered[own].Raise();
            ASSERT_TRUE(entered[1 - own].Wait());
            subscriptions[1 - own].Reset();
        });
    }
    std::jthread first([&] { RaiseDeviceEvent(devices[0], 1); });
    std::jthread second([&] { RaiseDeviceEvent(devices[1], 1); });
}

TEST_F(AnEvent, ReachesTheOthersWhenACallbackThrows)
{
    const auto failing =
        runtime->Subscribe(device, [](const auto&) { throw std::runtime_error("deaf ears"); });
    const auto odd = runtime->Subscribe(device, [](const auto&) { throw 5; });
    const auto working = Record(device);
    RaiseDeviceEvent(device, 1);
    EXPECT_THAT(HeardNumbers(), ElementsAre(1U));
    EXPECT_TRUE(IsLogged("deaf ears"));
    EXPECT_TRUE(IsLogged("unknown type"));
}

TEST_F(AnEvent, IsHeardWhileItsBehaviourIsStoppedByItsRemoval)
{
    std::shared_ptr<IObject> object;
    const auto type = runtime->GetContext().GetObjectType(EventType());
    script.stop = [&] {
        object->RaiseEvent(type, std::vector<Value>(type->GetEventArguments().GetFieldsSize()));
    };
    const auto draining = CreateDevice();
    object = GetObject(draining);
    const auto subscription = Record(draining);
    runtime->RemoveObject(draining);
    EXPECT_EQ(heard.size(), 1U);
}

TEST_F(AnEvent, NeedsACallback)
{
    EXPECT_THROW(static_cast<void>(runtime->Subscribe(device, nullptr)), InvalidArgumentException);
    EXPECT_THROW(static_cast<void>(runtime->Subscribe(DeviceType(), [](const auto&) {})),
                 NotFoundException);
}

TEST_F(AnEvent, LetsItsSubscriptionOutliveTheObjectAndTheRuntime)
{
    auto subscription = Record(device);
    runtime->RemoveObject(device);
    auto moved = std::move(subscription);
    runtime.reset();
    moved.Reset();
}

} // namespace

} // namespace CoreTests
