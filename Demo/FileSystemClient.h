#pragma once

#include "EventInbox.h"

#include <Core/Embedding/Runtime.h>
#include <Core/Embedding/Session.h>

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Demo {

using Bytes = std::vector<unsigned char>;

/// The most bytes that one `Read` returns.
inline constexpr std::size_t blockSize = 61440;

/// The methods of a `FileSystem` object.
inline constexpr std::size_t methodCount = 15;

/// Bits of a permissions byte.
namespace PermissionFlags {
inline constexpr unsigned char readOnly = 0x02;
inline constexpr unsigned char executable = 0x04;
} // namespace PermissionFlags

/// The file system refused a request, or reported its failure.
class RequestFailedException : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct ListedEntry
{
    std::string path; ///< relative to the listed directory
    Core::DateTime time;
    bool isDirectory = false;
};

struct Listing
{
    std::vector<ListedEntry> entries;
    bool limitExceeded = false;
};

/// The fifteen methods of a `FileSystem` object as blocking operations, for one thread. All of them
/// throw RequestFailedException if the file system refuses or fails, and NoAnswerException if an
/// expected event does not come.
///
/// A request that reports nothing is followed by an `Exists`: requests run in order, so the event
/// of the `Exists` shows that everything before it has finished.
class FileSystemClient
{
public:
    FileSystemClient(Core::Embedding::Runtime& runtime, Core::NodeId object);
    FileSystemClient(const FileSystemClient&) = delete;
    FileSystemClient& operator=(const FileSystemClient&) = delete;
    ~FileSystemClient();

    /// Opens a file for reading.
    [[nodiscard]] unsigned int Open(const std::filesystem::path& path);
    void Close(unsigned int handle);
    /// Returns at most `blockSize` bytes from the current position; none at the end.
    [[nodiscard]] Bytes Read(unsigned int handle, std::size_t length = blockSize);
    [[nodiscard]] std::size_t GetPosition(unsigned int handle);
    void SetPosition(unsigned int handle, std::size_t position);

    void UploadFile(const std::filesystem::path& path, const Bytes& content,
                    const Core::DateTime& time, unsigned char permissions);
    /// `WaitForWrites` or `WriteClose` report the failures of these two.
    [[nodiscard]] unsigned int OpenWrite(const std::filesystem::path& path, const Bytes& content);
    void Write(unsigned int handle, const Bytes& content);
    /// Waits until all data for the handle is written.
    void WaitForWrites(unsigned int handle, const std::filesystem::path& path);
    void WriteClose(unsigned int handle, const std::filesystem::path& path, const Bytes& content,
                    const Core::DateTime& time, unsigned char permissions);

    void CreateDirectory(const std::filesystem::path& path);
    void Delete(const std::vector<std::filesystem::path>& paths);
    [[nodiscard]] Listing List(const std::filesystem::path& directory, bool recursive);
    [[nodiscard]] bool Exists(const std::filesystem::path& path);
    /// Returns nothing if the file system cannot tell.
    [[nodiscard]] Core::DateTime GetDateTime(const std::filesystem::path& path);
    void SetDateTime(const std::filesystem::path& path, const Core::DateTime& time);

    [[nodiscard]] std::size_t GetEventCount() const { return inbox.GetCount(); }
    /// Returns the number of calls so far, by method.
    [[nodiscard]] const std::map<std::string, std::size_t>& GetCallCounts() const noexcept
    {
        return callCounts;
    }

private:
    std::vector<Core::Value> Call(const std::string& method,
                                  const std::vector<Core::Value>& inputs);
    unsigned int CallForHandle(const std::string& method, const std::vector<Core::Value>& inputs);
    [[nodiscard]] std::optional<std::size_t> FindPosition(unsigned int handle);
    void ThrowIfFailed(const std::string& method, const std::filesystem::path& path,
                       unsigned int handle);

    Core::Embedding::Runtime& runtime;
    const Core::NodeId object;
    std::map<std::string, std::size_t> callCounts;
    EventInbox inbox;
    Core::Embedding::EventSubscription subscription; // ends before the inbox that it fills
    std::shared_ptr<Core::Embedding::Session> session;
};

} // namespace Demo
