#include "Core/Embedding/InformationModel.h"
#include "Core/Exception.h"
#include "Core/NamespaceMap.h"
#include "Support/TemporaryFolder.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

using Core::EventArguments;
using Core::Guid;
using Core::InvalidModelException;
using Core::NamespaceMap;
using Core::NodeId;
using Core::NotFoundException;
using Core::QualifiedName;
using Core::SystemException;
using Core::Embedding::ArgumentDescription;
using Core::Embedding::DataTypeField;
using Core::Embedding::DataTypeKind;
using Core::Embedding::EventFieldDescription;
using Core::Embedding::InformationModel;
using Core::Embedding::MethodDescription;
using Support::TemporaryFolder;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::ThrowsMessage;

namespace BaseTypes = Core::Embedding::BaseTypes;

namespace {

const NodeId boolean{0, 1};
const NodeId byte{0, 3};
const NodeId uInt16{0, 5};
const NodeId uInt32{0, 7};
const NodeId uInt64{0, 9};
const NodeId string{0, 12};
const NodeId dateTime{0, 13};
const NodeId byteString{0, 15};
const NodeId nodeId{0, 17};
const NodeId localizedText{0, 21};
const NodeId structure{0, 22};
const NodeId anyValue{0, 24};
const NodeId enumeration{0, 29};
const NodeId utcTime{0, 294};

auto IsArgument(const char* name, const NodeId& dataType, int valueRank = -1)
{
    return AllOf(Field("name", &ArgumentDescription::name, name),
                 Field("dataType", &ArgumentDescription::dataType, dataType),
                 Field("valueRank", &ArgumentDescription::valueRank, valueRank),
                 Field("description", &ArgumentDescription::description, Not(IsEmpty())));
}

auto IsField(const QualifiedName& name, const NodeId& dataType, int valueRank = -1)
{
    return AllOf(Field("browseName", &EventFieldDescription::browseName, name),
                 Field("dataType", &EventFieldDescription::dataType, dataType),
                 Field("valueRank", &EventFieldDescription::valueRank, valueRank),
                 Field("description", &EventFieldDescription::description, Not(IsEmpty())));
}

auto IsNamedValue(const char* name, long value)
{
    return AllOf(Field("name", &DataTypeField::name, name),
                 Field("value", &DataTypeField::value, value));
}

auto IsMember(const char* name, const NodeId& dataType)
{
    return AllOf(Field("name", &DataTypeField::name, name),
                 Field("dataType", &DataTypeField::dataType, dataType),
                 Field("valueRank", &DataTypeField::valueRank, -1));
}

std::vector<std::string> GetNames(const std::vector<MethodDescription>& methods)
{
    std::vector<std::string> names;
    std::ranges::transform(methods, std::back_inserter(names),
                           [](const auto& method) { return method.browseName.GetName(); });
    return names;
}

} // namespace

// ---- the base types -------------------------------------------------------------------------

TEST(AnEmptyModel, HoldsTheBaseTypesWithTheirSupertypes)
{
    const InformationModel model;
    EXPECT_TRUE(model.GetObjectType(BaseTypes::baseObjectType).superType.IsEmpty());
    EXPECT_EQ(model.GetObjectType(BaseTypes::folderType).superType, BaseTypes::baseObjectType);
    EXPECT_EQ(model.GetObjectType(BaseTypes::baseEventType).superType, BaseTypes::baseObjectType);
    EXPECT_TRUE(model.GetObjectType(BaseTypes::baseEventType).isAbstract);
    EXPECT_TRUE(model.GetDataType(anyValue).superType.IsEmpty());
    EXPECT_EQ(model.GetDataType(utcTime).superType, dateTime);
    EXPECT_EQ(model.GetDataType(structure).kind, DataTypeKind::Structure);
    EXPECT_EQ(model.GetDataType(enumeration).kind, DataTypeKind::Enumeration);
    EXPECT_EQ(model.GetDataType(uInt32).kind, DataTypeKind::Simple);
}

TEST(AnEmptyModel, NamesEverySupertypeBeforeItsSubtypes)
{
    const InformationModel model;
    std::unordered_set<NodeId, Core::HashNodeId> seen{NodeId::Empty()};
    for (const auto& type : model.GetDataTypes()) {
        EXPECT_TRUE(seen.contains(type.superType)) << type.displayName;
        EXPECT_TRUE(seen.insert(type.id).second) << type.displayName;
    }
}

TEST(AnEmptyModel, GivesEveryEventItsBaseFields)
{
    const InformationModel model;
    EXPECT_THAT(model.GetObjectType(BaseTypes::baseEventType).eventFields,
                ElementsAre(IsField({0, "EventId"}, byteString), IsField({0, "EventType"}, nodeId),
                            IsField({0, "SourceNode"}, nodeId), IsField({0, "SourceName"}, string),
                            IsField({0, "Time"}, utcTime), IsField({0, "ReceiveTime"}, utcTime),
                            IsField({0, "Message"}, localizedText),
                            IsField({0, "Severity"}, uInt16)));
}

TEST(AnEmptyModel, TellsSubtypes)
{
    const InformationModel model;
    EXPECT_TRUE(model.IsSubtypeOf(utcTime, utcTime));
    EXPECT_TRUE(model.IsSubtypeOf(utcTime, anyValue));
    EXPECT_TRUE(model.IsSubtypeOf(BaseTypes::folderType, BaseTypes::baseObjectType));
    EXPECT_FALSE(model.IsSubtypeOf(dateTime, utcTime));
    EXPECT_FALSE(model.IsSubtypeOf(utcTime, BaseTypes::baseObjectType));
    EXPECT_FALSE(model.IsSubtypeOf(NodeId(0, 999999), NodeId(0, 999999)));
    EXPECT_FALSE(model.IsSubtypeOf(NodeId::Empty(), anyValue));
}

TEST(AnEmptyModel, ThrowsForTypesThatItDoesNotHave)
{
    const InformationModel model;
    const NodeId unknown{0, 999999};
    EXPECT_THAT(
        [&] { static_cast<void>(model.GetObjectType(unknown)); },
        ThrowsMessage<NotFoundException>("The information model has no object type 'i=999999'"));
    EXPECT_THAT(
        [&] { static_cast<void>(model.GetDataType(unknown)); },
        ThrowsMessage<NotFoundException>("The information model has no data type 'i=999999'"));
    EXPECT_THROW(static_cast<void>(model.GetEventArguments(unknown)), NotFoundException);
    EXPECT_THROW(static_cast<void>(model.GetMethods(unknown)), NotFoundException);
    EXPECT_THROW(static_cast<void>(model.GetBehaviourFactory(unknown)), NotFoundException);
    EXPECT_THROW(static_cast<void>(model.GetObjectType(uInt32)), NotFoundException);
}

TEST(EventFields, AreFoundByTheirWholeName)
{
    const EventArguments fields({{0, "EventType"}, {3, "Result"}, {4, "Result"}});
    EXPECT_EQ(fields.GetFieldsSize(), 3U);
    EXPECT_EQ(fields.GetFieldIndex({0, "EventType"}), 0U);
    EXPECT_EQ(fields.GetFieldIndex({4, "Result"}), 2U);
    EXPECT_THAT(
        [&] {
            static_cast<void>(fields.GetFieldIndex({5, "Result"}));
        },
        ThrowsMessage<NotFoundException>("The event type has no field '5:Result'"));
}

// ---- the published model --------------------------------------------------------------------

class ThePublishedModel : public testing::Test
{
protected:
    ThePublishedModel() { model.LoadNodeSet(TALVENSOR_MODEL); }

    [[nodiscard]] NodeId Own(unsigned int number) const { return {ns, number}; }
    [[nodiscard]] QualifiedName OwnName(const char* name) const { return {ns, name}; }

    [[nodiscard]] MethodDescription GetMethod(std::string_view name) const
    {
        for (auto& method : model.GetMethods(Own(1)))
            if (method.browseName.GetName() == name)
                return method;
        throw NotFoundException(std::string(name));
    }

    void ExpectBaseFieldsFollowedBy(unsigned int eventType,
                                    const std::vector<const char*>& names) const
    {
        auto expected = model.GetEventArguments(BaseTypes::baseEventType).GetFields();
        EXPECT_EQ(expected.size(), 8U);
        for (const auto* name : names)
            expected.push_back(OwnName(name));
        EXPECT_THAT(model.GetEventArguments(Own(eventType)).GetFields(),
                    ElementsAreArray(expected));
    }

    InformationModel model;
    int ns = NamespaceMap::Register("urn:Talvensor:FileSystem");
};

TEST_F(ThePublishedModel, RegistersItsNamespace)
{
    EXPECT_EQ(NamespaceMap::GetNamespaceIndex("urn:Talvensor:FileSystem"), ns);
    EXPECT_GE(ns, 2);
}

