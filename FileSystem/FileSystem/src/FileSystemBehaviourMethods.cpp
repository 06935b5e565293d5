#include "FileSystemBehaviour.h"

#include "WorkerQueueTask.h"

#include <algorithm>
#include <iterator>

namespace FileSystem {

struct FileSystemBehaviour::Method
{
    const char* name;
    bool (*run)(FileSystemBehaviour& behaviour, const Values& inputs, Values& outputs);
};

constinit const FileSystemBehaviour::Method FileSystemBehaviour::methods[] = {
    {"Open",
     [](auto& self, auto& in, auto& out) {
         return self.Open(in, out);
     }},
    {"Close",
     [](auto& self, auto& in, auto&) {
         return self.Close(in);
     }},
    {"UploadFile",
     [](auto& self, auto& in, auto& out) {
         return self.UploadFile(in, out);
     }},
    {"OpenWrite",
     [](auto& self, auto& in, auto& out) {
         return self.OpenWrite(in, out);
     }},
    {"Write",
     [](auto& self, auto& in, auto&) {
         return self.Write(in);
     }},
    {"WriteClose",
     [](auto& self, auto& in, auto&) {
         return self.WriteClose(in);
     }},
    {"CreateDirectory",
     [](auto& self, auto& in, auto&) {
         return self.CreateDirectory(in);
     }},
    {"Delete",
     [](auto& self, auto& in, auto&) {
         return self.Delete(in);
     }},
    {"List",
     [](auto& self, auto& in, auto&) {
         return self.List(in);
     }},
    {"Exists",
     [](auto& self, auto& in, auto&) {
         return self.Exists(in);
     }},
    {"Read",
     [](auto& self, auto& in, auto& out) {
         return self.Read(in, out);
     }},
    {"GetDateTime",
     [](auto&, auto& in, auto& out) {
         return GetDateTime(in, out);
     }},
    {"SetDateTime",
     [](auto&, auto& in, auto&) {
         return SetDateTime(in);
     }},
    {"GetPosition",
     [](auto& self, auto& in, auto& out) {
         return self.GetPosition(in, out);
     }},
    {"SetPosition",
     [](auto& self, auto& in, auto&) {
         return self.SetPosition(in);
     }},
};

bool FileSystemBehaviour::OnExecuteMethod(const std::shared_ptr<Core::INode>& /*node*/,
                                          const std::string& methodName, const Values& inputs,
                                          Values& outputs)
{
    if (IsStopRequested())
        return false;
    const auto* const method =
        std::find_if(std::begin(methods), std::end(methods),
                     [&methodName](const Method& each) { return methodName == each.name; });
    return method != std::end(methods) && method->run(*this, inputs, outputs);
}

bool FileSystemBehaviour::Open(const Values& inputs, Values& outputs)
{
    if (inputs.size() < 2)
        return false;
    const auto& path = inputs[0].GetText();
    const auto mode = static_cast<OpenModeEnum>(inputs[1].Get<unsigned int>());
    const unsigned int handle = MakeRegisteredHandle(path);
    if (handle == 0)
        return false;
    outputs.emplace_back(handle);
    EnqueueAsyncTask(std::make_shared<OpenTask>(*this, handle, path, mode));
    return true;
}

bool FileSystemBehaviour::Close(const Values& inputs)
{
    if (inputs.empty())
        return false;
    EnqueueAsyncTask(std::make_shared<CloseTask>(*this, inputs[0].Get<unsigned int>()));
    return true;
}

bool FileSystemBehaviour::UploadFile(const Values& inputs, Values& outputs)
{
    if (inputs.size() < 4)
        return false;
    const auto& path = inputs[0].GetText();
    const auto& data = inputs[1].GetBytes();
    const auto dateTime = inputs[2].Get<Core::DateTime>();
    const auto permissions = inputs[3].Get<unsigned char>();
    const unsigned int handle = MakeRegisteredHandle(path);
    if (handle == 0)
        return false;
    outputs.emplace_back(handle);
    EnqueueAsyncTask(
        std::make_shared<OpenWriteCloseTask>(*this, handle, path, data, dateTime, permissions));
    return true;
}

bool FileSystemBehaviour::OpenWrite(const Values& inputs, Values& outputs)
{
    if (inputs.size() < 2)
        return false;
    const auto& path = inputs[0].GetText();
    const auto& data = inputs[1].GetBytes();
    const unsigned int handle = MakeRegisteredHandle(path);
    if (handle == 0)
        return false;
    outputs.emplace_back(handle);
    EnqueueAsyncTask(std::make_shared<OpenWriteTask>(*this, handle, path, data));
    return true;
}

bool FileSystemBehaviour::Write(const Values& inputs)
{
    if (inputs.size() < 2)
        return false;
    const auto handle = inputs[0].Get<unsigned int>();
    const auto& data = inputs[1].GetBytes();
    EnqueueAsyncTask(std::make_shared<WriteTask>(*this, handle, data));
    return true;
}

bool FileSystemBehaviour::WriteClose(const Values& inputs)
{
    if (inputs.size() < 4)
        return false;
    const auto handle = inputs[0].Get<unsigned int>();
    const auto& data = inputs[1].GetBytes();
    const auto dateTime = inputs[2].Get<Core::DateTime>();
    const auto permissions = inputs[3].Get<unsigned char>();
    EnqueueAsyncTask(std::make_shared<WriteCloseTask>(*this, handle, data, dateTime, permissions));
    return true;
}

bool FileSystemBehaviour::CreateDirectory(const Values& inputs)
{
    if (inputs.empty())
        return false;
    EnqueueAsyncTask(std::make_shared<CreateDirectoryTask>(*this, inputs[0].GetText()));
    return true;
}

bool FileSystemBehaviour::Delete(const Values& inputs)
{
    if (inputs.empty())
        return false;
    // A scalar has no dimensions: it deletes nothing, on purpose, and still gets its answer.
    const auto dimensions = inputs[0].GetArrayDimensions();
    const unsigned int count = dimensions.empty() ? 0 : dimensions.front();
    std::vector<std::string> paths;
    for (unsigned int i = 0; i < count; ++i)
        paths.push_back(inputs[0].Get<std::string>({i}));
    EnqueueAsyncTask(std::make_shared<DeleteTask>(*this, paths));
    return true;
}

bool FileSystemBehaviour::List(const Values& inputs)
{
    if (inputs.size() < 2)
        return false;
    const auto& path = inputs[0].GetText();
    const auto recursive = inputs[1].Get<bool>();
    EnqueueAsyncTask(std::make_shared<ListTask>(*this, path, recursive));
    return true;
}

bool FileSystemBehaviour::Exists(const Values& inputs)
{
    if (inputs.empty())
        return false;
    EnqueueAsyncTask(std::make_shared<ExistsTask>(*this, inputs[0].GetText()));
    return true;
}

bool FileSystemBehaviour::Read(const Values& inputs, Values& outputs)
{
    if (inputs.size() < 2)
        return false;
    const auto handle = inputs[0].Get<unsigned int>();
    const auto length = inputs[1].Get<unsigned int>();
    const StreamLease lease = UseStream(handle);
    if (lease.GetFile() != nullptr)
        outputs.emplace_back(Read(lease.GetFile(), length), true);
    return true;
}

bool FileSystemBehaviour::GetDateTime(const Values& inputs, Values& outputs)
{
    if (inputs.empty())
        return false;
    const std::int64_t seconds = GetDateTime(inputs[0].GetText());
    if (seconds != -1)
        outputs.emplace_back(Core::DateTime::FromUnixEpochTime(seconds));
    return true;
}

bool FileSystemBehaviour::SetDateTime(const Values& inputs)
{
    if (inputs.size() < 2)
        return false;
    const auto& path = inputs[0].GetText();
    const auto dateTime = inputs[1].Get<Core::DateTime>();
    SetDateTime(path, dateTime.ToUnixEpochTime());
    return true;
}

bool FileSystemBehaviour::GetPosition(const Values& inputs, Values& outputs)
{
    if (inputs.empty())
        return false;
    const std::int64_t position = GetPosition(inputs[0].Get<unsigned int>());
    if (position != -1)
        outputs.emplace_back(static_cast<unsigned long>(position));
    return true;
}

bool FileSystemBehaviour::SetPosition(const Values& inputs)
{
    if (inputs.size() < 2)
        return false;
    const auto handle = inputs[0].Get<unsigned int>();
    const auto position = inputs[1].Get<unsigned long>();
    SetPosition(handle, position);
    return true;
}

} // namespace FileSystem
