#include "support/RuntimeFixture.h"

#include <array>
#include <random>

namespace CoreTests {

namespace {

/// Devices that act like real ones: they observe the sessions folder while they are started,
/// raise events when called, and keep a note per session that has called.
class StressedDevice final : public IExecutableBehaviour,
                             public IReferenceObserver,
                             public std::enable_shared_from_this<StressedDevice>
{
public:
    StressedDevice(INode& node, const QualifiedName& number, const NodeId& eventType)
        : node(node)
        , affinityId(node.GetCoreContext().AssignAffinityId())
        , eventType(node.GetCoreContext().GetObjectType(eventType))
        , numberIndex(this->eventType->GetEventArguments().GetFieldIndex(number))
    {}
    StressedDevice(const StressedDevice&) = delete;
    StressedDevice& operator=(const StressedDevice&) = delete;
    ~StressedDevice() override { EXPECT_FALSE(isStarted); }

    void OnStart() override
    {
        EXPECT_FALSE(isStarted.exchange(true));
        isListening = true;
        registration = node.GetCoreContext()
                           .GetNode(Objects::SessionsFolder())
                           ->RegisterEventObserver(shared_from_this(), EventFilter::references,
                                                   affinityId, nullptr, 0);
    }

    void OnStop() override
    {
        const auto guard =
            node.GetCoreContext().GetDispatcher().TerminateDispatchOnStop(affinityId);
        registration.Reset();
        isListening = false;
        EXPECT_EQ(inNotification, 0);
        EXPECT_TRUE(isStarted.exchange(false));
    }

    bool OnExecuteMethod(const std::shared_ptr<INode>& called, const std::string& /*methodName*/,
                         const std::vector<Value>& inputs, std::vector<Value>& /*outputs*/) override
    {
        const auto current = node.GetCoreContext().GetSessions().GetCurrentSession();
        EXPECT_NE(current, nullptr);
        EXPECT_NE(current->GetSessionObject(), nullptr); // it stays during its call
        std::vector<Value> fields(eventType->GetEventArguments().GetFieldsSize());
        fields[numberIndex] = inputs.front();
        std::dynamic_pointer_cast<IObject>(called)->RaiseEvent(eventType, fields);
        return isStarted;
    }

    void OnReferenceAdded(const ReferenceData& /*reference*/) override {}

    void OnReferenceRemoved(const ReferenceData& reference) override
    {
        ++inNotification;
        EXPECT_TRUE(isListening); // plain: the guard keeps notifications and stops apart
        EXPECT_NE(reference.target, nullptr);
        --inNotification;
    }

private:
    INode& node;
    const unsigned int affinityId;
    const std::shared_ptr<IObjectType> eventType;
    const unsigned int numberIndex;
    EventRegistrationHandler registration;
    std::atomic<bool> isStarted = false;
    std::atomic<int> inNotification = 0;
    bool isListening = false;
};

class ABusyRuntime : public RuntimeFixture
{
protected:
    static constexpr std::size_t objectCount = 3;

    ABusyRuntime()
    {
        runtime->GetContext().GetNodeFactory().RegisterBehaviourFactory(
            Guid("00000000000000000000000000000001"),
            std::make_shared<DeviceFactory>([](INode& node) {
                return std::make_shared<StressedDevice>(node, NumberField(), EventType());
            }));
        for (std::size_t i = 0; i < objectCount; ++i)
            Create(i);
    }

    /// Uses one of a few fixed identifiers, so that threads meet.
    [[nodiscard]] static NodeId ObjectId(std::size_t index)
    {
        return {1, "object " + std::to_string(index)};
    }

    void Create(std::size_t index)
    {
        static_cast<void>(runtime->CreateObject(
            {TestId(5), QualifiedName(1, "stressed"), Objects::ObjectsFolder(), ObjectId(index)}));
    }

    /// Does something that may meet a removed object or an ended session.
    template <typename Action>
    void Try(const Action& action)
    {
        try {
            action();
        } catch (const NotFoundException&) {      // it has been removed
        } catch (const AlreadyExistsException&) { // another thread has created it
        } catch (const SessionClosedException&) { // another thread has closed it
        }
    }

    void RunThread(unsigned int seed)
    {
        std::mt19937 random(seed);
        auto session = runtime->OpenSession("stress");
        EventSubscription subscription;
        for (int i = 0; i < 3000; ++i) {
            const std::size_t index = random() % objectCount;
            const auto id = ObjectId(index);
            switch (random() % 16) {
            case 0:
                Try([&] { runtime->StopBehaviour(id); });
                break;
            case 1:
                Try([&] { runtime->StartBehaviour(id); });
                break;
            case 2:
                Try([&] { runtime->RemoveObject(id); });
                Try([&] { Create(index); });
                break;
            case 3:
                session->Close();
                session = runtime->OpenSession("stress");
                break;
            case 4:
                Try([&] {
                    subscription = runtime->Subscribe(
                        id, [this](const auto& event) { heard += event->fields.empty() ? 0 : 1; });
                });
                break;
            case 5:
                subscription.Reset();
                break;
            case 6:
                CloseDuringACall(session, id);
                session = runtime->OpenSession("stress");
                break;
            default:
                Try([&] { static_cast<void>(runtime->Call(session, id, "Run", {Value(1U)})); });
                ++calls;
            }
        }
        session->Close();
    }

    void CloseDuringACall(const std::shared_ptr<Session>& session, const NodeId& id)
    {
        std::jthread closer([&session] { session->Close(); });
        Try([&] { static_cast<void>(runtime->Call(session, id, "Run", {Value(1U)})); });
    }

    std::atomic<unsigned int> heard = 0;
    std::atomic<unsigned int> calls = 0;
};

TEST_F(ABusyRuntime, KeepsItsPromisesUnderRandomUse)
{
    const auto seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    {
        std::vector<std::jthread> threads;
        for (unsigned int i = 0; i < 6; ++i)
            threads.emplace_back([this, seed, i] { RunThread(seed + i); });
    }
    EXPECT_GT(calls, 0U);
    EXPECT_GT(heard, 0U);
    EXPECT_TRUE(runtime->Browse(Objects::SessionsFolder()).size() <= 2); // its parent and its type
    runtime.reset();
    for (const auto& entry : log->GetEntries())
        EXPECT_NE(entry.category, "Core") << entry.message;
}

} // namespace

} // namespace CoreTests
