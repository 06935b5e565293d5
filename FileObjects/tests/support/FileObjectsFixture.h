#pragma once

#include "Core/Embedding/Runtime.h"
#include "Core/Exception.h"
#include "Core/NamespaceMap.h"
#include "TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace FileObjectsTests {

using Bytes = std::vector<unsigned char>;
using FileSystemTests::ReadWholeFile;
using FileSystemTests::TemporaryFolder;
using Values = std::vector<Core::Value>;

inline Bytes ToBytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

/// The status codes, by their names in the standard. `Good` stands for a call that did not fail.
// NOLINTBEGIN(readability-identifier-naming): so they are written in the standard
namespace Code {
inline constexpr std::uint32_t Good = 0;
inline constexpr std::uint32_t Bad_ResourceUnavailable = 0x80040000;
inline constexpr std::uint32_t Bad_Shutdown = 0x800C0000;
inline constexpr std::uint32_t Bad_UserAccessDenied = 0x801F0000;
inline constexpr std::uint32_t Bad_SessionClosed = 0x80260000;
inline constexpr std::uint32_t Bad_NotReadable = 0x803A0000;
inline constexpr std::uint32_t Bad_NotWritable = 0x803B0000;
inline constexpr std::uint32_t Bad_NotSupported = 0x803D0000;
inline constexpr std::uint32_t Bad_NotFound = 0x803E0000;
inline constexpr std::uint32_t Bad_BrowseNameInvalid = 0x80600000;
inline constexpr std::uint32_t Bad_BrowseNameDuplicated = 0x80610000;
inline constexpr std::uint32_t Bad_ArgumentsMissing = 0x80760000;
inline constexpr std::uint32_t Bad_DeviceFailure = 0x808B0000;
inline constexpr std::uint32_t Bad_InvalidArgument = 0x80AB0000;
inline constexpr std::uint32_t Bad_InvalidState = 0x80AF0000;
/// The behaviour does not have the method.
inline constexpr std::uint32_t Refused = 1;
} // namespace Code
// NOLINTEND(readability-identifier-naming)

inline Core::NodeId ToNode(const std::string& key)
{
    if (key.empty())
        return {0, 16314};
    return {Core::NamespaceMap::GetNamespaceIndex("urn:Talvensor:FileObjects"), key};
}

/// The calls of one session. A status that is not good is returned, and kept with its text.
class Session
{
public:
    explicit Session(Core::Embedding::Runtime& runtime, const std::string& name = "client")
        : runtime(runtime)
        , session(runtime.OpenSession(name))
    {}

    std::uint32_t Call(const std::string& key, const std::string& method, const Values& inputs = {})
    {
        outputs.clear();
        message.clear();
        try {
            auto result = runtime.Call(session, ToNode(key), method, inputs);
            outputs = std::move(result.outputs);
            return result.taken ? Code::Good : Code::Refused;
        } catch (const Core::StatusException& refusal) {
            message = refusal.GetMessage();
            return refusal.GetStatus();
        } catch (const Core::NotFoundException&) { // no node can have this key
            return Code::Refused;
        }
    }

    /// Returns a handle; 0 if the call fails.
    unsigned int Open(const std::string& key, unsigned char mode)
    {
        return Call(key, "Open", {mode}) == Code::Good ? outputs.at(0).Get<unsigned int>() : 0;
    }
    std::uint32_t Close(const std::string& key, unsigned int handle)
    {
        return Call(key, "Close", {handle});
    }
    std::string Read(const std::string& key, unsigned int handle, int length = 1000)
    {
        if (const auto status = Call(key, "Read", {handle, length}); status != Code::Good)
            return "status " + std::to_string(status);
        const auto bytes = outputs.at(0).Get<Bytes>();
        return {bytes.begin(), bytes.end()};
    }
    std::uint32_t Write(const std::string& key, unsigned int handle, const std::string& text)
    {
        return Call(key, "Write", {handle, Core::Value(ToBytes(text), true)});
    }
    unsigned long GetPosition(const std::string& key, unsigned int handle)
    {
        EXPECT_EQ(Call(key, "GetPosition", {handle}), Code::Good);
        return outputs.at(0).Get<unsigned long>();
    }
    std::uint32_t SetPosition(const std::string& key, unsigned int handle, unsigned long position)
    {
        return Call(key, "SetPosition", {handle, position});
    }