TEST_F(ThePublishedModel, DescribesTheFileSystemType)
{
    const auto& type = model.GetObjectType(Own(1));
    EXPECT_EQ(type.browseName, OwnName("FileSystem"));
    EXPECT_EQ(type.displayName, "FileSystem");
    EXPECT_EQ(type.superType, BaseTypes::baseObjectType);
    EXPECT_FALSE(type.isAbstract);
    EXPECT_THAT(type.description, Not(IsEmpty()));
    EXPECT_THAT(type.generatedEvents, ElementsAre(Own(54), Own(64), Own(66), Own(67), Own(68)));
    EXPECT_THAT(type.eventFields, IsEmpty());
    EXPECT_EQ(model.GetEventArguments(Own(1)).GetFieldsSize(), 0U);
}

TEST_F(ThePublishedModel, TiesTheFileSystemTypeToItsFactory)
{
    EXPECT_EQ(model.GetBehaviourFactory(Own(1)), Guid("f3fff72d2665419db0820fe66246027f"));
    EXPECT_EQ(model.GetBehaviourFactory(Own(54)), std::nullopt);
}

TEST_F(ThePublishedModel, LetsSessionsHaveFileSystemsOfTheirOwn)
{
    const auto& objects = model.GetObjectType(Own(1)).sessionObjects;
    ASSERT_TRUE(objects);
    EXPECT_EQ(objects->folder, "FileSystems");
    EXPECT_EQ(objects->method, "CreateFileSystem");
    EXPECT_EQ(objects->object, "PrivateFileSystem");
}

TEST_F(ThePublishedModel, TellsTheMethodsThatChangeSomething)
{
    std::vector<std::string> changing;
    for (const auto& method : model.GetMethods(Own(1)))
        if (method.change)
            changing.push_back(method.browseName.GetName());
    EXPECT_THAT(changing, ElementsAre("Open", "Close", "UploadFile", "OpenWrite", "Write",
                                      "WriteClose", "CreateDirectory", "Delete", "SetDateTime"));

    const auto open = GetMethod("Open").change.value();
    EXPECT_EQ(open.subjects, std::vector<std::string>{"path"});
    EXPECT_EQ(open.handle, "fileHandle");
    EXPECT_FALSE(open.isLast);
    EXPECT_EQ(open.exceptArgument, "mode");
    EXPECT_EQ(open.exceptValue, 1); // for reading
    EXPECT_EQ(GetMethod("Delete").change.value().subjects, std::vector<std::string>{"paths"});
    EXPECT_TRUE(GetMethod("WriteClose").change.value().isLast);

    const auto& fields = model.GetObjectType(Own(54)).eventFields;
    EXPECT_TRUE(fields.at(0).isHandle);
    EXPECT_FALSE(fields.at(1).isHandle);
}

TEST_F(ThePublishedModel, HasTheFifteenMethodsInTheirOrder)
{
    EXPECT_THAT(GetNames(model.GetMethods(Own(1))),
                ElementsAre("Open", "Close", "UploadFile", "OpenWrite", "Write", "WriteClose",
                            "CreateDirectory", "Delete", "List", "Exists", "Read", "GetDateTime",
                            "SetDateTime", "GetPosition", "SetPosition"));
}

TEST_F(ThePublishedModel, KeepsTheNumbersOfMethodsAndArguments)
{
    unsigned int number = 1010;
    for (const auto& method : model.GetMethods(Own(1))) {
        EXPECT_EQ(method.id, Own(number)) << method.displayName;
        EXPECT_EQ(method.browseName.GetNamespaceIndex(), ns) << method.displayName;
        EXPECT_THAT(method.description, Not(IsEmpty())) << method.displayName;
        EXPECT_EQ(method.inputArgumentsId, Own(number + 1)) << method.displayName;
        EXPECT_EQ(method.outputArgumentsId, method.outputs.empty() ? NodeId() : Own(number + 2))
            << method.displayName;
        number += 10;
    }
}

TEST_F(ThePublishedModel, DescribesTheArgumentsOfTransfers)
{
    const auto openMode = Own(33);
    const auto permissions = Own(51);
    EXPECT_THAT(GetMethod("Open").inputs,
                ElementsAre(IsArgument("path", string), IsArgument("mode", openMode)));
    EXPECT_THAT(GetMethod("Open").outputs, ElementsAre(IsArgument("fileHandle", uInt32)));
    EXPECT_THAT(GetMethod("Close").inputs, ElementsAre(IsArgument("fileHandle", uInt32)));
    EXPECT_THAT(GetMethod("UploadFile").inputs,
                ElementsAre(IsArgument("path", string), IsArgument("content", byteString),
                            IsArgument("dateTime", utcTime),
                            IsArgument("permissions", permissions)));
    EXPECT_THAT(GetMethod("UploadFile").outputs, ElementsAre(IsArgument("fileHandle", uInt32)));
    EXPECT_THAT(GetMethod("OpenWrite").inputs,
                ElementsAre(IsArgument("path", string), IsArgument("data", byteString)));
    EXPECT_THAT(GetMethod("OpenWrite").outputs, ElementsAre(IsArgument("fileHandle", uInt32)));
    EXPECT_THAT(GetMethod("Write").inputs,
                ElementsAre(IsArgument("fileHandle", uInt32), IsArgument("data", byteString)));
    EXPECT_THAT(GetMethod("WriteClose").inputs,
                ElementsAre(IsArgument("fileHandle", uInt32), IsArgument("data", byteString),
                            IsArgument("dateTime", utcTime),
                            IsArgument("permissions", permissions)));
}

TEST_F(ThePublishedModel, DescribesTheArgumentsOfDirectoryRequests)
{
    EXPECT_THAT(GetMethod("CreateDirectory").inputs, ElementsAre(IsArgument("path", string)));
    EXPECT_THAT(GetMethod("Delete").inputs, ElementsAre(IsArgument("paths", string, 1)));
    EXPECT_THAT(GetMethod("Delete").inputs.front().arrayDimensions, ElementsAre(0U));
    EXPECT_THAT(GetMethod("List").inputs,
                ElementsAre(IsArgument("path", string), IsArgument("recursive", boolean)));
    EXPECT_THAT(GetMethod("Exists").inputs, ElementsAre(IsArgument("path", string)));
}

TEST_F(ThePublishedModel, DescribesTheArgumentsOfWhatIsAnsweredAtOnce)
{
    EXPECT_THAT(GetMethod("Read").inputs,
                ElementsAre(IsArgument("fileHandle", uInt32), IsArgument("length", uInt32)));
    EXPECT_THAT(GetMethod("Read").outputs, ElementsAre(IsArgument("data", byteString)));
    EXPECT_THAT(GetMethod("GetDateTime").inputs, ElementsAre(IsArgument("path", string)));
    EXPECT_THAT(GetMethod("GetDateTime").outputs, ElementsAre(IsArgument("dateTime", utcTime)));
    EXPECT_THAT(GetMethod("SetDateTime").inputs,
                ElementsAre(IsArgument("path", string), IsArgument("dateTime", utcTime)));
    EXPECT_THAT(GetMethod("GetPosition").inputs, ElementsAre(IsArgument("fileHandle", uInt32)));
    EXPECT_THAT(GetMethod("GetPosition").outputs, ElementsAre(IsArgument("position", uInt64)));
    EXPECT_THAT(GetMethod("SetPosition").inputs,
                ElementsAre(IsArgument("fileHandle", uInt32), IsArgument("position", uInt64)));
}

TEST_F(ThePublishedModel, HasOutputsOnlyForMethodsThatReturnSomething)
{
    std::vector<std::string> withOutputs;
    for (const auto& method : model.GetMethods(Own(1)))
        if (!method.outputs.empty())
            withOutputs.push_back(method.browseName.GetName());
    EXPECT_THAT(withOutputs, ElementsAre("Open", "UploadFile", "OpenWrite", "Read", "GetDateTime",
                                         "GetPosition"));
}

TEST_F(ThePublishedModel, PutsTheOwnFieldsOfEventsBehindTheInheritedOnes)
{
    ExpectBaseFieldsFollowedBy(54, {"FileHandle", "Result"});
    ExpectBaseFieldsFollowedBy(64, {"Exist"});
    ExpectBaseFieldsFollowedBy(66, {});
    ExpectBaseFieldsFollowedBy(67, {});
    ExpectBaseFieldsFollowedBy(68, {"Content", "LimitExceeded"});
}

TEST_F(ThePublishedModel, FindsEventTypeInNamespaceZeroAndOwnFieldsInItsOwn)
{
    const auto fields = model.GetEventArguments(Own(54));
    EXPECT_EQ(fields.GetFieldIndex({0, "EventType"}), 1U);
    EXPECT_EQ(fields.GetFieldIndex(OwnName("FileHandle")), 8U);
    EXPECT_EQ(fields.GetFieldIndex(OwnName("Result")), 9U);
    EXPECT_THROW(static_cast<void>(fields.GetFieldIndex(OwnName("EventType"))), NotFoundException);
    EXPECT_THROW(static_cast<void>(fields.GetFieldIndex({0, "Result"})), NotFoundException);
}

