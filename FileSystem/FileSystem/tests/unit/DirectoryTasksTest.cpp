#include "Host.h"
#include "LogCapture.h"

namespace FileSystemTests {

using FileSystem::CreateDirectoryTask;
using FileSystem::DeleteTask;
using FileSystem::ExistsTask;
using FileSystem::ListTask;

class DirectoryTasks : public FileSystemTest
{
protected:
    /// Returns the one event that the tasks so far have raised.
    Core::Embedding::Event TakeOnly()
    {
        const auto taken = events.TakeAll();
        EXPECT_EQ(taken.size(), 1U);
        return taken.empty() ? Core::Embedding::Event() : *taken[0];
    }

    const std::string path = folder / "x";
    const std::string root = folder.GetPath();
};

TEST_F(DirectoryTasks, ExistsTellsItsLineAndRaisesItsEvent)
{
    const LogCapture log(Core::LogLevel::Trace);
    RunTask<ExistsTask>(behaviour, folder.MakeFile("x"));
    const auto event = TakeOnly();
    EXPECT_EQ(TypeNumber(event), existsResultEvent);
    EXPECT_EQ(OwnField(event, "Exist"), Core::Value(true));
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message, "ExistsTask, file path = " + path);
}

TEST_F(DirectoryTasks, DeleteTellsItsLineAndRaisesItsEvent)
{
    const LogCapture log(Core::LogLevel::Trace);
    RunTask<DeleteTask>(behaviour, std::vector{folder.MakeFile("x"), folder / "missing"});
    EXPECT_EQ(TypeNumber(TakeOnly()), deleteResultEvent);
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message, "DeleteTask, files: 2");
}

TEST_F(DirectoryTasks, DeleteOfAnEmptyListTellsZeroAndRaisesItsEvent)
{
    const LogCapture log(Core::LogLevel::Trace);
    RunTask<DeleteTask>(behaviour, std::vector<std::string>());
    EXPECT_EQ(TypeNumber(TakeOnly()), deleteResultEvent);
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message, "DeleteTask, files: 0");
}

TEST_F(DirectoryTasks, CreateDirectoryTellsItsLineAndRaisesItsEvent)
{
    const LogCapture log(Core::LogLevel::Trace);
    RunTask<CreateDirectoryTask>(behaviour, path);
    EXPECT_EQ(TypeNumber(TakeOnly()), createDirectoryResultEvent);
    EXPECT_TRUE(std::filesystem::is_directory(path));
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message, "CreateDirectoryTask, directory path = " + path);
}

TEST_F(DirectoryTasks, AListingWithoutRecursionTellsZeroAndDoesNotDescend)
{
    std::filesystem::create_directories(folder / "a/b");
    const LogCapture log(Core::LogLevel::Trace);
    RunTask<ListTask>(behaviour, root, false);
    EXPECT_EQ(OwnField(TakeOnly(), "Content").GetArrayDimensions(), std::vector<unsigned int>{1});
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message,
              "ListTask, rootDirectory = " + root + " , recusrive = 0");
}

TEST_F(DirectoryTasks, AListingWithRecursionTellsOneAndDescends)
{
    std::filesystem::create_directories(folder / "a/b");
    const LogCapture log(Core::LogLevel::Trace);
    RunTask<ListTask>(behaviour, root, true);
    EXPECT_EQ(OwnField(TakeOnly(), "Content").GetArrayDimensions(), std::vector<unsigned int>{2});
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries()[0].message,
              "ListTask, rootDirectory = " + root + " , recusrive = 1");
}

TEST_F(DirectoryTasks, WithoutTheTraceLevelTheTasksOnlyDoTheirWork)
{
    const LogCapture log(Core::LogLevel::Debug);
    RunTask<CreateDirectoryTask>(behaviour, path);
    RunTask<ExistsTask>(behaviour, path);
    RunTask<ListTask>(behaviour, root, true);
    RunTask<DeleteTask>(behaviour, std::vector{path});
    std::vector<unsigned int> types;
    for (const auto& event : events.TakeAll())
        types.push_back(TypeNumber(*event));
    EXPECT_EQ(types, (std::vector<unsigned int>{createDirectoryResultEvent, existsResultEvent,
                                                listResultEvent, deleteResultEvent}));
    EXPECT_TRUE(log.GetEntries().empty());
}

TEST_F(DirectoryTasks, WhatWasQueuedBeforeIsSeenByWhatFollows)
{
    {
        const WorkerGate gate(behaviour);
        behaviour.EnqueueAsyncTask(std::make_shared<CreateDirectoryTask>(behaviour, path));
        behaviour.EnqueueAsyncTask(std::make_shared<ListTask>(behaviour, root, false));
        behaviour.EnqueueAsyncTask(std::make_shared<DeleteTask>(behaviour, std::vector{path}));
        behaviour.EnqueueAsyncTask(std::make_shared<ListTask>(behaviour, root, false));
    }
    FinishQueue(behaviour);
    const auto taken = events.TakeAll();
    ASSERT_EQ(taken.size(), 4U);
    EXPECT_EQ(OwnField(*taken[1], "Content").GetArrayDimensions(), std::vector<unsigned int>{1});
    EXPECT_EQ(OwnField(*taken[3], "Content").GetArrayDimensions(), std::vector<unsigned int>{0});
}

TEST_F(DirectoryTasks, AnExceptionLeavesTheTaskWithoutAnEventAndIsLoggedByTheWorker)
{
    const std::string file = folder.MakeFile("x");
    const LogCapture log(Core::LogLevel::Error);
    RunTask<ListTask>(behaviour, file, true);
    ExpectNoEvent();
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_NE(log.GetEntries()[0].message.find(file), std::string::npos);
    EXPECT_TRUE(log.GetEntries()[0].message.starts_with("Exception caught: "));
}

TEST_F(DirectoryTasks, ATaskKeepsCopiesOfWhatItWasGiven)
{
    std::string given = folder.MakeFile("x");
    std::vector<std::string> list{given};
    {
        const WorkerGate gate(behaviour);
        behaviour.EnqueueAsyncTask(std::make_shared<ExistsTask>(behaviour, given));
        behaviour.EnqueueAsyncTask(std::make_shared<DeleteTask>(behaviour, list));
        given.assign(given.size(), '!');
        list.front().assign(list.front().size(), '!');
    }
    FinishQueue(behaviour);
    const auto taken = events.TakeAll();
    ASSERT_EQ(taken.size(), 2U);
    EXPECT_EQ(OwnField(*taken[0], "Exist"), Core::Value(true));
    EXPECT_FALSE(std::filesystem::exists(path));
}

} // namespace FileSystemTests