    [[nodiscard]] const Values& GetOutputs() const { return outputs; }
    /// The key of an output that is a node.
    [[nodiscard]] std::string GetKey(std::size_t output) const
    {
        const auto id = outputs.at(output).Get<Core::NodeId>();
        return id.GetText() != nullptr ? *id.GetText() : std::string();
    }
    [[nodiscard]] const std::string& GetMessage() const { return message; }
    [[nodiscard]] const std::shared_ptr<Core::Embedding::Session>& Get() const { return session; }
    void End() { session->Close(); }

private:
    Core::Embedding::Runtime& runtime;
    std::shared_ptr<Core::Embedding::Session> session;
    Values outputs;
    std::string message;
};

/// Collects entries.
class Entries final : public Core::IEntryList
{
public:
    explicit Entries(std::uint64_t knownVersion = 0)
        : knownVersion(knownVersion)
    {}

    bool IsNeeded(std::uint64_t offered) override
    {
        version = offered;
        return offered != knownVersion;
    }
    void Append(std::vector<std::string> more) override
    {
        largestChunk = std::max(largestChunk, more.size());
        keys.insert(keys.end(), more.begin(), more.end());
    }

    std::uint64_t knownVersion;
    std::uint64_t version = 0;
    std::size_t largestChunk = 0;
    std::vector<std::string> keys;
};

/// A host that serves a folder "files" and a folder "fixed", which clients cannot change. A folder
/// "missing" is not there.
class FileTree
{
public:
    FileTree()
        : FileTree([](const FileTree&) { return std::vector<Core::Folder>(); })
    {}

    /// With more folders, which `makeMore` may put into the others.
    explicit FileTree(const std::function<std::vector<Core::Folder>(const FileTree&)>& makeMore)
    {
        runtime.LoadInformationModel(TALVENSOR_FILE_OBJECTS_MODEL);
        std::vector<Core::Folder> folders{{"files", folder.GetPath().string(), false},
                                          {"fixed", fixed.GetPath().string(), true},
                                          {"missing", outside / "missing", false}};
        for (auto& more : makeMore(*this))
            folders.push_back(std::move(more));
        runtime.SetFolders(std::move(folders));
        runtime.LoadModule(TALVENSOR_FILE_OBJECTS_MODULE);
        const int index = Core::NamespaceMap::GetNamespaceIndex("urn:Talvensor:FileObjects");
        runtime.CreateObject(
            {.type = {index, 4}, .browseName = {0, "FileSystem"}, .id = ToNode("")});
        provider = runtime.GetProvider(ToNode(""));
    }

    [[nodiscard]] std::vector<std::string> List(const std::string& key) const
    {
        Entries entries;
        provider->List(key, entries);
        return entries.keys;
    }
    template <typename T>
    [[nodiscard]] T ReadProperty(const std::string& key) const
    {
        return provider->Read(key).Get<T>();
    }
    [[nodiscard]] std::uint32_t StatusOfRead(const std::string& key) const
    {
        try {
            static_cast<void>(provider->Read(key));
            return Code::Good;
        } catch (const Core::StatusException& refusal) {
            return refusal.GetStatus();
        }
    }

    TemporaryFolder folder;
    TemporaryFolder fixed;
    TemporaryFolder outside;
    Core::Embedding::Runtime runtime;
    std::shared_ptr<Core::INodeProvider> provider; // ends before the runtime
    Session client{runtime};
    Session other{runtime, "other"};
};

class AFileTree : public testing::Test, public FileTree
{};

} // namespace FileObjectsTests