TEST_F(ThePublishedModel, DescribesTheFieldsOfEvents)
{
    EXPECT_THAT(
        model.GetObjectType(Own(54)).eventFields,
        ElementsAre(IsField(OwnName("FileHandle"), uInt32), IsField(OwnName("Result"), uInt32)));
    EXPECT_THAT(model.GetObjectType(Own(64)).eventFields,
                ElementsAre(IsField(OwnName("Exist"), boolean)));
    EXPECT_THAT(model.GetObjectType(Own(68)).eventFields,
                ElementsAre(IsField(OwnName("Content"), Own(50), 1),
                            IsField(OwnName("LimitExceeded"), boolean)));
    EXPECT_EQ(model.GetObjectType(Own(54)).eventFields[0].id, Own(1200));
    EXPECT_EQ(model.GetObjectType(Own(54)).eventFields[1].id, Own(1201));
    EXPECT_EQ(model.GetObjectType(Own(64)).eventFields[0].id, Own(1210));
    EXPECT_EQ(model.GetObjectType(Own(68)).eventFields[0].id, Own(1220));
    EXPECT_EQ(model.GetObjectType(Own(68)).eventFields[1].id, Own(1221));
}

TEST_F(ThePublishedModel, NamesItsEventTypes)
{
    const std::array<std::pair<unsigned int, const char*>, 5> events{{
        {54, "AckEvent"},
        {64, "ExistsResultEvent"},
        {66, "DeleteResultEvent"},
        {67, "CreateDirectoryResultEvent"},
        {68, "ListResultEvent"},
    }};
    for (const auto& [number, name] : events) {
        EXPECT_EQ(model.GetObjectType(Own(number)).browseName, OwnName(name));
        EXPECT_EQ(model.GetObjectType(Own(number)).superType, BaseTypes::baseEventType);
        EXPECT_THAT(model.GetObjectType(Own(number)).description, Not(IsEmpty()));
    }
}

TEST_F(ThePublishedModel, DescribesTheOpenModes)
{
    const auto& type = model.GetDataType(Own(33));
    EXPECT_EQ(type.browseName, OwnName("OpenModeEnum"));
    EXPECT_EQ(type.superType, enumeration);
    EXPECT_EQ(type.kind, DataTypeKind::Enumeration);
    EXPECT_THAT(type.fields,
                ElementsAre(IsNamedValue("TruncateWrite", 0), IsNamedValue("Read", 1),
                            IsNamedValue("Append", 2), IsNamedValue("TruncateReadWrite", 3),
                            IsNamedValue("ReadWrite", 4), IsNamedValue("AppendRead", 5)));
    EXPECT_THAT(type.fields, Each(Field(&DataTypeField::description, Not(IsEmpty()))));
    EXPECT_EQ(type.textsPropertyId, Own(1300));
    EXPECT_EQ(type.textsPropertyName, "EnumStrings");
}

TEST_F(ThePublishedModel, DescribesThePermissionFlags)
{
    const auto& type = model.GetDataType(Own(51));
    EXPECT_EQ(type.browseName, OwnName("ModeEnum"));
    EXPECT_EQ(type.superType, byte);
    EXPECT_EQ(type.kind, DataTypeKind::OptionSet);
    EXPECT_THAT(type.fields,
                ElementsAre(IsNamedValue("ReadOnly", 1), IsNamedValue("Executable", 2)));
    EXPECT_EQ(type.textsPropertyId, Own(1310));
    EXPECT_EQ(type.textsPropertyName, "OptionSetValues");
}

TEST_F(ThePublishedModel, DescribesTheEntriesOfListings)
{
    const auto& type = model.GetDataType(Own(50));
    EXPECT_EQ(type.browseName, OwnName("ListItem"));
    EXPECT_EQ(type.superType, structure);
    EXPECT_EQ(type.kind, DataTypeKind::Structure);
    EXPECT_THAT(type.fields, ElementsAre(IsMember("path", string), IsMember("dateTime", utcTime),
                                         IsMember("isDirectory", boolean)));
    EXPECT_EQ(type.binaryEncodingId, Own(1320));
}

TEST_F(ThePublishedModel, IsLoadedOnce)
{
    EXPECT_THAT([&] { model.LoadNodeSet(TALVENSOR_MODEL); },
                ThrowsMessage<InvalidModelException>(
                    HasSubstr("the model 'urn:Talvensor:FileSystem' is there already")));
}

// ---- other models ---------------------------------------------------------------------------

namespace {

/// Everything that a model can hold, with each description after its first use.
constexpr const char* completeModel = R"(<?xml version="1.0" encoding="utf-8"?>
<UANodeSet xmlns="http://opcfoundation.org/UA/2011/03/UANodeSet.xsd">
  <NamespaceUris><Uri>urn:test:other</Uri><Uri>urn:test:model</Uri></NamespaceUris>
  <Models>
    <Model ModelUri="urn:test:model">
      <RequiredModel ModelUri="http://opcfoundation.org/UA/"/>
    </Model>
  </Models>
  <Aliases>
    <Alias Alias="HasSubtype">i=45</Alias>
    <Alias Alias="HasProperty">i=46</Alias>
    <Alias Alias="HasTypeDefinition">i=40</Alias>
    <Alias Alias="UInt32">i=7</Alias>
  </Aliases>
  <UAObjectType NodeId="ns=2;i=3" BrowseName="2:Grandchild">
    <References><Reference ReferenceType="HasSubtype" IsForward="false">ns=2;i=2</Reference></References>
  </UAObjectType>
  <UAObjectType NodeId="ns=2;i=2" BrowseName="2:Child">
    <References><Reference ReferenceType="HasSubtype" IsForward="false">ns=2;i=1</Reference></References>
  </UAObjectType>
  <UAMethod NodeId="ns=2;i=21" BrowseName="2:Stop">
    <References><Reference ReferenceType="i=47" IsForward="false">ns=2;i=2</Reference></References>
  </UAMethod>
  <UAMethod NodeId="ns=2;i=20" BrowseName="2:Start">
    <Description>Starts it.</Description>
    <References>
      <Reference ReferenceType="HasProperty">ns=2;i=22</Reference>
      <Reference ReferenceType="i=37">i=78</Reference>
    </References>
  </UAMethod>
  <UAVariable NodeId="ns=2;i=22" BrowseName="InputArguments" DataType="i=296" ValueRank="1">
    <References><Reference ReferenceType="HasTypeDefinition">i=68</Reference></References>
    <Value>
      <uax:ListOfExtensionObject xmlns:uax="http://opcfoundation.org/UA/2008/02/Types.xsd">
        <uax:ExtensionObject>
          <uax:TypeId><uax:Identifier>i=297</uax:Identifier></uax:TypeId>
          <uax:Body>
            <uax:Argument>
              <uax:Name>matrix</uax:Name>
              <uax:DataType><uax:Identifier>ns=2;i=40</uax:Identifier></uax:DataType>
              <uax:ValueRank>2</uax:ValueRank>
              <uax:ArrayDimensions><uax:UInt32>3</uax:UInt32><uax:UInt32>0</uax:UInt32></uax:ArrayDimensions>
              <uax:Description><uax:Text>Speeds.</uax:Text></uax:Description>
            </uax:Argument>
          </uax:Body>
        </uax:ExtensionObject>
      </uax:ListOfExtensionObject>
    </Value>
  </UAVariable>
  <UAObjectType NodeId="ns=2;i=1" BrowseName="2:Parent" IsAbstract="true">
    <DisplayName>The parent</DisplayName>
    <References>
      <Reference ReferenceType="HasSubtype" IsForward="false">i=58</Reference>
      <Reference ReferenceType="i=47">ns=2;i=20</Reference>
      <Reference ReferenceType="i=41">ns=2;i=31</Reference>
    </References>
    <Extensions>
      <Extension><Picture xmlns="urn:somebody:else" Guid="none"/></Extension>
      <Extension><t:BehaviourFactory xmlns:t="urn:Talvensor:Core:Model" Guid="000102030405060708090a0b0c0d0e0f"/></Extension>
    </Extensions>
  </UAObjectType>
  <UAObjectType NodeId="ns=2;i=31" BrowseName="2:LateEvent">
    <References><Reference ReferenceType="HasSubtype" IsForward="false">ns=2;i=30</Reference></References>
  </UAObjectType>
  <UAVariable NodeId="ns=2;i=33" BrowseName="2:Delay" DataType="UInt32">
    <References>
      <Reference ReferenceType="HasTypeDefinition">i=68</Reference>
      <Reference ReferenceType="HasProperty" IsForward="false">ns=2;i=31</Reference>
    </References>
  </UAVariable>
  <UAObjectType NodeId="ns=2;i=30" BrowseName="2:Event">
    <References>
      <Reference ReferenceType="HasSubtype" IsForward="false">i=2041</Reference>
      <Reference ReferenceType="HasSubtype">ns=2;i=31</Reference>
      <Reference ReferenceType="HasProperty">ns=2;i=32</Reference>
    </References>
  </UAObjectType>
  <UAVariable NodeId="ns=2;i=32" BrowseName="1:Place" DataType="ns=2;i=41" ValueRank="1">
    <References>
      <Reference ReferenceType="HasTypeDefinition">i=68</Reference>
      <Reference ReferenceType="HasProperty" IsForward="false">ns=2;i=30</Reference>
    </References>
  </UAVariable>
  <UADataType NodeId="ns=2;i=40" BrowseName="2:Speed">
    <References>
      <Reference ReferenceType="HasSubtype" IsForward="false">i=29</Reference>
      <Reference ReferenceType="HasProperty">ns=2;i=43</Reference>
    </References>
  </UADataType>
  <UAVariable NodeId="ns=2;i=43" BrowseName="EnumValues" DataType="i=7594" ValueRank="1">
    <References><Reference ReferenceType="HasTypeDefinition">i=68</Reference></References>
    <Value>
      <ListOfExtensionObject xmlns="http://opcfoundation.org/UA/2008/02/Types.xsd">
        <ExtensionObject>
          <TypeId><Identifier>i=7616</Identifier></TypeId>
          <Body><EnumValueType><Value>-5</Value><DisplayName><Text>Back</Text></DisplayName></EnumValueType></Body>
        </ExtensionObject>
        <ExtensionObject>
          <TypeId><Identifier>i=7616</Identifier></TypeId>
          <Body><EnumValueType><Value>70</Value><DisplayName><Text>Fast</Text></DisplayName><Description><Text>Hurry.</Text></Description></EnumValueType></Body>
        </ExtensionObject>
      </ListOfExtensionObject>
    </Value>
  </UAVariable>
  <UADataType NodeId="ns=2;i=42" BrowseName="2:Point3">
    <References>
      <Reference ReferenceType="HasSubtype" IsForward="false">ns=2;i=41</Reference>
      <Reference ReferenceType="i=38">ns=2;i=45</Reference>
      <Reference ReferenceType="i=38">ns=2;i=46</Reference>
    </References>
    <Definition Name="2:Point3"><Field Name="z" DataType="ns=2;i=40" ValueRank="1"/></Definition>
  </UADataType>
  <UAObject NodeId="ns=2;i=46" BrowseName="Default XML">
    <References><Reference ReferenceType="HasTypeDefinition">i=76</Reference></References>
  </UAObject>
  <UAObject NodeId="ns=2;i=45" BrowseName="Default Binary">
    <References><Reference ReferenceType="HasTypeDefinition">i=76</Reference></References>
  </UAObject>
  <UADataType NodeId="ns=2;i=41" BrowseName="2:Point" IsAbstract="true">
    <References><Reference ReferenceType="HasSubtype" IsForward="false">i=22</Reference></References>
    <Definition Name="2:Point"><Field Name="x" DataType="i=11"/><Field Name="y"/></Definition>
  </UADataType>
  <UADataType NodeId="ns=2;g=00112233-4455-6677-8899-aabbccddeeff" BrowseName="2:Flags">
    <References>
      <Reference ReferenceType="HasSubtype" IsForward="false">i=5</Reference>
      <Reference ReferenceType="HasProperty">ns=2;s=Flags.Texts</Reference>
    </References>
  </UADataType>
  <UAVariable NodeId="ns=2;s=Flags.Texts" BrowseName="OptionSetValues" DataType="i=21" ValueRank="1">
    <References><Reference ReferenceType="HasTypeDefinition">i=68</Reference></References>
    <Value>
      <ListOfLocalizedText xmlns="http://opcfoundation.org/UA/2008/02/Types.xsd">
        <LocalizedText/><LocalizedText><Text>One</Text></LocalizedText><LocalizedText/><LocalizedText><Text>Three</Text></LocalizedText>
      </ListOfLocalizedText>
    </Value>
  </UAVariable>
</UANodeSet>
)";

