#include "ModuleTest.h"

#include "Core/Exception.h"

#include <cctype>
#include <functional>
#include <set>

namespace {

using namespace FileSystemTests;

/// A method with valid inputs.
struct MethodCase
{
    const char* name;
    std::function<Values(const TemporaryFolder&)> makeInputs;
    std::size_t outputs;    ///< with these inputs
    const char* wrongTyped; ///< one letter per input: its type
};

void PrintTo(const MethodCase& method, std::ostream* stream)
{
    *stream << method.name;
}

constexpr unsigned int unknownHandle = 77;

std::vector<MethodCase> MakeMethodCases()
{
    const auto file = [](const TemporaryFolder& folder) {
        return folder / "file";
    };
    const Core::Value data = MakeBytesValue(ToBytes("data"));
    const Core::Value time = Core::DateTime::FromUnixEpochTime(1'000'000);
    const unsigned char permissions = 0;
    const Core::Value handle = unknownHandle;
    return {
        {"Open",
         [=](auto& at) {
             return Values{file(at), 0U};
         },
         1, "tn"},
        {"Close", [=](auto&) { return Values{handle}; }, 0, "n"},
        {"UploadFile",
         [=](auto& at) {
             return Values{file(at), data, time, permissions};
         },
         1, "tbdn"},
        {"OpenWrite",
         [=](auto& at) {
             return Values{file(at), data};
         },
         1, "tb"},
        {"Write",
         [=](auto&) {
             return Values{handle, data};
         },
         0, "nb"},
        {"WriteClose",
         [=](auto&) {
             return Values{handle, data, time, permissions};
         },
         0, "nbdn"},
        {"CreateDirectory", [=](auto& at) { return Values{at / "directory"}; }, 0, "t"},
        {"Delete",
         [=](auto& at) { return Values{Core::Value(std::vector<std::string>{file(at)})}; }, 0, "a"},
        {"List",
         [=](auto& at) {
             return Values{at.GetPath().string(), false};
         },
         0, "tf"},
        {"Exists", [=](auto& at) { return Values{file(at)}; }, 0, "t"},
        {"Read",
         [=](auto&) {
             return Values{handle, 10U};
         },
         0, "nn"},
        {"GetDateTime", [=](auto& at) { return Values{at.GetPath().string()}; }, 1, "t"},
        {"SetDateTime",
         [=](auto& at) {
             return Values{file(at), time};
         },
         0, "td"},
        {"GetPosition", [=](auto&) { return Values{handle}; }, 0, "n"},
        {"SetPosition",
         [=](auto&) {
             return Values{handle, 10UL};
         },
         0, "nn"},
    };
}

/// Values that do not convert to a type.
Values MakeWrongValues(char kind)
{
    const Core::Value text("text");
    const Core::Value number(5U);
    const Core::Value node(Core::NodeId(0, 5));
    const Core::Value nothing;
    const Core::Value texts(std::vector<std::string>{"text"});
    const auto numbers = Core::Value::MakeArray<unsigned int>({1, 2}, {2});
    switch (kind) {
    case 'n': // a number
        return {text,
                node,
                nothing,
                texts,
                numbers,
                Core::Value(-1),
                Core::Value(1.0),
                Core::Value(true),
                Core::DateTime()};
    case 't': // a text
    case 'b': // bytes
        return {number,
                node,
                nothing,
                numbers,
                Core::Value(true),
                Core::DateTime(),
                kind == 't' ? texts : text};
    case 'd': // a date and time
    case 'f': // a flag
        return {text, number, node, nothing, texts, numbers};
    default: // an array of texts; a scalar is no array of anything
        return {numbers};
    }
}

class EveryMethod : public AFileSystem, public testing::WithParamInterface<MethodCase>
{
protected:
    [[nodiscard]] Core::Embedding::CallResult Call(const Values& inputs) const
    {
        return client.Call(GetParam().name, inputs);
    }
    [[nodiscard]] Values MakeInputs() const { return GetParam().makeInputs(folder); }

