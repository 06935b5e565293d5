#include "Host.h"
#include "HostDoubles.h"
#include "LogCapture.h"
#include "Waiting.h"

#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace FileSystemTests {

using FileSystem::BehaviourProbe;
using FileSystem::FileSystemBehaviour;

namespace {

/// Ends like every failed transfer.
class FailingTask final : public FileSystem::FileSystemAsyncTask
{
public:
    FailingTask(FileSystemBehaviour& behaviour, std::string prefix, unsigned int handle,
                unsigned int result)
        : FileSystemAsyncTask(behaviour)
        , prefix(std::move(prefix))
        , handle(handle)
        , result(result)
    {}
    void DoWork() override { CloseFileAndDispatchError(prefix, handle, result); }

private:
    std::string prefix;
    unsigned int handle;
    unsigned int result;
};

Core::Value TypeOf(const Doubles::ObjectNode::Raised& raised)
{
    return {raised.type->GetNodeId()};
}

} // namespace

/// A started behaviour on a host whose event types have each field at a different place, with the
/// same names in other namespaces beside them: EventType of the base is at 2, the types' own fields
/// at 5 and 7.
class ResultEventLayout : public ::testing::Test
{
public:
    ResultEventLayout(const ResultEventLayout&) = delete;
    ResultEventLayout& operator=(const ResultEventLayout&) = delete;

protected:
    ResultEventLayout() { behaviour->OnStart(); }
    ~ResultEventLayout() override { behaviour->OnStop(); }

    /// Returns the one event that work on the worker thread raised.
    template <typename Work>
    Doubles::ObjectNode::Raised Raise(Work work)
    {
        OnWorker(*behaviour, work);
        EXPECT_EQ(context.node->GetRaised().size(), 1U);
        return context.node->GetRaised().at(0);
    }

    /// Expects these fields to be filled in and no others.
    static void ExpectFields(const Doubles::ObjectNode::Raised& raised, std::size_t size,
                             const std::vector<std::pair<std::size_t, Core::Value>>& filled)
    {
        std::vector<Core::Value> expected(size);
        for (const auto& [position, value] : filled)
            expected.at(position) = value;
        EXPECT_EQ(raised.fields, expected);
    }

    Doubles::Context context;
    std::shared_ptr<FileSystemBehaviour> behaviour =
        std::make_shared<FileSystemBehaviour>(*context.node);
    BehaviourProbe probe{*behaviour};
};

TEST_F(ResultEventLayout, AnAckEventCarriesItsTypeTheHandleAndTheResult)
{
    const auto raised = Raise([this] { behaviour->DispatchAckEvent(0xFFFFFFFFU, 255); });
    EXPECT_EQ(raised.type, context.eventTypes.at(54));
    ExpectFields(raised, 8,
                 {{2, TypeOf(raised)}, {5, Core::Value(255U)}, {7, Core::Value(0xFFFFFFFFU)}});
    EXPECT_EQ(raised.fields[5].GetKind(), Core::ValueKind::UInt32);
    EXPECT_EQ(raised.fields[7].GetKind(), Core::ValueKind::UInt32);
}

TEST_F(ResultEventLayout, AnExistsResultEventCarriesItsTypeAndTheAnswer)
{
    const auto raised = Raise([this] { behaviour->Exists("/"); });
    EXPECT_EQ(raised.type, context.eventTypes.at(64));
    ExpectFields(raised, 6, {{2, TypeOf(raised)}, {5, Core::Value(true)}});
}

TEST_F(ResultEventLayout, ADeleteResultEventCarriesNothingButItsType)
{
    const auto raised = Raise([this] { behaviour->Delete(std::vector<std::string>()); });
    EXPECT_EQ(raised.type, context.eventTypes.at(66));
    ExpectFields(raised, 4, {{2, TypeOf(raised)}});
}

TEST_F(ResultEventLayout, ACreateDirectoryResultEventCarriesNothingButItsType)
{
    const auto raised = Raise([this] { behaviour->CreateDirectory("/"); });
    EXPECT_EQ(raised.type, context.eventTypes.at(67));
    ExpectFields(raised, 4, {{2, TypeOf(raised)}});
}

