#include "Core/Exception.h"
#include "Host.h"

#include <utility>

namespace FileSystemTests {

/// The methods that make a handle, with good inputs.
class MethodsThatMakeAHandle : public FileSystemTest
{
protected:
    using Inputs = std::vector<Core::Value>;

    [[nodiscard]] std::vector<std::pair<const char*, Inputs>> MakeCalls() const
    {
        const Core::Value content(Bytes("content"), true);
        return {{"Open", {Core::Value(folder / "opened"), Core::Value(0U)}},
                {"OpenWrite", {Core::Value(folder / "written"), content}},
                {"UploadFile",
                 {Core::Value(folder / "uploaded"), content, Core::Value(Core::DateTime()),
                  Core::Value(static_cast<unsigned char>(0))}}};
    }

    void ExpectNothingRegistered(const char* method, std::size_t inputs) const
    {
        EXPECT_TRUE(probe.HandlesMap().empty()) << method << ", " << inputs;
        EXPECT_TRUE(probe.SessionsMap().empty()) << method << ", " << inputs;
    }
};

TEST_F(MethodsThatMakeAHandle, MakeNoneWhenAnInputIsMissing)
{
    for (const auto& [name, inputs] : MakeCalls())
        for (std::size_t count = 0; count < inputs.size(); ++count) {
            Inputs outputs;
            const Inputs fewer(inputs.begin(), inputs.begin() + static_cast<std::ptrdiff_t>(count));
            EXPECT_FALSE(behaviour.OnExecuteMethod(nullptr, name, fewer, outputs));
            EXPECT_TRUE(outputs.empty()) << name << ", " << count;
            ExpectNothingRegistered(name, count);
        }
}

TEST_F(MethodsThatMakeAHandle, MakeNoneWhenAnInputIsOfAnotherKind)
{
    for (const auto& [name, inputs] : MakeCalls())
        for (std::size_t position = 0; position < inputs.size(); ++position) {
            Inputs changed = inputs;
            Inputs outputs;
            changed[position] = Core::Value(Core::NodeId(0, 5));
            EXPECT_THROW(behaviour.OnExecuteMethod(nullptr, name, changed, outputs),
                         Core::TypeMismatchException);
            EXPECT_TRUE(outputs.empty()) << name << ", " << position;
            ExpectNothingRegistered(name, position);
        }
}

TEST_F(MethodsThatMakeAHandle, GiveItOutAs32Bits)
{
    for (const auto& [name, inputs] : MakeCalls()) {
        Inputs outputs;
        ASSERT_TRUE(behaviour.OnExecuteMethod(nullptr, name, inputs, outputs));
        ASSERT_EQ(outputs.size(), 1U) << name;
        EXPECT_EQ(outputs[0].GetKind(), Core::ValueKind::UInt32) << name;
    }
}

TEST_F(MethodsThatMakeAHandle, AreFollowedByAPositionOf64Bits)
{
    const unsigned int handle = OpenRegistered(folder.MakeFile("x", "content"), OpenModeEnum::Read);
    Inputs outputs;
    ASSERT_TRUE(behaviour.OnExecuteMethod(nullptr, "GetPosition", {Core::Value(handle)}, outputs));
    ASSERT_EQ(outputs.size(), 1U);
    EXPECT_EQ(outputs[0].GetKind(), Core::ValueKind::UInt64);
}

} // namespace FileSystemTests