/// Returns the line, counted from 1, of the first occurrence of something in a text.
std::size_t FindLine(std::string_view text, std::string_view wanted)
{
    const auto position = text.find(wanted);
    EXPECT_NE(position, std::string_view::npos) << wanted;
    return 1 + static_cast<std::size_t>(std::ranges::count(text.substr(0, position), '\n'));
}

} // namespace

class ACompleteModel : public testing::Test
{
protected:
    ACompleteModel() { model.LoadNodeSet(folder.MakeFile("model.xml", completeModel)); }

    [[nodiscard]] NodeId Own(unsigned int number) const { return {ns, number}; }

    TemporaryFolder folder;
    InformationModel model;
    int ns = NamespaceMap::Register("urn:test:model");
};

TEST_F(ACompleteModel, HoldsSupertypesBeforeSubtypesInWhateverOrderTheyAreWritten)
{
    std::vector<NodeId> own;
    for (const auto& type : model.GetObjectTypes())
        if (type.id.GetNamespaceIndex() == ns)
            own.push_back(type.id);
    EXPECT_THAT(own, ElementsAre(Own(1), Own(2), Own(3), Own(30), Own(31)));
}

TEST_F(ACompleteModel, ListsInheritedMethodsFirst)
{
    EXPECT_THAT(GetNames(model.GetMethods(Own(3))), ElementsAre("Start", "Stop"));
    EXPECT_THAT(GetNames(model.GetMethods(Own(1))), ElementsAre("Start"));
    EXPECT_THAT(model.GetObjectType(Own(3)).methods, IsEmpty());
}

TEST_F(ACompleteModel, InheritsTheFactoryOfItsBehaviours)
{
    const Guid factory("000102030405060708090a0b0c0d0e0f");
    EXPECT_EQ(model.GetBehaviourFactory(Own(1)), factory);
    EXPECT_EQ(model.GetBehaviourFactory(Own(3)), factory);
    EXPECT_EQ(model.GetObjectType(Own(3)).behaviourFactory, std::nullopt);
}

TEST_F(ACompleteModel, KeepsNamesFlagsAndDescriptions)
{
    EXPECT_TRUE(model.GetObjectType(Own(1)).isAbstract);
    EXPECT_EQ(model.GetObjectType(Own(1)).displayName, "The parent");
    EXPECT_FALSE(model.GetObjectType(Own(2)).isAbstract);
    EXPECT_EQ(model.GetObjectType(Own(2)).displayName, "Child");
    EXPECT_EQ(model.GetMethods(Own(1)).front().description, "Starts it.");
}

TEST_F(ACompleteModel, KeepsTheShapeOfArguments)
{
    const auto method = model.GetMethods(Own(1)).front();
    ASSERT_EQ(method.inputs.size(), 1U);
    EXPECT_THAT(method.inputs.front(), IsArgument("matrix", Own(40), 2));
    EXPECT_THAT(method.inputs.front().arrayDimensions, ElementsAre(3U, 0U));
    EXPECT_EQ(method.inputs.front().description, "Speeds.");
    EXPECT_TRUE(method.outputArgumentsId.IsEmpty());
}

TEST_F(ACompleteModel, InheritsEventFieldsAndKeepsTheirNamespaces)
{
    const auto fields = model.GetEventArguments(Own(31)).GetFields();
    ASSERT_EQ(fields.size(), 10U);
    EXPECT_EQ(fields[8], QualifiedName(NamespaceMap::GetNamespaceIndex("urn:test:other"), "Place"));
    EXPECT_EQ(fields[9], QualifiedName(ns, "Delay"));
    EXPECT_EQ(model.GetObjectType(Own(30)).eventFields.front().valueRank, 1);
    EXPECT_THAT(model.GetObjectType(Own(1)).generatedEvents, ElementsAre(Own(31)));
}

TEST_F(ACompleteModel, TakesAnEnumerationFromItsTexts)
{
    const auto& type = model.GetDataType(Own(40));
    EXPECT_EQ(type.kind, DataTypeKind::Enumeration);
    EXPECT_THAT(type.fields, ElementsAre(IsNamedValue("Back", -5), IsNamedValue("Fast", 70)));
    EXPECT_EQ(type.fields[1].description, "Hurry.");
    EXPECT_EQ(type.textsPropertyName, "EnumValues");
}

TEST_F(ACompleteModel, TakesAnOptionSetFromItsTexts)
{
    const auto& type = model.GetDataType(NodeId(ns, Guid("00112233445566778899aabbccddeeff")));
    EXPECT_EQ(type.kind, DataTypeKind::OptionSet);
    EXPECT_THAT(type.fields, ElementsAre(IsNamedValue("One", 1), IsNamedValue("Three", 3)));
    EXPECT_EQ(type.textsPropertyId, NodeId(ns, "Flags.Texts"));
}

TEST_F(ACompleteModel, PutsInheritedMembersOfStructuresFirst)
{
    const auto& type = model.GetDataType(Own(42));
    ASSERT_EQ(type.fields.size(), 3U);
    EXPECT_THAT(type.fields[0], IsMember("x", NodeId(0, 11)));
    EXPECT_THAT(type.fields[1], IsMember("y", anyValue));
    EXPECT_EQ(type.fields[2].dataType, Own(40));
    EXPECT_EQ(type.fields[2].valueRank, 1);
    EXPECT_EQ(type.binaryEncodingId, Own(45));
    EXPECT_TRUE(model.GetDataType(Own(41)).binaryEncodingId.IsEmpty());
}

