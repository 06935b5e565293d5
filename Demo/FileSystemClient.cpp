#include "FileSystemClient.h"

#include "Interruption.h"
#include "Text.h"

#include <tuple>
#include <utility>

namespace Demo {

namespace {

constexpr unsigned int readMode = 1;

[[noreturn]] void Fail(const std::string& method, const std::filesystem::path& path,
                       const std::string& reason)
{
    throw RequestFailedException(method + " of " + Quote(path) + ": " + reason);
}

void RequireSuccess(const std::string& method, const std::filesystem::path& path,
                    unsigned int result)
{
    if (result != 0)
        Fail(method, path, "acknowledged with result " + std::to_string(result));
}

Core::Value MakeBytes(const Bytes& content)
{
    return {content, true};
}

} // namespace

FileSystemClient::FileSystemClient(Core::Embedding::Runtime& runtime, Core::NodeId object)
    : runtime(runtime)
    , object(std::move(object))
    , subscription(
          runtime.Subscribe(this->object, [this](const auto& event) { inbox.Receive(event); }))
    , session(runtime.OpenSession("demo"))
{}

FileSystemClient::~FileSystemClient()
{
    session->Close();
}

unsigned int FileSystemClient::Open(const std::filesystem::path& path)
{
    const auto handle = CallForHandle("Open", {path.native(), readMode});
    std::ignore = Exists(path);
    ThrowIfFailed("Open", path, handle);
    return handle;
}

void FileSystemClient::Close(unsigned int handle)
{
    Call("Close", {handle});
    if (inbox.WaitForAcknowledgement(handle) != 0)
        throw RequestFailedException("Close of file handle " + std::to_string(handle) + " failed");
}

Bytes FileSystemClient::Read(unsigned int handle, std::size_t length)
{
    const auto outputs = Call("Read", {handle, static_cast<unsigned int>(length)});
    if (outputs.empty())
        throw RequestFailedException("Read from file handle " + std::to_string(handle) +
                                     ": it is not open");
    return outputs.front().GetByteString();
}

std::size_t FileSystemClient::GetPosition(unsigned int handle)
{
    const auto position = FindPosition(handle);
    if (!position)
        throw RequestFailedException("GetPosition of file handle " + std::to_string(handle) +
                                     ": there is none");
    return *position;
}

void FileSystemClient::SetPosition(unsigned int handle, std::size_t position)
{
    Call("SetPosition", {handle, position});
}

void FileSystemClient::UploadFile(const std::filesystem::path& path, const Bytes& content,
                                  const Core::DateTime& time, unsigned char permissions)
{
    const auto handle =
        CallForHandle("UploadFile", {path.native(), MakeBytes(content), time, permissions});
    RequireSuccess("UploadFile", path, inbox.WaitForAcknowledgement(handle));
    // The acknowledgement means that the file was opened. If not all of it could be written, it is
    // still open.
    if (FindPosition(handle)) {
        Close(handle);
        Fail("UploadFile", path, "not all data was written");
    }
}

unsigned int FileSystemClient::OpenWrite(const std::filesystem::path& path, const Bytes& content)
{
    return CallForHandle("OpenWrite", {path.native(), MakeBytes(content)});
}

void FileSystemClient::Write(unsigned int handle, const Bytes& content)
{
    Call("Write", {handle, MakeBytes(content)});
}

void FileSystemClient::WaitForWrites(unsigned int handle, const std::filesystem::path& path)
{
    std::ignore = Exists(path);
    ThrowIfFailed("Write", path, handle);
}

void FileSystemClient::WriteClose(unsigned int handle, const std::filesystem::path& path,
                                  const Bytes& content, const Core::DateTime& time,
                                  unsigned char permissions)
{
    Call("WriteClose", {handle, MakeBytes(content), time, permissions});
    std::ignore = Exists(path);
    const auto result = inbox.TakeAcknowledgement(handle);
    if (!result)
        Fail("WriteClose", path, "not acknowledged, the file was not open any more");
    RequireSuccess("WriteClose", path, *result);
}

void FileSystemClient::CreateDirectory(const std::filesystem::path& path)
{
    Call("CreateDirectory", {path.native()});
    std::ignore = inbox.WaitForResult("CreateDirectoryResultEvent");
}

void FileSystemClient::Delete(const std::vector<std::filesystem::path>& paths)
{
    std::vector<std::string> texts;
    texts.reserve(paths.size());
    for (const auto& path : paths)
        texts.push_back(path.native());
    Call("Delete", {texts});
    std::ignore = inbox.WaitForResult("DeleteResultEvent");
}

Listing FileSystemClient::List(const std::filesystem::path& directory, bool recursive)
{
    Call("List", {directory.native(), recursive});
    std::ignore = Exists(directory);
    const auto event = inbox.TakeResult("ListResultEvent");
    if (!event)
        Fail("List", directory, "it, or a directory below it, cannot be read");
    Listing listing;
    listing.limitExceeded = GetOwnField(*event, "LimitExceeded").Get<bool>();
    for (const auto& item : GetOwnField(*event, "Content").GetElements<Core::Struct>()) {
        const auto& fields = item.GetFields();
        listing.entries.push_back(
            {fields.at(0).GetText(), fields.at(1).Get<Core::DateTime>(), fields.at(2).Get<bool>()});
    }
    return listing;
}

bool FileSystemClient::Exists(const std::filesystem::path& path)
{
    Call("Exists", {path.native()});
    return GetOwnField(*inbox.WaitForResult("ExistsResultEvent"), "Exist").Get<bool>();
}

Core::DateTime FileSystemClient::GetDateTime(const std::filesystem::path& path)
{
    const auto outputs = Call("GetDateTime", {path.native()});
    return outputs.empty() ? Core::DateTime() : outputs.front().Get<Core::DateTime>();
}

void FileSystemClient::SetDateTime(const std::filesystem::path& path, const Core::DateTime& time)
{
    Call("SetDateTime", {path.native(), time});
}

std::vector<Core::Value> FileSystemClient::Call(const std::string& method,
                                                const std::vector<Core::Value>& inputs)
{
    ThrowIfInterrupted();
    ++callCounts[method];
    auto result = runtime.Call(session, object, method, inputs);
    if (!result.taken)
        throw RequestFailedException(method + " was refused");
    return std::move(result.outputs);
}

unsigned int FileSystemClient::CallForHandle(const std::string& method,
                                             const std::vector<Core::Value>& inputs)
{
    return Call(method, inputs).at(0).Get<unsigned int>();
}

std::optional<std::size_t> FileSystemClient::FindPosition(unsigned int handle)
{
    const auto outputs = Call("GetPosition", {handle});
    return outputs.empty() ? std::nullopt : std::optional(outputs.front().Get<unsigned long>());
}

void FileSystemClient::ThrowIfFailed(const std::string& method, const std::filesystem::path& path,
                                     unsigned int handle)
{
    RequireSuccess(method, path, inbox.TakeAcknowledgement(handle).value_or(0));
}

} // namespace Demo
