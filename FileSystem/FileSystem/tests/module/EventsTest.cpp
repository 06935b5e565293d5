#include "ModuleTest.h"

#include <chrono>
#include <set>

namespace {

using namespace FileSystemTests;

const Core::Value& BaseField(const Core::Embedding::Event& event, const char* name)
{
    return event.GetField(Core::QualifiedName(0, name));
}

/// Returns the names of the fields that a type adds to those of every event, in order.
std::vector<std::string> GetOwnNames(const Core::Embedding::Event& event)
{
    std::vector<std::string> names;
    for (const auto& field : event.type->GetEventArguments().GetFields())
        if (field.GetNamespaceIndex() != 0)
            names.push_back(field.GetName());
    return names;
}

/// Each event of the module: a request that raises it, and the fields of its type.
class EveryEvent : public AFileSystem
{
protected:
    void ExpectEvent(unsigned int type, const std::vector<std::string>& ownNames)
    {
        const auto before = Core::DateTime::Now();
        const auto event = TakeOnly(type);
        ASSERT_NE(event, nullptr);
        EXPECT_EQ(event->source, object);
        EXPECT_EQ(event->type->GetNodeId(), LoadedModule::MakeTypeId(type));
        EXPECT_EQ(event->fields.size(), event->type->GetEventArguments().GetFieldsSize());
        EXPECT_EQ(GetOwnNames(*event), ownNames);
        for (const auto& field : event->type->GetEventArguments().GetFields())
            EXPECT_FALSE(event->GetField(field).IsEmpty()) << field.GetName();

        EXPECT_EQ(BaseField(*event, "EventType").Get<Core::NodeId>(),
                  LoadedModule::MakeTypeId(type));
        EXPECT_EQ(BaseField(*event, "SourceNode").Get<Core::NodeId>(), object);
        EXPECT_EQ(BaseField(*event, "SourceName").Get<std::string>(), "Files");
        EXPECT_FALSE(BaseField(*event, "Message").Get<std::string>().empty());
        EXPECT_GE(BaseField(*event, "Severity").Get<unsigned int>(), 1U);
        EXPECT_LE(BaseField(*event, "Severity").Get<unsigned int>(), 1000U);
        EXPECT_TRUE(eventIds.insert(BaseField(*event, "EventId").Get<Bytes>()).second);
        constexpr long minute = 60 * Core::DateTime::ticksPerSecond;
        for (const char* time : {"Time", "ReceiveTime"})
            EXPECT_NEAR(
                static_cast<double>(BaseField(*event, time).Get<Core::DateTime>().GetTicks() -
                                    before.GetTicks()),
                0, static_cast<double>(minute))
                << time;
    }

    std::set<Bytes> eventIds;
};

TEST_F(EveryEvent, HasItsFieldsAndThoseOfTheHost)
{
    client.Close(4711);
    ExpectEvent(ackEvent, {"FileHandle", "Result"});
    client.Delete({});
    ExpectEvent(deleteResultEvent, {});
    client.CreateDirectory(folder / "directory");
    ExpectEvent(createDirectoryResultEvent, {});
    client.List(folder.GetPath());
    ExpectEvent(listResultEvent, {"Content", "LimitExceeded"});

    client.Exists(folder.GetPath());
    const auto event = recorder.Take();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->type->GetNodeId(), LoadedModule::MakeTypeId(existsResultEvent));
    EXPECT_EQ(GetOwnNames(*event), std::vector<std::string>{"Exist"});
    EXPECT_EQ(OwnField(*event, "Exist"), Core::Value(true));
    EXPECT_EQ(BaseField(*event, "EventType").Get<Core::NodeId>(),
              LoadedModule::MakeTypeId(existsResultEvent));
    EXPECT_TRUE(eventIds.insert(BaseField(*event, "EventId").Get<Bytes>()).second);
}

TEST_F(AFileSystem, AcknowledgesWithTheHandleAndTheResultAsNumbersOf32Bits)
{
    client.Close(4711);
    const auto event = TakeOnly(ackEvent);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(OwnField(*event, "FileHandle"), Core::Value(4711U));
    EXPECT_EQ(OwnField(*event, "Result"), Core::Value(3U));
}

TEST_F(AFileSystem, ListsStructuresOfItsPublishedType)
{
    const auto file = folder.MakeFile("file");
    client.SetDateTime(file, Core::DateTime::FromUnixEpochTime(1'234'567'890));
    client.List(folder.GetPath());
    const auto event = TakeOnly(listResultEvent);
    ASSERT_NE(event, nullptr);
    const auto items = OwnField(*event, "Content").Get<std::vector<Core::Struct>>();
    ASSERT_EQ(items.size(), 1U);
    Core::Struct expected{"file", Core::DateTime::FromUnixEpochTime(1'234'567'890), false};
    expected.SetDataTypeId(LoadedModule::MakeTypeId(50));
    EXPECT_EQ(items.front(), expected);
    EXPECT_EQ(OwnField(*event, "LimitExceeded"), Core::Value(false));
}

TEST_F(AFileSystem, AnswersInTheOrderOfTheRequests)
{
    std::vector<unsigned int> expected;
    for (int round = 0; round < 20; ++round) {
        client.CreateDirectory(folder / "directory");
        client.Exists(folder / "directory");
        client.Delete({folder / "directory"});
        client.Exists(folder / "directory");
        client.List(folder.GetPath());
        client.Close(4711);
        expected.insert(expected.end(),
                        {createDirectoryResultEvent, existsResultEvent, deleteResultEvent,
                         existsResultEvent, listResultEvent, ackEvent});
    }
    bool exists = true;
    for (const unsigned int type : expected) {
        const auto event = recorder.Take();
        ASSERT_NE(event, nullptr);
        ASSERT_EQ(TypeNumber(*event), type);
        if (type == existsResultEvent) {
            EXPECT_EQ(OwnField(*event, "Exist").Get<bool>(), exists);
            exists = !exists;
        }
    }
    ExpectSilence();
}

TEST_F(AFileSystem, AnswersExistsBehindARequestThatStaysSilent)
{
    const unsigned int handle = client.Open(folder / "file", 0);
    client.Write(handle, ToBytes("silent"));
    client.Exists(folder / "file");
    const auto event = recorder.Take();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(TypeNumber(*event), existsResultEvent);
    EXPECT_TRUE(OwnField(*event, "Exist").Get<bool>());
    EXPECT_EQ(client.GetPosition(handle), 6UL); // all requests are done
}

TEST_F(AFileSystem, AcknowledgesEveryUploadOnceWhetherBeforeOrAfterItsCallReturns)
{
    std::set<Ack> expected;
    for (int i = 0; i < 200; ++i)
        expected.emplace(client.UploadFile(folder / "file", ToBytes("text")), 0U);
    const auto acks = TakeAcks();
    EXPECT_EQ(acks.size(), expected.size());
    EXPECT_EQ(std::set<Ack>(acks.begin(), acks.end()), expected);
}

TEST_F(AFileSystem, IsHeardByEverySubscriber)
{
    EventRecorder second(runtime, object);
    client.Close(4711);
    ASSERT_NE(TakeOnly(ackEvent), nullptr);
    const auto event = second.Take();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(ToAck(*event), Ack(4711, 3));
}

} // namespace
