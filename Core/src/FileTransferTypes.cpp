#include "FileTransferTypes.h"

#include "BaseDescription.h"

#include <optional>
#include <utility>

namespace Core::Embedding {

namespace {

constexpr unsigned int boolean = 1;
constexpr unsigned int byte = 3;
constexpr unsigned int int32 = 6;
constexpr unsigned int uInt32 = 7;
constexpr unsigned int uInt64 = 9;
constexpr unsigned int text = 12;
constexpr unsigned int byteString = 15;
constexpr unsigned int nodeId = 17;
constexpr unsigned int anything = 24;

struct Argument
{
    const char* name;
    unsigned int dataType;
    const char* description;
};
using Arguments = std::vector<Argument>;

/// The arguments of one direction, and the number of the property that lists them; 0: there is no
/// such property.
struct ArgumentList
{
    unsigned int property = 0;
    Arguments arguments;
};

struct Method
{
    unsigned int id;
    const char* name;
    ArgumentList inputs;
    ArgumentList outputs;
    std::optional<ChangeDescription> change;
};

const Argument fileHandle{"FileHandle", uInt32, "The number by which the session uses the file."};
const Argument fileNode{"FileNodeId", nodeId, "The file."};
const Argument completion{"CompletionStateMachine", nodeId,
                          "The state of the work that goes on; empty if it is done."};
const Argument options{"GenerateOptions", anything,
                       "Chooses the file; its meaning is the server's."};

std::vector<ArgumentDescription> Describe(const Arguments& arguments)
{
    std::vector<ArgumentDescription> descriptions;
    for (const auto& argument : arguments)
        descriptions.push_back(
            {argument.name, NodeId(0, argument.dataType), -1, {}, argument.description});
    return descriptions;
}

NodeId MakePropertyId(const ArgumentList& list)
{
    return list.property == 0 ? NodeId() : NodeId(0, list.property);
}

ObjectTypeDescription MakeType(unsigned int id, const char* name,
                               const std::vector<Method>& methods)
{
    auto type = MakeBase<ObjectTypeDescription>(id, name);
    type.superType = BaseTypes::baseObjectType;
    for (const auto& method : methods) {
        auto description = MakeBase<MethodDescription>(method.id, method.name);
        description.inputArgumentsId = MakePropertyId(method.inputs);
        description.inputs = Describe(method.inputs.arguments);
        description.outputArgumentsId = MakePropertyId(method.outputs);
        description.outputs = Describe(method.outputs.arguments);
        description.change = method.change;
        type.methods.push_back(std::move(description));
    }
    return type;
}

ChangeDescription MakeChange(std::vector<std::string> subjects, const char* child = "")
{
    ChangeDescription change;
    change.subjects = std::move(subjects);
    change.child = child;
    return change;
}

/// Begins work with a file, or goes on with it.
ChangeDescription MakeWork(ChangeDescription change = {})
{
    change.handle = fileHandle.name;
    return change;
}

ChangeDescription MakeEnd()
{
    auto change = MakeWork();
    change.endsWork = true;
    return change;
}

/// Opening in order to read changes nothing.
ChangeDescription MakeOpening()
{
    auto change = MakeWork();
    change.exceptArgument = "Mode";
    change.exceptValue = 1;
    return change;
}

std::vector<Method> MakeFileMethods()
{
    const Argument position{"Position", uInt64, "Counts the bytes from the beginning of the file."};
    return {
        {11580,
         "Open",
         {11581, {{"Mode", byte, "1: read, 2: write, 4: erase first, 8: append; added up."}}},
         {11582, {fileHandle}},
         MakeOpening()},
        {11583, "Close", {11584, {fileHandle}}, {}, MakeEnd()},
        {11585,
         "Read",
         {11586, {fileHandle, {"Length", int32, "The most bytes to read."}}},
         {11587, {{"Data", byteString, "Empty at the end of the file."}}},
         {}},
        {11588,
         "Write",
         {11589, {fileHandle, {"Data", byteString, "Written at the position."}}},
         {},
         MakeWork()},
        {11590, "GetPosition", {11591, {fileHandle}}, {11592, {position}}, {}},
        {11593, "SetPosition", {11594, {fileHandle, position}}, {}, {}},
    };
}

std::vector<Method> MakeDirectoryMethods()
{
    return {
        {13387,
         "CreateDirectory",
         {13388, {{"DirectoryName", text, "The name of the new directory."}}},
         {13389, {{"DirectoryNodeId", nodeId, "The new directory."}}},
         MakeChange({}, "DirectoryName")},
        {13390,
         "CreateFile",
         {13391,
          {{"FileName", text, "The name of the new file."},
           {"RequestFileOpen", boolean, "True: opens it to read and write."}}},
         {13392, {fileNode, fileHandle}},
         MakeWork(MakeChange({}, "FileName"))},
        {13393,
         "Delete",
         {13394, {{"ObjectToDelete", nodeId, "A file, or a directory with all that is in it."}}},
         {},
         MakeChange({"ObjectToDelete"})},
        {13395,
         "MoveOrCopy",
         {13396,
          {{"ObjectToMoveOrCopy", nodeId, "A file, or a directory with all that is in it."},
           {"TargetDirectory", nodeId, "The directory that it comes to."},
           {"CreateCopy", boolean, "True: copies it. False: moves it."},
           {"NewName", text, "Its name there; empty: the same."}}},
         {13397, {{"NewNodeId", nodeId, "The object in its new place."}}},
         MakeChange({"ObjectToMoveOrCopy", "TargetDirectory"}, "NewName")},
    };
}

std::vector<Method> MakeTransferMethods()
{
    return {
        {15746,
         "GenerateFileForRead",
         {15747, {options}},
         {15748, {fileNode, fileHandle, completion}},
         {}},
        {15749,
         "GenerateFileForWrite",
         {16359, {options}},
         {15750, {fileNode, fileHandle}},
         MakeWork(MakeChange({"GenerateOptions"}))},
        {15751, "CloseAndCommit", {15752, {fileHandle}}, {15753, {completion}}, MakeEnd()},
    };
}

} // namespace

std::vector<ObjectTypeDescription> MakeFileTransferTypes()
{
    return {MakeType(11575, "FileType", MakeFileMethods()),
            MakeType(13353, "FileDirectoryType", MakeDirectoryMethods()),
            MakeType(15744, "TemporaryFileTransferType", MakeTransferMethods())};
}

} // namespace Core::Embedding
