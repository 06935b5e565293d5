#include "Attributes.h"
#include "Checksums.h"
#include "FileObjectsBehaviour.h"
#include "Statuses.h"

#include <algorithm>
#include <cstdint>
#include <fcntl.h>
#include <utility>

namespace FileObjects {

namespace {

Core::Value ToUInt64(std::uint64_t number)
{
    return static_cast<unsigned long>(number);
}

/// Returns the bytes of a byte string; none for a null one, which the host gives as an empty value.
const Core::Value::ByteString& GetBytes(const Core::Value& value)
{
    static const Core::Value::ByteString none;
    return value.IsEmpty() ? none : value.GetBytes();
}

/// Returns a text; an empty one for a null text.
std::string GetText(const Core::Value& value)
{
    return value.IsEmpty() ? std::string() : value.Get<std::string>();
}

} // namespace

struct FileObjectsBehaviour::Method
{
    const char* name;
    std::size_t inputCount;
    void (*run)(FileObjectsBehaviour& self, const Call& call);
};

const std::vector<FileObjectsBehaviour::Method>& FileObjectsBehaviour::GetFileMethods()
{
    static const std::vector<Method> methods = {
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

const std::vector<FileObjectsBehaviour::Method>& FileObjectsBehaviour::GetDirectoryMethods()
{
    static const std::vector<Method> methods = {
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
             self.List(call);
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

const std::vector<FileObjectsBehaviour::Method>& FileObjectsBehaviour::GetTransferMethods()
{
    static const std::vector<Method> methods = {
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

bool FileObjectsBehaviour::OnExecuteMethod(const std::shared_ptr<Core::INode>& object,
                                           const std::string& methodName, const Values& inputs,
                                           Values& outputs)
{
    const auto called = nodeIds.FromNodeId(object->GetNodeId());
    if (!called || !called->property.empty())
        Refuse(Status::notFound, "", "there is no such object");
    const bool isDirectory =
        called->kind == NodeKind::Directory || called->kind == NodeKind::FileSystem;
    const auto& methods = isDirectory                          ? GetDirectoryMethods()
                          : called->kind == NodeKind::Transfer ? GetTransferMethods()
                                                               : GetFileMethods();
    const auto method = std::ranges::find_if(
        methods, [&methodName](const Method& each) { return methodName == each.name; });
    if (method == methods.end())
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
    const std::string subject = folders.Show(place);
    if (call.node.kind == NodeKind::Directory) {
        call.outputs.emplace_back(
            ComputeTreeChecksum(folders.OpenDirectory(place), subject, call.caller), true);
        return;
    }
    if (call.node.kind != NodeKind::File)
        Refuse(Status::notSupported, "", "this object has no content of its own");
    const Descriptor file = folders.OpenFile(place, O_RDONLY);
    openFiles.RequireReadable(ToIdentity(GetState(file, subject)), call.caller.GetSession(),
                              subject);
    auto checksum = ComputeChecksum(file, call.inputs[0].Get<unsigned long>(),
                                    call.inputs[1].Get<unsigned long>(), subject, call.caller);
    call.outputs.emplace_back(std::move(checksum.bytes), true);
    call.outputs.push_back(ToUInt64(checksum.length));
}

void FileObjectsBehaviour::List(const Call& call) const
{
    auto listing = directories.List(call.node, call.inputs[0].Get<unsigned long>(),
                                    call.inputs[1].Get<unsigned int>(), call.caller);
    const auto size = static_cast<unsigned int>(listing.names.size());
    call.outputs.push_back(Core::Value::MakeArray(std::move(listing.names), {size}));
    call.outputs.push_back(Core::Value::MakeArray(std::move(listing.kinds), {size}));
    call.outputs.push_back(Core::Value::MakeArray(std::move(listing.sizes), {size}));
    call.outputs.push_back(Core::Value::MakeArray(std::move(listing.times), {size}));
    call.outputs.push_back(ToUInt64(listing.next));
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
