#include "Core/Embedding/InformationModel.h"
#include "Core/NodeProvider.h"
#include "support/RuntimeFixture.h"

#include <optional>
#include <string>
#include <vector>

namespace CoreTests {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;
using testing::ThrowsMessage;

/// Has a child for each letter; calls of a child return its key.
class Alphabet final : public IExecutableBehaviour, public INodeProvider
{
public:
    void OnStart() override {}
    void OnStop() override {}

    bool OnExecuteMethod(const std::shared_ptr<INode>& node, const std::string& methodName,
                         const std::vector<Value>& /*inputs*/, std::vector<Value>& outputs) override
    {
        if (methodName == "Fail")
            throw StatusException(0x803E0000U, "No such file or directory");
        outputs.emplace_back(node->GetNodeId());
        outputs.emplace_back(node->GetBrowseName().GetName());
        return true;
    }

    [[nodiscard]] std::optional<ProvidedNode> Describe(const std::string& key) const override
    {
        if (key == "A.size")
            return ProvidedNode{ProvidedNode::Kind::Property, QualifiedName(0, "size"),
                                NodeId(0, 7), "A", 0};
        if (key.size() != 1)
            return std::nullopt;
        return ProvidedNode{ProvidedNode::Kind::Object, QualifiedName(0, "letter " + key),
                            NodeId(0, 58), "", 0};
    }
    [[nodiscard]] std::vector<std::string> GetMembers(const std::string& key) const override
    {
        return {key + ".size"};
    }
    [[nodiscard]] bool Exists(const std::string& key) override { return key >= "A" && key <= "Z"; }
    void List(const std::string& /*key*/, IEntryList& entries) override
    {
        entries.Append({"A", "B"});
    }
    [[nodiscard]] Value Read(const std::string& /*key*/) override { return 1; }
};

class AProvider : public RuntimeFixture
{
protected:
    /// The factory 0…dead is that of the type 4.
    AProvider()
    {
        runtime->GetContext().GetNodeFactory().RegisterBehaviourFactory(
            Guid("0000000000000000000000000000dead"),
            std::make_shared<DeviceFactory>([](INode&) { return std::make_shared<Alphabet>(); }));
    }

    [[nodiscard]] NodeId Create()
    {
        return runtime->CreateObject(
            {TestId(4), QualifiedName(1, "alphabet"), Objects::ObjectsFolder(), {}});
    }

    [[nodiscard]] static NodeId MakeId(const std::string& key)
    {
        return {TestId(4).GetNamespaceIndex(), key};
    }

    [[nodiscard]] CallResult Call(const NodeId& id, const std::string& method = "Tell")
    {
        return runtime->Call(session, id, method, {});
    }

    const std::shared_ptr<Session> session = runtime->OpenSession("tester");
};

TEST_F(AProvider, IsFoundByItsObject)
{
    const auto object = Create();
    const auto provider = runtime->GetProvider(object);
    ASSERT_THAT(provider, NotNull());
    EXPECT_TRUE(provider->Describe("A"));
    EXPECT_THAT(runtime->GetProvider(CreateDevice()), IsNull());
    EXPECT_THROW(static_cast<void>(runtime->GetProvider(MakeId("A"))), NotFoundException);
}

TEST_F(AProvider, TakesTheCallsOfItsNodes)
{
    static_cast<void>(Create());
    const auto result = Call(MakeId("Q"));
    ASSERT_TRUE(result.taken);
    EXPECT_EQ(result.outputs.at(0).Get<NodeId>(), MakeId("Q"));
    EXPECT_EQ(result.outputs.at(1).GetText(), "letter Q");
}

TEST_F(AProvider, TakesTheCallsOfItsObjectAsBefore)
{
    const auto object = Create();
    EXPECT_EQ(Call(object).outputs.at(0).Get<NodeId>(), object);
}

TEST_F(AProvider, HasNoOtherNodes)
{
    static_cast<void>(Create());
    for (const auto& id : {MakeId("two"), MakeId(""), MakeId("A.size"), NodeId(1, "A")})
        EXPECT_THAT([&] { static_cast<void>(Call(id)); },
                    ThrowsMessage<NotFoundException>(HasSubstr(id.ToString())));
}

TEST_F(AProvider, AnswersWithAStatusOfItsOwn)
{
    static_cast<void>(Create());
    try {
        static_cast<void>(Call(MakeId("A"), "Fail"));
        FAIL() << "the call did not fail";
    } catch (const StatusException& exception) {
        EXPECT_EQ(exception.GetStatus(), 0x803E0000U);
        EXPECT_EQ(exception.GetMessage(), "No such file or directory");
    }
}

TEST_F(AProvider, IsTheOnlyOneOfItsNamespace)
{
    const auto object = Create();
    EXPECT_THAT([this] { static_cast<void>(Create()); },
                ThrowsMessage<AlreadyExistsException>(HasSubstr(object.ToString())));
    EXPECT_TRUE(Call(MakeId("A")).taken); // the failure has left it alone
}

TEST_F(AProvider, LeavesNoNodesBehind)
{
    runtime->RemoveObject(Create());
    EXPECT_THROW(static_cast<void>(Call(MakeId("A"))), NotFoundException);
    EXPECT_TRUE(Call(Create()).taken);
}

TEST_F(AProvider, StaysAsLongAsItIsHeld)
{
    const auto object = Create();
    const auto provider = runtime->GetProvider(object);
    runtime->RemoveObject(object);
    EXPECT_TRUE(provider->Exists("A"));
}

TEST_F(AProvider, SeesTheFoldersOfItsHost)
{
    EXPECT_THAT(runtime->GetContext().GetFolders(), IsEmpty());
    runtime->SetFolders({{"data", "/srv/data", true}});
    const auto node = GetNode(Create());
    const auto& folders = node->GetCoreContext().GetFolders();
    ASSERT_EQ(folders.size(), 1U);
    EXPECT_EQ(folders.at(0).name, "data");
    EXPECT_EQ(folders.at(0).path, "/srv/data");
    EXPECT_TRUE(folders.at(0).isReadOnly);
}

TEST(TheBaseModel, HasTheTypesOfFileObjects)
{
    const InformationModel model;
    const auto getNames = [&model](unsigned int type) {
        std::vector<std::string> names;
        for (const auto& method : model.GetMethods(NodeId(0, type)))
            names.push_back(method.browseName.GetName());
        return names;
    };
    EXPECT_THAT(getNames(11575),
                ElementsAre("Open", "Close", "Read", "Write", "GetPosition", "SetPosition"));
    EXPECT_THAT(getNames(13353),
                ElementsAre("CreateDirectory", "CreateFile", "Delete", "MoveOrCopy"));
    EXPECT_THAT(getNames(15744),
                ElementsAre("GenerateFileForRead", "GenerateFileForWrite", "CloseAndCommit"));
}

} // namespace

} // namespace CoreTests
