#include "Attributes.h"
#include "Checksums.h"
#include "FileObjectsBehaviour.h"
#include "MethodValues.h"
#include "Statuses.h"

#include <algorithm>
#include <utility>

namespace FileObjects {

namespace {

/// Returns the bytes of a byte string; none for a null one, which the host gives as an empty value.
const Core::Value::ByteString& GetBytes(const Core::Value& value)
{
    static const Core::Value::ByteString none;
    return value.IsEmpty() ? none : value.GetBytes();
}

} // namespace

const FileObjectsBehaviour::Methods& FileObjectsBehaviour::GetFileMethods()
{
    static const Methods methods = {
        {"Open", 1,
         [](auto& self, const Call& call) {
             call.outputs.emplace_back(
                 self.files.Open(call.node, call.inputs[0].Get<unsigned char>(), call.caller));
         }},
        {"Close", 1,
         [](auto& self, const Call& call) {
             self.files.Close(call.node, call.inputs[0].Get<unsigned int>(), call.caller);
         }},
        {"Read", 2,
         [](auto& self, const Call& call) {
             call.outputs.emplace_back(self.files.Read(call.node,
                                                       call.inputs[0].Get<unsigned int>(),
                                                       call.inputs[1].Get<int>(), call.caller),
                                       true);
         }},
        {"Write", 2,
         [](auto& self, const Call& call) {
             self.files.Write(call.node, call.inputs[0].Get<unsigned int>(),
                              GetBytes(call.inputs[1]), call.caller);
         }},
        {"GetPosition", 1,
         [](auto& self, const Call& call) {
             call.outputs.push_back(ToUInt64(self.files.GetPosition(
                 call.node, call.inputs[0].Get<unsigned int>(), call.caller)));
         }},
        {"SetPosition", 2,
         [](auto& self, const Call& call) {
             self.files.SetPosition(call.node, call.inputs[0].Get<unsigned int>(),
                                    call.inputs[1].Get<unsigned long>(), call.caller);
         }},
        {"GetChecksum", 2,
         [](auto& self, const Call& call) {
             self.ComputeChecksumOf(call);
         }},
    };
    return methods;
}

const FileObjectsBehaviour::Methods& FileObjectsBehaviour::GetDirectoryMethods()
{
    static const Methods methods = {
        {"CreateDirectory", 1,
         [](auto& self, const Call& call) {
             call.outputs.emplace_back(
                 self.directories.CreateDirectory(call.node, GetText(call.inputs[0])));
         }},
        {"CreateFile", 2,
         [](auto& self, const Call& call) {
             const auto created = self.directories.CreateFile(
                 call.node, GetText(call.inputs[0]), call.inputs[1].Get<bool>(), call.caller);
             call.outputs.emplace_back(created.id);
             call.outputs.emplace_back(created.handle);
         }},
        {"Delete", 1,
         [](auto& self, const Call& call) {
             self.directories.Delete(call.node, call.inputs[0].Get<Core::NodeId>(), call.caller);
         }},
        {"MoveOrCopy", 4,
         [](auto& self, const Call& call) {
             call.outputs.emplace_back(self.directories.MoveOrCopy(
                 call.node, call.inputs[0].Get<Core::NodeId>(), call.inputs[1].Get<Core::NodeId>(),
                 call.inputs[2].Get<bool>(), GetText(call.inputs[3]), call.caller));
         }},
        {"List", 2,
         [](auto& self, const Call& call) {
             auto listing = self.directories.List(call.node, call.inputs[0].Get<unsigned long>(),
                                                  call.inputs[1].Get<unsigned int>(),
                                                  Listed::FilesAndDirectories, call.caller);
             AddEntries(std::move(listing), call.outputs);
         }},
        {"GetSpace", 0,
         [](auto& self, const Call& call) {
             const auto space = self.directories.GetSpace(call.node);
             call.outputs.push_back(ToUInt64(space.total));
             call.outputs.push_back(ToUInt64(space.free));
         }},
        {"GetChecksum", 0,
         [](auto& self, const Call& call) {
             self.ComputeChecksumOf(call);
         }},
    };
    return methods;
}

/// Those of files and directories.
const FileObjectsBehaviour::Methods& FileObjectsBehaviour::GetCommonMethods()
{
    static const Methods methods = {
        {"SetPermissions", 1,
         [](auto& self, const Call& call) {
             self.SetPermissionsOf(call);
         }},
        {"SetLastModifiedTime", 1,
         [](auto& self, const Call& call) {
             self.SetTimeOf(call);
         }},
    };
    return methods;
}

const FileObjectsBehaviour::Methods& FileObjectsBehaviour::GetTransferMethods()
{
    static const Methods methods = {
        {"GenerateFileForRead", 1,
         [](auto& self, const Call& call) {
             const auto file = self.transfers.GenerateForRead(call.inputs[0], call.caller);
             call.outputs.emplace_back(file.id);
             call.outputs.emplace_back(file.handle);
             call.outputs.emplace_back(Core::NodeId::Empty()); // complete already
         }},
        {"GenerateFileForWrite", 1,
         [](auto& self, const Call& call) {
             const auto file = self.transfers.GenerateForWrite(call.inputs[0], call.caller);
             call.outputs.emplace_back(file.id);
             call.outputs.emplace_back(file.handle);
         }},
        {"CloseAndCommit", 1,
         [](auto& self, const Call& call) {
             self.transfers.CloseAndCommit(call.inputs[0].Get<unsigned int>(), call.caller);
             call.outputs.emplace_back(Core::NodeId::Empty()); // complete already
         }},
    };
    return methods;
}

std::vector<const FileObjectsBehaviour::Methods*> FileObjectsBehaviour::GetMethods(NodeKind kind)
{
    switch (kind) {
    case NodeKind::FileSystem:
        return {&GetDirectoryMethods(), &GetCommonMethods(), &GetPathMethods()};
    case NodeKind::Directory:
        return {&GetDirectoryMethods(), &GetCommonMethods()};
    case NodeKind::Transfer:
        return {&GetTransferMethods()};
    case NodeKind::File:
    case NodeKind::Temporary:
        break;
    }
    return {&GetFileMethods(), &GetCommonMethods()};
}

/// Returns null for a method that objects of this kind do not have.
const FileObjectsBehaviour::Method* FileObjectsBehaviour::FindMethod(NodeKind kind,
                                                                     const std::string& name)
{
    for (const Methods* const methods : GetMethods(kind)) {
        const auto found = std::ranges::find_if(
            *methods, [&name](const Method& each) { return name == each.name; });
        if (found != methods->end())
            return &*found;
    }
    return nullptr;
}

bool FileObjectsBehaviour::OnExecuteMethod(const std::shared_ptr<Core::INode>& object,
                                           const std::string& methodName, const Values& inputs,
                                           Values& outputs)
{
    const auto called = nodeIds.FromNodeId(object->GetNodeId());
    if (!called || !called->property.empty())
        Refuse(Status::notFound, "", "there is no such object");
    const Method* const method = FindMethod(called->kind, methodName);
    if (method == nullptr)
        return false;
    if (inputs.size() < method->inputCount)
        Refuse(Status::argumentsMissing, methodName, "arguments are missing");
    const Caller caller(node.GetCoreContext().GetSessions().GetCurrentSession(), isStopping);
    caller.CheckGoesOn();
    method->run(*this, {*called, caller, inputs, outputs});
    return true;
}

void FileObjectsBehaviour::ComputeChecksumOf(const Call& call)
{
    const Place& place = call.node.place;
    if (call.node.kind == NodeKind::Directory) {
        call.outputs.emplace_back(ComputeTreeChecksum(folders, place, call.caller), true);
        return;
    }
    if (call.node.kind != NodeKind::File)
        Refuse(Status::notSupported, "", "this object has no content of its own");
    auto checksum =
        ComputeFileChecksum(folders, place, openFiles, call.inputs[0].Get<unsigned long>(),
                            call.inputs[1].Get<unsigned long>(), call.caller);
    call.outputs.emplace_back(std::move(checksum.bytes), true);
    call.outputs.push_back(ToUInt64(checksum.length));
}

void FileObjectsBehaviour::SetPermissionsOf(const Call& call) const
{
    if (call.node.kind != NodeKind::File && call.node.kind != NodeKind::Directory)
        Refuse(Status::userAccessDenied, "", "this object has no permissions");
    SetPermissions(folders, call.node, call.inputs[0].Get<unsigned int>());
}

void FileObjectsBehaviour::SetTimeOf(const Call& call) const
{
    if (call.node.kind != NodeKind::File && call.node.kind != NodeKind::Directory)
        Refuse(Status::userAccessDenied, "", "this object has no time");
    SetLastModifiedTime(folders, call.node, call.inputs[0].Get<Core::DateTime>());
}

} // namespace FileObjects