TEST_F(ACompleteModel, IsExtendedByModelsThatRequireIt)
{
    const auto file = folder.MakeFile("extension.xml", R"(
<UANodeSet xmlns="http://opcfoundation.org/UA/2011/03/UANodeSet.xsd">
  <NamespaceUris><Uri>urn:test:extension</Uri><Uri>urn:test:model</Uri></NamespaceUris>
  <Models><Model ModelUri="urn:test:extension"><RequiredModel ModelUri="urn:test:model"/></Model></Models>
  <UAObjectType NodeId="ns=1;i=1" BrowseName="1:Extension">
    <References><Reference ReferenceType="i=45" IsForward="false">ns=2;i=3</Reference></References>
  </UAObjectType>
</UANodeSet>)");
    EXPECT_THAT([&] { InformationModel().LoadNodeSet(file); },
                ThrowsMessage<InvalidModelException>(
                    HasSubstr("line 4: the model requires 'urn:test:model', which is not loaded")));
    model.LoadNodeSet(file);
    const NodeId extension(NamespaceMap::GetNamespaceIndex("urn:test:extension"), 1);
    EXPECT_TRUE(model.IsSubtypeOf(extension, Own(1)));
    EXPECT_THAT(GetNames(model.GetMethods(extension)), ElementsAre("Start", "Stop"));
}

TEST_F(ACompleteModel, LeavesOtherCopiesOfTheModelAlone)
{
    InformationModel copy = model;
    copy.LoadNodeSet(TALVENSOR_MODEL);
    EXPECT_GT(copy.GetObjectTypes().size(), model.GetObjectTypes().size());
    EXPECT_THROW(static_cast<void>(model.GetObjectType(
                     NodeId(NamespaceMap::GetNamespaceIndex("urn:Talvensor:FileSystem"), 1))),
                 NotFoundException);
}

