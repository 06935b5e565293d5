#pragma once

#include "Core/Embedding/Runtime.h"
#include "Core/NamespaceMap.h"
#include "EventRecorder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace FileSystemTests {

using Bytes = std::vector<unsigned char>;
using Values = std::vector<Core::Value>;
using Events = std::vector<EventRecorder::EventPointer>;

inline constexpr const char* moduleUri = "urn:Talvensor:FileSystem";

inline Core::Value MakeBytesValue(Bytes bytes)
{
    return {std::move(bytes), true};
}

inline Bytes ToBytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

inline std::string ToText(const Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

/// Returns bytes that reveal a lost, doubled or misplaced block.
inline Bytes MakePattern(std::size_t size)
{
    Bytes bytes(size);
    unsigned int state = 12345;
    for (auto& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(state >> 24U);
    }
    return bytes;
}

/// A host that has loaded the module as every host does.
class LoadedModule
{
public:
    LoadedModule()
    {
        runtime.LoadInformationModel(TALVENSOR_MODEL);
        runtime.LoadModule(TALVENSOR_MODULE);
    }

    [[nodiscard]] Core::Embedding::Runtime& GetRuntime() noexcept { return runtime; }

    [[nodiscard]] static Core::NodeId MakeTypeId(unsigned int number)
    {
        return {Core::NamespaceMap::GetNamespaceIndex(moduleUri), number};
    }

    /// Returns a new, started object of the module's type.
    [[nodiscard]] Core::NodeId MakeFileSystem(const std::string& name = "Files")
    {
        return runtime.CreateObject({.type = MakeTypeId(1), .browseName = {1, name}});
    }

private:
    Core::Embedding::Runtime runtime;
};

/// Calls the methods of one file system for a session of its own. A refused call fails the
/// test, except through `Call`.
class Client
{
public:
    Client(Core::Embedding::Runtime& runtime, Core::NodeId object,
           const std::string& sessionName = "client")
        : runtime(&runtime)
        , object(std::move(object))
        , session(runtime.OpenSession(sessionName))
    {}

    [[nodiscard]] const std::shared_ptr<Core::Embedding::Session>& GetSession() const noexcept
    {
        return session;
    }
    void EndSession() const { session->Close(); }

    [[nodiscard]] Core::Embedding::CallResult Call(const std::string& method,
                                                   const Values& inputs) const
    {
        return runtime->Call(session, object, method, inputs);
    }

    // NOLINTBEGIN(modernize-use-nodiscard): a test need not care for the handle.
    unsigned int Open(const std::string& path, unsigned int mode) const
    {
        return TakeHandle("Open", {path, mode});
    }
    void Close(unsigned int handle) const { Take("Close", {handle}); }
    unsigned int UploadFile(const std::string& path, const Bytes& data,
                            const Core::DateTime& time = {}, unsigned char permissions = 0) const
    {
        return TakeHandle("UploadFile", {path, MakeBytesValue(data), time, permissions});
    }
    unsigned int OpenWrite(const std::string& path, const Bytes& data) const
    {
        return TakeHandle("OpenWrite", {path, MakeBytesValue(data)});
    }
    // NOLINTEND(modernize-use-nodiscard)
    void Write(unsigned int handle, const Bytes& data) const
    {
        Take("Write", {handle, MakeBytesValue(data)});
    }
    void WriteClose(unsigned int handle, const Bytes& data, const Core::DateTime& time = {},
                    unsigned char permissions = 0) const
    {
        Take("WriteClose", {handle, MakeBytesValue(data), time, permissions});
    }
    void CreateDirectory(const std::string& path) const { Take("CreateDirectory", {path}); }
    void Delete(const std::vector<std::string>& paths) const
    {
        Take("Delete", {Core::Value(paths)});
    }
    void List(const std::string& path, bool recursive = false) const
    {
        Take("List", {path, recursive});
    }
    void Exists(const std::string& path) const { Take("Exists", {path}); }
    [[nodiscard]] std::optional<Bytes> Read(unsigned int handle, unsigned int length) const
    {
        return TakeOptional<Bytes>("Read", {handle, length});
    }
    [[nodiscard]] std::optional<Core::DateTime> GetDateTime(const std::string& path) const
    {
        return TakeOptional<Core::DateTime>("GetDateTime", {path});
    }
    void SetDateTime(const std::string& path, const Core::DateTime& time) const
    {
        Take("SetDateTime", {path, time});
    }
    [[nodiscard]] std::optional<unsigned long> GetPosition(unsigned int handle) const
    {
        return TakeOptional<unsigned long>("GetPosition", {handle});
    }
    void SetPosition(unsigned int handle, unsigned long position) const
    {
        Take("SetPosition", {handle, position});
    }

private:
    void Take(const std::string& method, const Values& inputs) const
    {
        const auto result = Call(method, inputs);
        EXPECT_TRUE(result.taken) << method;
        EXPECT_TRUE(result.outputs.empty()) << method;
    }

    [[nodiscard]] unsigned int TakeHandle(const std::string& method, const Values& inputs) const
    {
        const auto handle = TakeOptional<unsigned int>(method, inputs);
        EXPECT_TRUE(handle.has_value()) << method;
        EXPECT_NE(handle.value_or(0), 0U) << method;
        return handle.value_or(0);
    }

    template <typename T>
    [[nodiscard]] std::optional<T> TakeOptional(const std::string& method,
                                                const Values& inputs) const
    {
        const auto result = Call(method, inputs);
        EXPECT_TRUE(result.taken) << method;
        EXPECT_LE(result.outputs.size(), 1U) << method;
        if (result.outputs.empty())
            return std::nullopt;
        return result.outputs.front().Get<T>();
    }

    Core::Embedding::Runtime* runtime;
    Core::NodeId object;
    std::shared_ptr<Core::Embedding::Session> session;
};

/// Waits until all requests queued before are done, by the answer to a test of the root folder.
/// Returns the events raised until then.
inline Events WaitForBarrier(const Client& client, EventRecorder& recorder)
{
    client.Exists("/");
    Events before;
    while (const auto event = recorder.Take()) {
        if (TypeNumber(*event) == existsResultEvent)
            return before;
        before.push_back(event);
    }
    ADD_FAILURE() << "the barrier was never answered";
    return before;
}

/// Returns the open files of the process in a folder and below it.
inline std::vector<std::string> FindDescriptorsBelow(const std::filesystem::path& folder)
{
    std::vector<std::string> found;
    for (const auto& descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(descriptor.path(), gone).string();
        if (!gone && target.starts_with(folder.string() + "/"))
            found.push_back(target);
    }
    return found;
}

/// The numbers of descriptors and threads of the process.
inline std::size_t CountEntries(const char* folder)
{
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}
inline std::size_t CountDescriptors()
{
    return CountEntries("/proc/self/fd");
}
inline std::size_t CountThreads()
{
    return CountEntries("/proc/self/task");
}

} // namespace FileSystemTests