TEST_F(ResultEventLayout, AListResultEventCarriesItsTypeTheContentAndWhetherTheLimitWasExceeded)
{
    const TemporaryFolder folder;
    const std::string file = folder.MakeFile("x");
    const auto raised = Raise([&] { behaviour->List(folder.GetPath(), false); });
    EXPECT_EQ(raised.type, context.eventTypes.at(68));
    Core::Struct item{
        Core::Value("x"),
        Core::Value(Core::DateTime::FromUnixEpochTime(FileSystemBehaviour::GetDateTime(file))),
        Core::Value(false)};
    item.SetDataTypeId(FileSystem::DataTypes::ListItem());
    ExpectFields(raised, 8,
                 {{2, TypeOf(raised)},
                  {5, Core::Value(false)},
                  {7, Core::Value(std::vector<Core::Struct>{item})}});
}

TEST_F(ResultEventLayout, EventsAreRaisedOnTheWorkerThread)
{
    std::thread::id raisedOn;
    context.node->beforeRaising = [&raisedOn] {
        raisedOn = std::this_thread::get_id();
    };
    behaviour->EnqueueAsyncTask(std::make_shared<FileSystem::ExistsTask>(*behaviour, "/"));
    const auto worker = OnWorker(*behaviour, [] { return std::this_thread::get_id(); });
    EXPECT_EQ(raisedOn, worker);
}

TEST_F(ResultEventLayout, WhatTheHostThrowsWhileAnEventIsRaisedIsLoggedAndTheEventIsNotRepeated)
{
    int attempts = 0;
    context.node->beforeRaising = [&attempts] {
        ++attempts;
        throw Core::InvalidStateException("No events today");
    };
    const LogCapture log(Core::LogLevel::Error);
    RunTask<FileSystem::CloseTask>(*behaviour, 1U);
    RunTask<FileSystem::ExistsTask>(*behaviour, "/");
    EXPECT_EQ(attempts, 2);
    ASSERT_EQ(log.GetEntries().size(), 2U);
    EXPECT_EQ(log.GetEntries()[0].message, "Exception caught: No events today");
}

TEST_F(ResultEventLayout, AFailureIsAcknowledgedAfterItWasLoggedAndItsHandleIsGone)
{
    const TemporaryFolder folder;
    const LogCapture log(Core::LogLevel::Error);
    std::size_t logged = 0;
    bool isRegistered = true;
    context.sessions.current = std::make_shared<Doubles::Session>(context.sessionObject);
    context.node->beforeRaising = [&] {
        logged = log.GetEntries().size();
        isRegistered = probe.HandlesMap().contains(5);
    };
    behaviour->RegisterFileHandle(5, folder / "x");
    ASSERT_TRUE(behaviour->OpenFile(5, folder / "x", FileSystem::OpenModeEnum::CreateWrite));
    RunTask<FailingTask>(*behaviour, "WriteTask", 5U, 2U);
    EXPECT_EQ(logged, 1U);
    EXPECT_FALSE(isRegistered);
}