TEST(AModelFile, GivesMethodsTheOrderOfTheirNodesAndNotOfTheReferences)
{
    const TemporaryFolder folder;
    InformationModel model;
    model.LoadNodeSet(folder.MakeFile("order.xml", R"(
<UANodeSet xmlns="http://opcfoundation.org/UA/2011/03/UANodeSet.xsd">
  <NamespaceUris><Uri>urn:test:order</Uri></NamespaceUris>
  <Models><Model ModelUri="urn:test:order"/></Models>
  <UAObjectType NodeId="ns=1;i=1" BrowseName="1:Type">
    <References>
      <Reference ReferenceType="i=45" IsForward="false">i=58</Reference>
      <Reference ReferenceType="i=47">ns=1;i=2</Reference>
      <Reference ReferenceType="i=47">ns=1;i=4</Reference>
      <Reference ReferenceType="i=47">ns=1;i=3</Reference>
    </References>
  </UAObjectType>
  <UAMethod NodeId="ns=1;i=4" BrowseName="1:First"/>
  <UAMethod NodeId="ns=1;i=3" BrowseName="1:Second"/>
  <UAMethod NodeId="ns=1;i=2" BrowseName="1:Third"/>
</UANodeSet>)"));
    const NodeId type(NamespaceMap::GetNamespaceIndex("urn:test:order"), 1);
    EXPECT_THAT(GetNames(model.GetMethods(type)), ElementsAre("First", "Second", "Third"));
}

TEST(AModelFile, ThatCannotBeReadIsToldByTheSystemsReason)
{
    const TemporaryFolder folder;
    InformationModel model;
    EXPECT_THAT([&] { model.LoadNodeSet(folder.GetPath() / "missing.xml"); },
                ThrowsMessage<SystemException>(
                    AllOf(HasSubstr("missing.xml"), HasSubstr("No such file or directory"))));
    EXPECT_THAT([&] { model.LoadNodeSet(folder.GetPath()); },
                ThrowsMessage<SystemException>(HasSubstr("Is a directory")));
}

TEST(AModelFile, ThatIsNoXmlIsRefusedWithTheLine)
{
    const TemporaryFolder folder;
    InformationModel model;
    EXPECT_THAT(
        [&] { model.LoadNodeSet(folder.MakeFile("broken.xml", "<UANodeSet>\n  <Models\n")); },
        ThrowsMessage<InvalidModelException>(
            AllOf(HasSubstr("broken.xml"), HasSubstr("it is not well-formed XML"))));
    EXPECT_THAT([&] { model.LoadNodeSet(folder.MakeFile("empty.xml", "")); },
                ThrowsMessage<InvalidModelException>(HasSubstr("it is not well-formed XML")));
    EXPECT_THAT([&] { model.LoadNodeSet(folder.MakeFile("other.xml", "<UANodeSet/>")); },
                ThrowsMessage<InvalidModelException>(
                    HasSubstr("line 1: the root element is 'UANodeSet' of the XML namespace ''")));
}

// ---- faulty models --------------------------------------------------------------------------

namespace {

/// One change to the complete model, and the text of the failure.
struct Defect
{
    const char* name;
    std::string_view original; ///< its first occurrence is replaced
    std::string_view replacement;
    std::string_view place; ///< is in the line that the failure names
    std::string_view node;  ///< that is named; empty outside of nodes
    std::string_view reason;
};

void PrintTo(const Defect& defect, std::ostream* stream)
{
    *stream << defect.name;
}

} // namespace

class AModelWithADefect : public testing::TestWithParam<Defect>
{
protected:
    void ExpectRefusal(const std::string& text)
    {
        const auto file = folder.MakeFile("defect.xml", text);
        const auto place =
            "'" + file.string() + "', line " + std::to_string(FindLine(text, GetParam().place));
        const auto node = GetParam().node.empty() ? std::string(": ")
                                                  : ", node " + std::string(GetParam().node) + ": ";
        EXPECT_THAT([&] { model.LoadNodeSet(file); },
                    ThrowsMessage<InvalidModelException>(
                        AllOf(HasSubstr("Cannot load the information model " + place + node),
                              HasSubstr(std::string(GetParam().reason)))));
    }

    TemporaryFolder folder;
    InformationModel model;
};

TEST_P(AModelWithADefect, IsRefusedWithPlaceAndReasonAndChangesNothing)
{
    std::string text = completeModel;
    const auto position = text.find(GetParam().original);
    ASSERT_NE(position, std::string::npos);
    text.replace(position, GetParam().original.size(), GetParam().replacement);
    const auto objectTypes = model.GetObjectTypes().size();
    const auto dataTypes = model.GetDataTypes().size();

    ExpectRefusal(text);

    EXPECT_EQ(model.GetObjectTypes().size(), objectTypes);
    EXPECT_EQ(model.GetDataTypes().size(), dataTypes);
    EXPECT_NO_THROW(model.LoadNodeSet(folder.MakeFile("complete.xml", completeModel)));
}

namespace {

const std::array documentDefects{
    Defect{"NoModelDeclared", R"(<Model ModelUri="urn:test:model">
      <RequiredModel ModelUri="http://opcfoundation.org/UA/"/>
    </Model>)",
           "", "<UANodeSet", "", "the file declares no model"},
    Defect{"ModelWithoutUri", R"(<Model ModelUri="urn:test:model">)", "<Model>", "<Model>", "",
           "a model has no URI"},
    Defect{"ModelDeclaredTwice", "</Models>", "<Model ModelUri=\"urn:test:model\"/></Models>",
           "</Models>", "", "the model 'urn:test:model' is there already"},
    Defect{"ModelOfTheBaseNamespace", R"(<Model ModelUri="urn:test:model">)",
           R"(<Model ModelUri="http://opcfoundation.org/UA/">)", "<Model ", "",
           "the model 'http://opcfoundation.org/UA/' is there already"},
    Defect{"ModelOfTheHostsNamespace", R"(<Model ModelUri="urn:test:model">)",
           R"(<Model ModelUri="urn:Talvensor:Core">)", "<Model ", "",
           "the model 'urn:Talvensor:Core' is there already"},
    Defect{"RequiredModelMissing", R"(<RequiredModel ModelUri="http://opcfoundation.org/UA/"/>)",
           R"(<RequiredModel ModelUri="urn:nobody"/>)", "<RequiredModel", "",
           "the model requires 'urn:nobody', which is not loaded"},
    Defect{"EmptyNamespace", "<Uri>urn:test:other</Uri>", "<Uri> </Uri>", "<Uri>", "",
           "the URI of a namespace is empty"},
    Defect{"AliasWithoutName", R"(<Alias Alias="UInt32">)", "<Alias>", "<Alias>", "",
           "an alias has no name"},
    Defect{"AliasGivenTwice", R"(<Alias Alias="UInt32">)", R"(<Alias Alias="HasSubtype">)", ">i=7<",
           "", "the alias 'HasSubtype' is given twice"},
    Defect{"AliasOfNoIdentifier", ">i=45<", ">HasSupertype<", ">HasSupertype<", "",
           "'HasSupertype' is neither a node identifier"},
    Defect{"NodeOfAnotherKind", R"(<UAObjectType NodeId="ns=2;i=3")",
           R"(<UAVariableType NodeId="ns=2;i=4" BrowseName="2:V"/><UAObjectType NodeId="ns=2;i=3")",
           "<UAVariableType", "'ns=2;i=4' (2:V)", "a 'UAVariableType' is not supported"},
    Defect{"NodeOfAForeignNamespace", R"(NodeId="ns=2;i=3")", R"(NodeId="ns=1;i=3")", "ns=1;i=3",
           "'ns=1;i=3' (2:Grandchild)", "the node belongs to none of the models"},
    Defect{"NodeOfTheBaseNamespace", R"(NodeId="ns=2;i=3")", R"(NodeId="i=3")", "\"i=3\"",
           "'i=3' (2:Grandchild)", "the node belongs to none of the models"},
    Defect{"NodeDescribedTwice", R"(NodeId="ns=2;i=3")", R"(NodeId="ns=2;i=2")",
           "BrowseName=\"2:Child\"", "'ns=2;i=2' (2:Child)", "the node is described twice"},
    Defect{"NodeWithoutIdentifier", R"(NodeId="ns=2;i=3")", "", "2:Grandchild", "",
           "'' is neither a node identifier"},
    Defect{"NodeWithoutName", R"(BrowseName="2:Grandchild")", "", "NodeId=\"ns=2;i=3\"",
           "'ns=2;i=3' ()", "a name is empty"},
    Defect{"NodeWithAnEmptyName", "2:Grandchild", "2:", "NodeId=\"ns=2;i=3\"", "'ns=2;i=3' (2:)",
           "a name is empty"},
    Defect{"NameInAnUnknownNamespace", "2:Grandchild", "3:Grandchild", "3:Grandchild",
           "'ns=2;i=3' (3:Grandchild)", "the namespace index 3 is not in the file's table"},
    Defect{"IdentifierInAnUnknownNamespace", R"(NodeId="ns=2;i=3")", R"(NodeId="ns=9;i=3")",
           "ns=9;i=3", "'ns=9;i=3' (2:Grandchild)", "the namespace index 9 is not in the file's"},
    Defect{"IdentifierOfNoForm", R"(NodeId="ns=2;i=3")", R"(NodeId="ns=2;b=AA==")",
           "ns=2;b=", "'ns=2;b=AA==' (2:Grandchild)", "'ns=2;b=AA==' is neither a node identifier"},
    Defect{"IdentifierWithoutText", R"(NodeId="ns=2;i=3")", R"(NodeId="ns=2;s=")", "ns=2;s=\"",
           "'ns=2;s=' (2:Grandchild)", "'ns=2;s=' is neither a node identifier"},
    Defect{"IdentifierWithoutNumber", R"(NodeId="ns=2;i=3")", R"(NodeId="ns=2;i=3x")", "ns=2;i=3x",
           "'ns=2;i=3x' (2:Grandchild)", "the number of a node is not a number: '3x'"},
    Defect{"IdentifierTooLarge", R"(NodeId="ns=2;i=3")", R"(NodeId="ns=2;i=4294967296")",
           "ns=2;i=4294967296", "'ns=2;i=4294967296' (2:Grandchild)",
           "the number of a node is out of range: '4294967296'"},
    Defect{"IdentifierOfAShortGuid", R"(NodeId="ns=2;i=3")", R"(NodeId="ns=2;g=12-34")",
           "ns=2;g=12", "'ns=2;g=12-34' (2:Grandchild)", "'ns=2;g=12-34' is no node identifier: "},
    Defect{"FlagOfNoValue", R"(IsAbstract="true")", R"(IsAbstract="yes")", "IsAbstract=\"yes\"",
           "'ns=2;i=1' (2:Parent)", "'IsAbstract' is neither true nor false: 'yes'"},
};

const std::array referenceDefects{
    Defect{"ReferenceOfAnotherType", R"(ReferenceType="i=41")", R"(ReferenceType="i=35")",
           R"(ReferenceType="i=35")", "'ns=2;i=1' (2:Parent)",
           "references of the type 'i=35' are not supported"},
    Defect{"ReferenceToNothing", ">i=58<", ">i=9998<", ">i=9998<", "'ns=2;i=1' (2:Parent)",
           "the reference HasSubtype names 'i=9998', which is not known"},
    Defect{"SubtypeOfAnotherKind", R"(IsForward="false">ns=2;i=2<)", R"(IsForward="false">i=7<)",
           R"(IsForward="false">i=7<)", "'ns=2;i=3' (2:Grandchild)",
           "the reference HasSubtype does not fit this node and 'i=7'"},
    Defect{"ComponentOfAMethod", R"(ReferenceType="i=37">i=78<)",
           R"(ReferenceType="i=47">ns=2;i=21<)", ">ns=2;i=21<", "'ns=2;i=20' (2:Start)",
           "the reference HasComponent does not fit this node and 'ns=2;i=21'"},
    Defect{"PlaceholderAsModellingRule", R"(ReferenceType="i=37">i=78<)",
           R"(ReferenceType="i=37">i=11508<)", ">i=11508<", "'ns=2;i=20' (2:Start)",
           "the reference HasModellingRule names 'i=11508', which is not known"},
    Defect{"SubtypeGivenToAForeignType", R"("HasSubtype" IsForward="false">ns=2;i=2<)",
           R"("HasSubtype">i=61<)", ">i=61<", "'ns=2;i=3' (2:Grandchild)",
           "the reference HasSubtype would change 'i=61', which is not described in this file"},
    Defect{"MethodGivenToAForeignType", R"(ReferenceType="i=47" IsForward="false">ns=2;i=2<)",
           R"(ReferenceType="i=47" IsForward="false">i=61<)", ">i=61<", "'ns=2;i=21' (2:Stop)",
           "the reference HasComponent would change 'i=61', which is not described in this file"},
    Defect{"ReferenceOfNoDirection", R"(IsForward="false">ns=2;i=2<)",
           R"(IsForward="back">ns=2;i=2<)", R"(IsForward="back")", "'ns=2;i=3' (2:Grandchild)",
           "'IsForward' is neither true nor false: 'back'"},
    Defect{"TypeWithoutSupertype",
           R"(<Reference ReferenceType="HasSubtype" IsForward="false">ns=2;i=2</Reference>)", "",
           "2:Grandchild", "'ns=2;i=3' (2:Grandchild)",
           "the node needs exactly one reference HasSubtype to it, it has 0"},
    Defect{"TypeWithTwoSupertypes",
           R"(<Reference ReferenceType="HasSubtype" IsForward="false">ns=2;i=2</Reference>)",
           R"(<Reference ReferenceType="HasSubtype" IsForward="false">ns=2;i=2</Reference>
              <Reference ReferenceType="HasSubtype" IsForward="false">i=61</Reference>)",
           "2:Grandchild", "'ns=2;i=3' (2:Grandchild)",
           "the node needs exactly one reference HasSubtype to it, it has 2"},
    Defect{"TypeThatIsItsOwnAncestor", ">i=58<", ">ns=2;i=3<", "2:Grandchild",
           "'ns=2;i=3' (2:Grandchild)", "the type is its own supertype"},
    Defect{"MethodOfNoType",
           R"(<Reference ReferenceType="i=47" IsForward="false">ns=2;i=2</Reference>)", "",
           "2:Stop", "'ns=2;i=21' (2:Stop)",
           "the node needs exactly one reference HasComponent to it, it has 0"},
    Defect{"MethodOfTwoTypes", R"(<Reference ReferenceType="i=37">i=78</Reference>)",
           R"(<Reference ReferenceType="i=47" IsForward="false">ns=2;i=3</Reference>)", "2:Start",
           "'ns=2;i=20' (2:Start)",
           "the node needs exactly one reference HasComponent to it, it has 2"},
    Defect{"PropertyOfNothing", R"(<Reference ReferenceType="HasProperty">ns=2;i=22</Reference>)",
           "", "\"InputArguments\"", "'ns=2;i=22' (InputArguments)",
           "the node needs exactly one reference HasProperty to it, it has 0"},
    Defect{"PropertyWithoutTypeDefinition",
           R"(<Reference ReferenceType="HasTypeDefinition">i=68</Reference>)", "",
           "\"InputArguments\"", "'ns=2;i=22' (InputArguments)",
           "the node needs exactly one reference HasTypeDefinition, it has 0"},
    Defect{"PropertyOfAnotherType", ">i=68<", ">i=76<", ">i=76<", "'ns=2;i=22' (InputArguments)",
           "the reference HasTypeDefinition does not fit this node and 'i=76'"},
    Defect{"EncodingOfNothing", R"(<Reference ReferenceType="i=38">ns=2;i=45</Reference>)", "",
           "\"Default Binary\"", "'ns=2;i=45' (Default Binary)",
           "the node needs exactly one reference HasEncoding to it, it has 0"},
    Defect{"EncodingWithoutTypeDefinition",
           R"(<Reference ReferenceType="HasTypeDefinition">i=76</Reference>)", "",
           "\"Default XML\"", "'ns=2;i=46' (Default XML)",
           "the node needs exactly one reference HasTypeDefinition, it has 0"},
};

