#include "Descriptors.h"
#include "Host.h"
#include "HostDoubles.h"

#include <unordered_set>

namespace FileSystemTests {

using FileSystem::BehaviourProbe;
using FileSystem::FileSystemBehaviour;

namespace {

void DestroyAStartedBehaviour()
{
    Doubles::Context context;
    const auto behaviour = std::make_shared<FileSystemBehaviour>(*context.node);
    behaviour->OnStart();
    FinishQueue(*behaviour); // the worker is idle, or soon will be
}

} // namespace

class BehaviourState : public FileSystemTest
{
protected:
    std::shared_ptr<FileSystemBehaviour> unstarted = host.MakeUnstartedBehaviour();
    BehaviourProbe unstartedProbe{*unstarted};
};

TEST_F(BehaviourState, ACallBeforeTheStartIsTakenAndQueued)
{
    std::vector<Core::Value> outputs;
    EXPECT_TRUE(
        unstarted->OnExecuteMethod(nullptr, "Exists", {Core::Value(folder / "x")}, outputs));
    EXPECT_EQ(unstartedProbe.TaskQueue().size(), 1U);
    ExpectNoEvent();
}

TEST_F(BehaviourState, WhatWasQueuedBeforeTheStartRunsAfterIt)
{
    std::vector<Core::Value> outputs;
    unstarted->OnExecuteMethod(nullptr, "Exists", {Core::Value(folder.MakeFile("x"))}, outputs);
    unstarted->OnStart();
    const auto event = events.Take();
    unstarted->OnStop();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(TypeNumber(*event), existsResultEvent);
    EXPECT_EQ(OwnField(*event, "Exist"), Core::Value(true));
}

TEST_F(BehaviourState, ACallBeforeTheStartGivesAHandleOfTheCallersSession)
{
    std::vector<Core::Value> outputs;
    ASSERT_TRUE(unstarted->OnExecuteMethod(nullptr, "Open",
                                           {Core::Value(folder / "x"), Core::Value(0U)}, outputs));
    ASSERT_EQ(outputs.size(), 1U);
    EXPECT_EQ(unstarted->GetFileInfo(outputs[0].Get<unsigned int>()).session, session->GetNodeId());
    EXPECT_FALSE(std::filesystem::exists(folder / "x"));
}

TEST_F(BehaviourState, TwoBehavioursDrawHandlesFromIndependentlySeededEngines)
{
    std::vector<unsigned int> ours;
    std::vector<unsigned int> theirs;
    for (int i = 0; i < 4; ++i) {
        ours.push_back(behaviour.GetFreshHandle());
        theirs.push_back(unstarted->GetFreshHandle());
    }
    EXPECT_NE(ours, theirs);
}

TEST_F(BehaviourState, AZeroThatIsDrawnIsNeverAHandle)
{
    unstartedProbe.HandleDistribution() = std::uniform_int_distribution<unsigned int>(0, 1);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(unstarted->GetFreshHandle(), 1U);
}

TEST_F(BehaviourState, HandlesAreDrawnFromAllNumbersButZero)
{
    EXPECT_EQ(unstartedProbe.HandleDistribution().min(), 1U);
    EXPECT_EQ(unstartedProbe.HandleDistribution().max(), 0xFFFFFFFFU);
}

TEST_F(BehaviourState, ANewBehaviourIsEmpty)
{
    EXPECT_TRUE(unstartedProbe.HandlesMap().empty());
    EXPECT_TRUE(unstartedProbe.SessionsMap().empty());
    EXPECT_TRUE(unstartedProbe.TaskQueue().empty());
    EXPECT_FALSE(unstartedProbe.HasAnyEventType());
    EXPECT_FALSE(unstartedProbe.HasWorker());
    EXPECT_EQ(unstartedProbe.CurrentSession(), nullptr);
}

TEST_F(BehaviourState, DestructionForgetsHandlesWithoutClosingTheirStreams)
{
    const std::string path = folder / "x";
    const unsigned int handle = unstarted->GetFreshHandle();
    unstarted->RegisterFileHandle(handle, path);
    ASSERT_TRUE(unstarted->OpenFile(handle, path, OpenModeEnum::CreateWrite));
    FILE* const stream = unstarted->GetFileInfo(handle).file;
    unstarted.reset();
    EXPECT_EQ(CountDescriptors(path), 1U);
    EXPECT_NE(std::fputs("still open", stream), EOF);
    EXPECT_EQ(std::fclose(stream), 0);
}

TEST_F(BehaviourState, DestructionReleasesWhatIsQueued)
{
    const auto content = std::make_shared<int>(0);
    Enqueue(*unstarted, [content] { ++*content; });
    EXPECT_EQ(content.use_count(), 2);
    unstarted.reset();
    EXPECT_EQ(content.use_count(), 1);
    EXPECT_EQ(*content, 0);
}

TEST(BehaviourConstruction, TakesOneAffinityAndAsksTheHostForNothingElse)
{
    Doubles::Context context;
    const FileSystemBehaviour behaviour(*context.node);
    EXPECT_EQ(context.journal.GetLines(), std::vector<std::string>{"AssignAffinityId"});
}

TEST(BehaviourConstruction, KeepsTheAffinityThatTheHostGave)
{
    Doubles::Context context;
    FileSystemBehaviour behaviour(*context.node);
    EXPECT_EQ(BehaviourProbe{behaviour}.AffinityId(), context.affinityId);
}

TEST(BehaviourConstruction, BehavioursOfARealHostHaveAffinitiesOfTheirOwn)
{
    const Host host;
    const auto first = host.MakeUnstartedBehaviour();
    const auto second = host.MakeUnstartedBehaviour();
    EXPECT_NE(BehaviourProbe{*first}.AffinityId(), BehaviourProbe{*second}.AffinityId());
    EXPECT_NE(BehaviourProbe{*first}.AffinityId(), 0U);
}

TEST(BehaviourConstructionDeathTest, DestroyingAStartedBehaviourEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(DestroyAStartedBehaviour(), "terminate called");
}

} // namespace FileSystemTests