    void ExpectThatNothingHappened()
    {
        ExpectSilence();
        EXPECT_TRUE(std::filesystem::is_empty(folder.GetPath()));
    }
};

TEST_P(EveryMethod, TakesItsInputs)
{
    const auto result = Call(MakeInputs());
    EXPECT_TRUE(result.taken);
    EXPECT_EQ(result.outputs.size(), GetParam().outputs);
}

TEST_P(EveryMethod, IgnoresFurtherInputs)
{
    Values inputs = MakeInputs();
    inputs.emplace_back("further");
    inputs.emplace_back(Core::NodeId(0, 5));
    const auto result = Call(inputs);
    EXPECT_TRUE(result.taken);
    EXPECT_EQ(result.outputs.size(), GetParam().outputs);
}

TEST_P(EveryMethod, RefusesFewerInputsThanItNeedsAndDoesNothing)
{
    for (Values inputs = MakeInputs(); !inputs.empty();) {
        inputs.pop_back();
        const auto result = Call(inputs);
        EXPECT_FALSE(result.taken) << inputs.size();
        EXPECT_TRUE(result.outputs.empty()) << inputs.size();
    }
    ExpectThatNothingHappened();
}

TEST_P(EveryMethod, PassesOnWhatTheHostThrowsForAnInputOfAnotherTypeAndDoesNothing)
{
    const std::string kinds = GetParam().wrongTyped;
    for (std::size_t position = 0; position < kinds.size(); ++position)
        for (const auto& wrong : MakeWrongValues(kinds[position])) {
            Values inputs = MakeInputs();
            ASSERT_EQ(inputs.size(), kinds.size());
            inputs[position] = wrong;
            EXPECT_THROW(static_cast<void>(Call(inputs)), Core::Exception)
                << position << ": " << wrong.ToString();
        }
    ExpectThatNothingHappened();
}

TEST_P(EveryMethod, IsKnownByItsExactNameOnly)
{
    std::string lowered = GetParam().name;
    lowered.front() = static_cast<char>(std::tolower(lowered.front()));
    for (const std::string& name : {lowered, lowered + " ", std::string(GetParam().name) + "2",
                                    std::string(GetParam().name) + '\0', std::string()}) {
        const auto result = client.Call(name, MakeInputs());
        EXPECT_FALSE(result.taken) << name;
        EXPECT_TRUE(result.outputs.empty()) << name;
    }
    ExpectThatNothingHappened();
}

TEST_P(EveryMethod, IsRefusedAfterTheStop)
{
    runtime.StopBehaviour(object);
    const auto result = Call(MakeInputs());
    EXPECT_FALSE(result.taken);
    EXPECT_TRUE(result.outputs.empty());
    EXPECT_FALSE(Call({}).taken);
    EXPECT_TRUE(std::filesystem::is_empty(folder.GetPath()));
    runtime.StartBehaviour(object);
    ExpectThatNothingHappened();
}

INSTANTIATE_TEST_SUITE_P(OfAFileSystem, EveryMethod, testing::ValuesIn(MakeMethodCases()),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_F(AFileSystem, RefusesUnknownNamesBeforeAndAfterTheStop)
{
    EXPECT_FALSE(client.Call("Rename", {"a", "b"}).taken);
    runtime.StopBehaviour(object);
    EXPECT_FALSE(client.Call("Rename", {"a", "b"}).taken);
}

TEST_F(AFileSystem, TakesIntegersOfOtherWidthsThatFit)
{
    const std::string file = folder.MakeFile("file", "content");
    const auto result = client.Call("Open", {file, 1L});
    ASSERT_TRUE(result.taken);
    const auto handle = static_cast<unsigned long>(result.outputs.at(0).Get<unsigned int>());
    ExpectSilence();
    EXPECT_EQ(client.Call("Read", {handle, static_cast<short>(7)}).outputs.at(0),
              MakeBytesValue(ToBytes("content")));
    EXPECT_THROW(static_cast<void>(client.Call("Read", {1UL << 32U, 7U})),
                 Core::OutOfRangeException);
    EXPECT_THROW(static_cast<void>(client.Call("SetPosition", {handle, -1})),
                 Core::OutOfRangeException);
    EXPECT_THROW(static_cast<void>(
                     client.Call("UploadFile", {file, MakeBytesValue({}), Core::DateTime(), 256})),
                 Core::OutOfRangeException);
    EXPECT_EQ(ReadWholeFile(file), "content");
}

TEST_F(AFileSystem, DeletesNothingForAScalarAndAnswersAllTheSame)
{
    const std::string file = folder.MakeFile("file");
    EXPECT_TRUE(client.Call("Delete", {file}).taken);
    EXPECT_NE(TakeOnly(deleteResultEvent), nullptr);
    EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(AFileSystem, DeletesNothingForAnEmptyArrayAndAnswersAllTheSame)
{
    EXPECT_TRUE(client.Call("Delete", {Core::Value(std::vector<std::string>{})}).taken);
    EXPECT_NE(TakeOnly(deleteResultEvent), nullptr);
    const auto empty = Core::Value::MakeArray<std::string>({}, {0, 3});
    EXPECT_TRUE(client.Call("Delete", {empty}).taken);
    EXPECT_NE(TakeOnly(deleteResultEvent), nullptr);
}

TEST_F(AFileSystem, ReadsOneIndexPerPathToDeleteSoThatOtherDimensionsAreTheHostsToRefuse)
{
    const std::string file = folder.MakeFile("file");
    const auto square = Core::Value::MakeArray<std::string>({file, file, file, file}, {2, 2});
    EXPECT_THROW(static_cast<void>(client.Call("Delete", {square})), Core::OutOfRangeException);
    ExpectSilence();
    EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(AFileSystem, WritesAnEmptyBlockToAnUnknownHandleWithoutAWord)
{
    client.Write(unknownHandle, {});
    ExpectSilence();
}

TEST_F(AFileSystem, HasNoOutputForAnUnknownHandle)
{
    EXPECT_EQ(client.Read(unknownHandle, 10), std::nullopt);
    EXPECT_EQ(client.GetPosition(unknownHandle), std::nullopt);
    client.SetPosition(unknownHandle, 10);
    ExpectSilence();
}

TEST_F(AFileSystem, HasNoTimeForAMissingPath)
{
    EXPECT_EQ(client.GetDateTime(folder / "missing"), std::nullopt);
    client.SetDateTime(folder / "missing", Core::DateTime::Now());
    EXPECT_FALSE(std::filesystem::exists(folder / "missing"));
}

TEST_F(AFileSystem, MakesNoHandleForAnUploadWithThreeInputs)
{
    const auto result =
        client.Call("UploadFile", {folder / "file", MakeBytesValue({}), Core::DateTime()});
    EXPECT_FALSE(result.taken);
    EXPECT_TRUE(result.outputs.empty());
    ExpectSilence();
    EXPECT_FALSE(std::filesystem::exists(folder / "file"));
}

TEST_F(AFileSystem, GivesEveryCallAHandleOfItsOwn)
{
    std::set<unsigned int> handles;
    for (int i = 0; i < 500; ++i)
        handles.insert(client.Open(folder / "missing", 1));
    EXPECT_EQ(handles.size(), 500U);
    EXPECT_EQ(WaitForBarrier().size(), 500U);
}

} // namespace