const std::array objectTypeDefects{
    Defect{"MethodTwice", "2:Stop", "2:Start", "ns=2;i=21\" BrowseName", "'ns=2;i=21' (2:Start)",
           "the type has a method 'Start' already"},
    Defect{"MethodWithAnotherProperty", "\"InputArguments\"", "\"Inputs\"", "\"Inputs\"",
           "'ns=2;i=22' (Inputs)", "a method has no properties but InputArguments and"},
    Defect{"InputArgumentsTwice", R"(<UAObjectType NodeId="ns=2;i=1")",
           R"(<UAVariable NodeId="ns=2;i=23" BrowseName="InputArguments">
    <References>
      <Reference ReferenceType="HasTypeDefinition">i=68</Reference>
      <Reference ReferenceType="HasProperty" IsForward="false">ns=2;i=20</Reference>
    </References>
  </UAVariable>
  <UAObjectType NodeId="ns=2;i=1")",
           "ns=2;i=23", "'ns=2;i=23' (InputArguments)", "the method has this property already"},
    Defect{"ArgumentsWithoutValue", R"(<UAObjectType NodeId="ns=2;i=1")",
           R"(<UAVariable NodeId="ns=2;i=23" BrowseName="OutputArguments">
    <References>
      <Reference ReferenceType="HasTypeDefinition">i=68</Reference>
      <Reference ReferenceType="HasProperty" IsForward="false">ns=2;i=20</Reference>
    </References>
  </UAVariable>
  <UAObjectType NodeId="ns=2;i=1")",
           "ns=2;i=23", "'ns=2;i=23' (OutputArguments)", "the value is no 'ListOfExtensionObject'"},
    Defect{"ArgumentOfAnotherStructure", ">i=297<", ">i=887<", "<uax:ExtensionObject>",
           "'ns=2;i=22' (InputArguments)",
           "an element of the value is no 'Argument' but of type 'i=887'"},
    Defect{"ArgumentWithoutName", "<uax:Name>matrix</uax:Name>", "", "<uax:Argument>",
           "'ns=2;i=22' (InputArguments)", "an argument has no name"},
    Defect{"ArgumentTwice", "      </uax:ListOfExtensionObject>",
           R"(        <uax:ExtensionObject>
          <uax:TypeId><uax:Identifier>i=297</uax:Identifier></uax:TypeId>
          <uax:Body><uax:Argument><uax:Name>matrix</uax:Name><uax:DataType><uax:Identifier>i=7</uax:Identifier></uax:DataType></uax:Argument></uax:Body>
        </uax:ExtensionObject>
      </uax:ListOfExtensionObject>)",
           "<uax:Body><uax:Argument>", "'ns=2;i=22' (InputArguments)",
           "there is an argument 'matrix' already"},
    Defect{"ArgumentOfAnUnknownDataType", "<uax:Identifier>ns=2;i=40<",
           "<uax:Identifier>ns=2;i=49<", "<uax:Argument>", "'ns=2;i=22' (InputArguments)",
           "the data type 'ns=2;i=49' is not known"},
    Defect{"ArgumentWithoutDataType", "<uax:Identifier>ns=2;i=40</uax:Identifier>", "",
           "<uax:Argument>", "'ns=2;i=22' (InputArguments)", "'' is neither a node identifier"},
    Defect{"ArgumentOfAnUnsupportedValueRank", "<uax:ValueRank>2<", "<uax:ValueRank>-2<",
           "<uax:Argument>", "'ns=2;i=22' (InputArguments)", "the value rank -2 is not supported"},
    Defect{"ArgumentOfAValueRankInWords", "<uax:ValueRank>2<", "<uax:ValueRank>two<",
           "<uax:Argument>", "'ns=2;i=22' (InputArguments)",
           "the value rank is not a number: 'two'"},
    Defect{"ArgumentOfMissingDimensions", "<uax:UInt32>3</uax:UInt32>", "", "<uax:Argument>",
           "'ns=2;i=22' (InputArguments)", "an argument of value rank 2 has 1 array dimensions"},
    Defect{"ArgumentOfANegativeDimension", "<uax:UInt32>3<", "<uax:UInt32>-3<", "<uax:UInt32>-3<",
           "'ns=2;i=22' (InputArguments)", "an array dimension is not a number: '-3'"},
    Defect{"PropertyOfAnObjectType", R"(IsForward="false">ns=2;i=31<)",
           R"(IsForward="false">ns=2;i=1<)", "2:Delay", "'ns=2;i=33' (2:Delay)",
           "only event types can have properties"},
    Defect{"InheritedFieldTwice", "2:Delay", "1:Place", "ns=2;i=33\" ", "'ns=2;i=33' (1:Place)",
           "the event type has a field 'Place' already"},
    Defect{"BaseFieldTwice", "1:Place", "Severity", "\"Severity\"", "'ns=2;i=32' (Severity)",
           "the event type has a field 'Severity' already"},
    Defect{"FieldOfAnUnknownDataType", R"(DataType="UInt32")", R"(DataType="UInt33")", "2:Delay",
           "'ns=2;i=33' (2:Delay)", "'UInt33' is neither a node identifier"},
    Defect{"FieldOfAnObjectType", R"(DataType="UInt32")", R"(DataType="ns=2;i=1")", "2:Delay",
           "'ns=2;i=33' (2:Delay)", "the data type 'ns=2;i=1' is not known"},
    Defect{"EventThatIsNone", R"(<Reference ReferenceType="i=41">ns=2;i=31)",
           R"(<Reference ReferenceType="i=41">i=61)", "2:Parent", "'ns=2;i=1' (2:Parent)",
           "the type generates 'i=61', which is no event type"},
    Defect{"UnknownExtension", "t:BehaviourFactory", "t:Behaviour", "t:Behaviour",
           "'ns=2;i=1' (2:Parent)", "the extension 't:Behaviour' is not known"},
    Defect{"FactoryOfAShortGuid", "000102030405060708090a0b0c0d0e0f", "0001", "t:BehaviourFactory",
           "'ns=2;i=1' (2:Parent)", "the Guid of the behaviour factory is not valid: "},
    Defect{"TwoFactories", "    </Extensions>",
           R"(      <Extension>
        <second:BehaviourFactory xmlns:second="urn:Talvensor:Core:Model" Guid="000102030405060708090a0b0c0d0e0f"/>
      </Extension>
    </Extensions>)",
           "<second:", "'ns=2;i=1' (2:Parent)",
           "the type has the extension 'second:BehaviourFactory' already"},
    Defect{"InstanceWithoutParents", "    </Extensions>",
           R"(      <Extension>
        <Instance xmlns="urn:Talvensor:Core:Model" Id="ns=2;i=90" Name="One" Parents=" "/>
      </Extension>
    </Extensions>)",
           "<Instance", "'ns=2;i=1' (2:Parent)", "the object has no parents"},
    Defect{"InstanceWithoutAName", "    </Extensions>",
           R"(      <Extension>
        <Instance xmlns="urn:Talvensor:Core:Model" Id="ns=2;i=90" Parents="i=85"/>
      </Extension>
    </Extensions>)",
           "<Instance", "'ns=2;i=1' (2:Parent)", "the attribute 'Name' is missing or empty"},
    Defect{"SessionObjectsWithoutAFolder", "    </Extensions>",
           R"(      <Extension>
        <SessionObjects xmlns="urn:Talvensor:Core:Model" Method="Make" Object="Own"/>
      </Extension>
    </Extensions>)",
           "<SessionObjects", "'ns=2;i=1' (2:Parent)",
           "the attribute 'Folder' is missing or empty"},
    Defect{"OneObjectAndThoseOfSessions", "    </Extensions>",
           R"(      <Extension>
        <Instance xmlns="urn:Talvensor:Core:Model" Id="ns=2;i=90" Name="One" Parents="i=85"/>
        <SessionObjects xmlns="urn:Talvensor:Core:Model" Folder="All" Method="Make" Object="Own"/>
      </Extension>
    </Extensions>)",
           R"(BrowseName="2:Parent")", "'ns=2;i=1' (2:Parent)",
           "a type with one object has no objects of sessions"},
    Defect{
        "FactoryOfAMethod", "<Description>Starts it.</Description>",
        R"(<Extensions><Extension><BehaviourFactory xmlns="urn:Talvensor:Core:Model"/></Extension></Extensions>)",
        "<BehaviourFactory", "'ns=2;i=20' (2:Start)",
        "the extension 'BehaviourFactory' is not known"},
    Defect{
        "ChangeOfAnUnknownArgument", "<Description>Starts it.</Description>",
        R"(<Extensions><Extension><Change xmlns="urn:Talvensor:Core:Model" Subject="nothing"/></Extension></Extensions>)",
        "<Change", "'ns=2;i=20' (2:Start)", "the method has no such argument 'nothing'"},
    Defect{"ChangeTwice", "<Description>Starts it.</Description>",
           R"(<Extensions><Extension><Change xmlns="urn:Talvensor:Core:Model"/></Extension>
        <Extension><Change2:Change xmlns:Change2="urn:Talvensor:Core:Model"/></Extension></Extensions>)",
           "<Change2:", "'ns=2;i=20' (2:Start)", "the method has a change already"},
    Defect{
        "AnotherExtensionOfAMethod", "<Description>Starts it.</Description>",
        R"(<Extensions><Extension><Handle xmlns="urn:Talvensor:Core:Model"/></Extension></Extensions>)",
        "<Handle", "'ns=2;i=20' (2:Start)", "the extension 'Handle' is not known"},
};