TEST_F(ResultEventLayout, ATransferIsAcknowledgedOnceTheFileIsWrittenClosedAndStamped)
{
    const TemporaryFolder folder;
    const std::string path = folder / "x";
    const auto time = Core::DateTime::FromUnixEpochTime(1'000'000'000);
    constexpr unsigned char executable = 4;
    int acknowledged = 0;
    context.sessions.current = std::make_shared<Doubles::Session>(context.sessionObject);
    context.node->beforeRaising = [&] {
        EXPECT_TRUE(probe.HandlesMap().empty());
        EXPECT_EQ(ReadWholeFile(path), "data");
        EXPECT_EQ(FileSystemBehaviour::GetDateTime(path), 1'000'000'000);
        EXPECT_EQ(::access(path.c_str(), X_OK), 0);
        ++acknowledged;
    };
    behaviour->RegisterFileHandle(5, path);
    RunTask<FileSystem::OpenWriteCloseTask>(*behaviour, 5U, path, Bytes("data"), time, executable);
    std::filesystem::remove(path);
    behaviour->RegisterFileHandle(6, path);
    ASSERT_TRUE(behaviour->OpenFile(6, path, FileSystem::OpenModeEnum::CreateWrite));
    RunTask<FileSystem::WriteCloseTask>(*behaviour, 6U, Bytes("data"), time, executable);
    EXPECT_EQ(acknowledged, 2);
}

TEST_F(ResultEventLayout, ATaskIsTracedBeforeItsWork)
{
    const LogCapture log(Core::LogLevel::Trace);
    std::vector<std::size_t> lines;
    context.node->beforeRaising = [&] {
        lines.push_back(log.GetEntries().size());
    };
    RunTask<FileSystem::ExistsTask>(*behaviour, "/");
    RunTask<FileSystem::ListTask>(*behaviour, "/nowhere", false);
    RunTask<FileSystem::CreateDirectoryTask>(*behaviour, "/");
    RunTask<FileSystem::DeleteTask>(*behaviour, std::vector<std::string>());
    RunTask<FileSystem::CloseTask>(*behaviour, 1U);
    EXPECT_EQ(lines, (std::vector<std::size_t>{1, 2, 3, 4, 5}));
}

TEST_F(ResultEventLayout, AnOpenIsTracedBeforeItWaitsForTheOtherEndOfAPipe)
{
    const TemporaryFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    context.sessions.current = std::make_shared<Doubles::Session>(context.sessionObject);
    behaviour->RegisterFileHandle(5, folder / "pipe");
    const LogCapture log(Core::LogLevel::Trace);
    behaviour->EnqueueAsyncTask(std::make_shared<FileSystem::OpenTask>(
        *behaviour, 5U, folder / "pipe", FileSystem::OpenModeEnum::Read));
    EXPECT_TRUE(WaitUntil([&] { return log.GetEntries().size() == 1; }));
    const int otherEnd = ::open((folder / "pipe").c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_GE(otherEnd, 0);
    FinishQueue(*behaviour);
    EXPECT_EQ(log.GetEntries().size(), 1U);
    ::close(otherEnd);
}

TEST_F(ResultEventLayout, ANewLayoutIsFoundByTheNextStart)
{
    behaviour->OnStop();
    const auto& id = FileSystem::ObjectTypes::ExistsResultEvent();
    context.SetEventType(id, {{0, "EventType"}, {id.GetNamespaceIndex(), "Exist"}});
    behaviour->OnStart();
    const auto raised = Raise([this] { behaviour->Exists("/"); });
    EXPECT_EQ(raised.type, context.eventTypes.at(64));
    ExpectFields(raised, 2, {{0, TypeOf(raised)}, {1, Core::Value(true)}});
}

TEST_F(ResultEventLayout, AfterTheStopTheEventTypesAreReleased)
{
    const std::weak_ptr<Doubles::EventType> type = context.eventTypes.at(54);
    behaviour->OnStop();
    context.eventTypes.clear();
    EXPECT_TRUE(type.expired());
}

struct FieldRow
{
    const char* name;
    const Core::NodeId& (*type)();
    const char* field; ///< null: the base field
};

/// A field of a type, which the start needs.
class ResultEventField : public ::testing::TestWithParam<FieldRow>
{
protected:
    /// Returns the type's fields with this one in another namespace.
    std::vector<Core::QualifiedName> MakeFieldsWithOneMisplaced()
    {
        const auto& id = GetParam().type();
        const std::string misplaced = GetParam().field != nullptr ? GetParam().field : "EventType";
        std::vector<Core::QualifiedName> fields;
        for (const auto& field :
             context.eventTypes.at(*id.GetNumeric())->GetEventArguments().GetFields()) {
            const bool isBase = field.GetName() == "EventType";
            const int right = isBase ? 0 : id.GetNamespaceIndex();
            if (field.GetName() != misplaced || field.GetNamespaceIndex() != right)
                fields.push_back(field);
        }
        return fields;
    }

    Doubles::Context context;
    std::shared_ptr<FileSystemBehaviour> behaviour =
        std::make_shared<FileSystemBehaviour>(*context.node);
};

TEST_P(ResultEventField, IsLookedUpByNameAndNamespaceAtTheStart)
{
    context.SetEventType(GetParam().type(), MakeFieldsWithOneMisplaced());
    EXPECT_THROW(behaviour->OnStart(), Core::NotFoundException);
    EXPECT_FALSE(BehaviourProbe{*behaviour}.HasWorker());
    behaviour->OnStop();
}

TEST_P(ResultEventField, IsLookedUpInTheOrderOfTheTypes)
{
    context.SetEventType(GetParam().type(), MakeFieldsWithOneMisplaced());
    context.journal.Clear();
    EXPECT_THROW(behaviour->OnStart(), Core::NotFoundException);
    const auto lines = context.journal.GetLines();
    EXPECT_EQ(lines.back(), "GetObjectType " + std::to_string(*GetParam().type().GetNumeric()));
    behaviour->OnStop();
}

INSTANTIATE_TEST_SUITE_P(
    Of, ResultEventField,
    ::testing::Values(
        FieldRow{"AckEventType", FileSystem::ObjectTypes::AckEvent, nullptr},
        FieldRow{"AckEventFileHandle", FileSystem::ObjectTypes::AckEvent, "FileHandle"},
        FieldRow{"AckEventResult", FileSystem::ObjectTypes::AckEvent, "Result"},
        FieldRow{"ExistsResultEventType", FileSystem::ObjectTypes::ExistsResultEvent, nullptr},
        FieldRow{"ExistsResultEventExist", FileSystem::ObjectTypes::ExistsResultEvent, "Exist"},
        FieldRow{"DeleteResultEventType", FileSystem::ObjectTypes::DeleteResultEvent, nullptr},
        FieldRow{"CreateDirectoryResultEventType",
                 FileSystem::ObjectTypes::CreateDirectoryResultEvent, nullptr},
        FieldRow{"ListResultEventType", FileSystem::ObjectTypes::ListResultEvent, nullptr},
        FieldRow{"ListResultEventContent", FileSystem::ObjectTypes::ListResultEvent, "Content"},
        FieldRow{"ListResultEventLimitExceeded", FileSystem::ObjectTypes::ListResultEvent,
                 "LimitExceeded"}),
    [](const auto& test) { return test.param.name; });

TEST(ResultEventCaches, EveryTypeIsAskedForOnceInTheirOrderHoweverManyEventsAreRaised)
{
    Doubles::Context context;
    const auto behaviour = std::make_shared<FileSystemBehaviour>(*context.node);
    context.journal.Clear();
    behaviour->OnStart();
    for (int i = 0; i < 3; ++i) {
        RunTask<FileSystem::ExistsTask>(*behaviour, "/");
        RunTask<FileSystem::CloseTask>(*behaviour, 1U);
    }
    auto lines = context.journal.GetLines();
    std::erase_if(lines, [](const auto& line) { return !line.starts_with("GetObjectType"); });
    EXPECT_EQ(lines,
              (std::vector<std::string>{"GetObjectType 54", "GetObjectType 64", "GetObjectType 66",
                                        "GetObjectType 67", "GetObjectType 68"}));
    behaviour->OnStop();
}

/// Events as the subscribers of a real host get them.
class ResultEvents : public FileSystemTest
{};

TEST_F(ResultEvents, AnAckEventReachesASubscriberWithAllBaseFieldsFilled)
{
    OnWorker(behaviour, [this] { behaviour.DispatchAckEvent(77, 3); });
    const auto event = events.Take();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(TypeNumber(*event), ackEvent);
    EXPECT_EQ(event->source, host.GetObject());
    EXPECT_EQ(OwnField(*event, "FileHandle"), Core::Value(77U));
    EXPECT_EQ(OwnField(*event, "Result"), Core::Value(3U));
    EXPECT_EQ(event->GetField({0, "EventType"}), Core::Value(FileSystem::ObjectTypes::AckEvent()));
    EXPECT_FALSE(event->GetField({0, "Time"}).IsEmpty());
    EXPECT_FALSE(event->GetField({0, "EventId"}).IsEmpty());
}

TEST_F(ResultEvents, AMissingPathDoesNotExist)
{
    OnWorker(behaviour, [this] { behaviour.Exists(folder / "missing"); });
    const auto event = events.Take();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(OwnField(*event, "Exist"), Core::Value(false));
}

// Failed transfers

struct FailureRow
{
    const char* name;
    unsigned int result;
    const char* text;
    std::int32_t line;
    unsigned int acknowledged;
};

class ResultEventsFailure : public FileSystemTest, public ::testing::WithParamInterface<FailureRow>
{};

TEST_P(ResultEventsFailure, IsLoggedThenClosesTheHandleThenAcknowledges)
{
    const unsigned int handle = OpenRegistered(folder / "x", OpenModeEnum::CreateWrite);
    const LogCapture log(Core::LogLevel::Error);
    RunTask<FailingTask>(behaviour, "WriteTask", handle, GetParam().result);
    ExpectOnlyAck(handle, GetParam().acknowledged);
    EXPECT_FALSE(IsRegistered(handle));
    ASSERT_EQ(log.GetEntries().size(), 1U);
    const auto entry = log.GetEntries()[0];
    EXPECT_EQ(entry.level, Core::LogLevel::Error);
    EXPECT_EQ(entry.code, 535U);
    EXPECT_EQ(entry.message, std::string("WriteTask") + GetParam().text);
    EXPECT_EQ(entry.file, "FileSystem/FileSystem/src/WorkerQueueTask.cpp");
    EXPECT_EQ(entry.function, "CloseFileAndDispatchError");
    EXPECT_EQ(entry.line, GetParam().line);
}

TEST_P(ResultEventsFailure, ClosesAndAcknowledgesAlsoWhenNobodyLogsIt)
{
    const unsigned int handle = OpenRegistered(folder / "x", OpenModeEnum::CreateWrite);
    const LogCapture log(Core::LogLevel::Off);
    RunTask<FailingTask>(behaviour, "WriteTask", handle, GetParam().result);
    ExpectOnlyAck(handle, GetParam().acknowledged);
    EXPECT_FALSE(IsRegistered(handle));
    EXPECT_TRUE(log.GetEntries().empty());
}

INSTANTIATE_TEST_SUITE_P(
    WithResult, ResultEventsFailure,
    ::testing::Values(
        FailureRow{"Zero", 0, ", generic transfer error: 0", 27, 0},
        FailureRow{"OpenFailed", 1, ", cannot open the file", 12, 1},
        FailureRow{"WriteIncomplete", 2, ", cannot write all data", 15, 2},
        FailureRow{"CloseFailed", 3, ", cannot close the remote file", 18, 3},
        FailureRow{"SetDateTimeFailed", 4, ", cannot set date/time of remote file", 21, 4},
        FailureRow{"SetPermissionsFailed", 5, ", cannot set file permissions of remote file", 24,
                   5},
        FailureRow{"Six", 6, ", generic transfer error: 6", 27, 6},
        FailureRow{"255", 255, ", generic transfer error: 255", 27, 255},
        FailureRow{"256", 256, ", generic transfer error: 256", 27, 0},
        FailureRow{"TheLargest", 0xFFFFFFFFU, ", generic transfer error: 4294967295", 27, 255}),
    [](const auto& test) { return test.param.name; });

TEST_F(ResultEvents, AFailureWithAnUnknownHandleIsAcknowledgedAllTheSame)
{
    const LogCapture log(Core::LogLevel::Off);
    RunTask<FailingTask>(behaviour, "OpenTask", 12345U, 1U);
    ExpectOnlyAck(12345, 1);
}

TEST_F(ResultEvents, AFailureWhoseCloseFailsKeepsItsResult)
{
    const unsigned int handle = OpenRegistered("/dev/full", OpenModeEnum::CreateWrite);
    ASSERT_TRUE(FileSystemBehaviour::Write(GetStream(handle), Bytes("lost")));
    const LogCapture log;
    RunTask<FailingTask>(behaviour, "WriteTask", handle, 2U);
    ExpectOnlyAck(handle, 2);
    EXPECT_FALSE(IsRegistered(handle));
    EXPECT_EQ(log.GetEntries().size(), 1U);
}

} // namespace FileSystemTests