constexpr std::string_view end = "</UANodeSet>";

const std::array dataTypeDefects{
    Defect{"ValuesOfTheSameNumber", "<Value>70<", "<Value>-5<", "2:Speed", "'ns=2;i=40' (2:Speed)",
           "the data type gives two names to one value"},
    Defect{"ValuesOfTheSameName", "<Text>Fast<", "<Text>Back<", "2:Speed", "'ns=2;i=40' (2:Speed)",
           "the data type has two fields 'Back'"},
    Defect{"ValueBeyondAnInt32", "<Value>70<", "<Value>2147483648<", "<Value>2147483648",
           "'ns=2;i=43' (EnumValues)", "an enumeration's value is out of range: '2147483648'"},
    Defect{"ValuesOfAnotherStructure", ">i=7616<", ">i=297<", "<ExtensionObject>",
           "'ns=2;i=43' (EnumValues)",
           "an element of the value is no 'EnumValueType' but of type 'i=297'"},
    Defect{"EnumerationWithAnotherProperty", "\"EnumValues\"", "\"OptionSetValues\"",
           "ns=2;i=43\" ", "'ns=2;i=43' (OptionSetValues)",
           "a data type of this kind has no such property"},
    Defect{"EnumerationWithTheOtherPropertysValue", "\"EnumValues\"", "\"EnumStrings\"",
           "ns=2;i=43\" ", "'ns=2;i=43' (EnumStrings)", "the value is no 'ListOfLocalizedText'"},
    Defect{"EnumerationWithoutValues", end,
           R"(<UADataType NodeId="ns=2;i=60" BrowseName="2:Bad">
    <References><Reference ReferenceType="HasSubtype" IsForward="false">i=29</Reference></References>
  </UADataType></UANodeSet>)",
           "2:Bad", "'ns=2;i=60' (2:Bad)", "the data type names no values"},
    Defect{"EnumerationWithAFieldWithoutValue", end,
           R"(<UADataType NodeId="ns=2;i=60" BrowseName="2:Bad">
    <References><Reference ReferenceType="HasSubtype" IsForward="false">i=29</Reference></References>
    <Definition><Field Name="None"/></Definition>
  </UADataType></UANodeSet>)",
           "Name=\"None\"", "'ns=2;i=60' (2:Bad)", "the value of 'None' is not a number: ''"},
    Defect{"EnumerationWithAFieldWithoutName", end,
           R"(<UADataType NodeId="ns=2;i=60" BrowseName="2:Bad">
    <References><Reference ReferenceType="HasSubtype" IsForward="false">i=29</Reference></References>
    <Definition><Field Value="77"/></Definition>
  </UADataType></UANodeSet>)",
           "Value=\"77\"", "'ns=2;i=60' (2:Bad)", "a field of the definition has no name"},
    Defect{"EnumerationWhoseTextsDiffer",
           R"(<Reference ReferenceType="HasProperty">ns=2;i=43</Reference>
    </References>)",
           R"(<Reference ReferenceType="HasProperty">ns=2;i=43</Reference>
    </References>
    <Definition><Field Name="Back" Value="-5"/><Field Name="Fast" Value="71"/></Definition>)",
           "\"EnumValues\"", "'ns=2;i=43' (EnumValues)",
           "EnumValues and the definition name different values"},
    Defect{"OptionSetOfASignedType", R"(IsForward="false">i=5<)", R"(IsForward="false">i=6<)",
           "2:Flags", "'ns=2;g=00112233-4455-6677-8899-aabbccddeeff' (2:Flags)",
           "an option set is a subtype of Byte, UInt16, UInt32 or UInt64"},
    Defect{"OptionSetWithABitTooMany", end,
           R"(<UADataType NodeId="ns=2;i=60" BrowseName="2:Bad">
    <References><Reference ReferenceType="HasSubtype" IsForward="false">i=3</Reference></References>
    <Definition IsOptionSet="true"><Field Name="Ninth" Value="8"/></Definition>
  </UADataType></UANodeSet>)",
           "2:Bad", "'ns=2;i=60' (2:Bad)", "the bit 8 of 'Ninth' is not one of 8 bits"},
    Defect{"DefinitionOfASimpleType", end,
           R"(<UADataType NodeId="ns=2;i=60" BrowseName="2:Bad">
    <References><Reference ReferenceType="HasSubtype" IsForward="false">i=12</Reference></References>
    <Definition Name="Wrong"/>
  </UADataType></UANodeSet>)",
           "Name=\"Wrong\"", "'ns=2;i=60' (2:Bad)",
           "the definition is that of neither a structure nor an enumeration nor an option set"},
    Defect{
        "StructureWithoutDefinition",
        R"(<Definition Name="2:Point3"><Field Name="z" DataType="ns=2;i=40" ValueRank="1"/></Definition>)",
        "", "\"2:Point3\"", "'ns=2;i=42' (2:Point3)", "the structure has no definition"},
    Defect{"Union", R"(<Definition Name="2:Point3">)",
           R"(<Definition Name="2:Point3" IsUnion="true">)", "IsUnion", "'ns=2;i=42' (2:Point3)",
           "unions are not supported"},
    Defect{"OptionalMember", R"(<Field Name="z")", R"(<Field Name="z" IsOptional="true")",
           "IsOptional", "'ns=2;i=42' (2:Point3)", "the member 'z' is optional or may be of a"},
    Defect{"MemberOfASubtype", R"(<Field Name="z")", R"(<Field Name="z" AllowSubTypes="true")",
           "AllowSubTypes", "'ns=2;i=42' (2:Point3)", "the member 'z' is optional or may be of a"},
    Defect{"MemberOfAnUnknownDataType", R"(Name="z" DataType="ns=2;i=40")",
           R"(Name="z" DataType="i=9997")", "i=9997", "'ns=2;i=42' (2:Point3)",
           "the data type 'i=9997' is not known"},
    Defect{"MemberWithAnInheritedName", R"(<Field Name="z")", R"(<Field Name="x")", "\"2:Point3\"",
           "'ns=2;i=42' (2:Point3)", "the data type has two fields 'x'"},
    Defect{"StructureWithoutBinaryEncoding", "\"Default Binary\"", "\"Default JSON\"",
           "\"2:Point3\"", "'ns=2;i=42' (2:Point3)",
           "the structure has no encoding 'Default Binary'"},
    Defect{"StructureWithTwoBinaryEncodings", "\"Default XML\"", "\"Default Binary\"",
           "ns=2;i=45\" ", "'ns=2;i=45' (Default Binary)",
           "the structure has a binary encoding already"},
    Defect{"StructureWithAProperty", end,
           R"(<UAVariable NodeId="ns=2;i=60" BrowseName="EnumStrings">
    <References>
      <Reference ReferenceType="HasTypeDefinition">i=68</Reference>
      <Reference ReferenceType="HasProperty" IsForward="false">ns=2;i=42</Reference>
    </References>
  </UAVariable></UANodeSet>)",
           "ns=2;i=60", "'ns=2;i=60' (EnumStrings)", "a data type of this kind has no properties"},
    Defect{"DataTypeWithTwoProperties", end,
           R"(<UAVariable NodeId="ns=2;i=60" BrowseName="EnumStrings">
    <References>
      <Reference ReferenceType="HasTypeDefinition">i=68</Reference>
      <Reference ReferenceType="HasProperty" IsForward="false">ns=2;i=40</Reference>
    </References>
  </UAVariable></UANodeSet>)",
           "ns=2;i=60", "'ns=2;i=60' (EnumStrings)", "a data type has at most one property"},
};

std::string GetName(const testing::TestParamInfo<Defect>& info)
{
    return info.param.name;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Document, AModelWithADefect, testing::ValuesIn(documentDefects), GetName);
INSTANTIATE_TEST_SUITE_P(References, AModelWithADefect, testing::ValuesIn(referenceDefects),
                         GetName);
INSTANTIATE_TEST_SUITE_P(ObjectTypes, AModelWithADefect, testing::ValuesIn(objectTypeDefects),
                         GetName);
INSTANTIATE_TEST_SUITE_P(DataTypes, AModelWithADefect, testing::ValuesIn(dataTypeDefects), GetName);
