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

/// The most that one `Read` returns.
inline constexpr std::size_t blockSize = 61440;

/// The methods of a `FileSystem` object.
inline constexpr std::size_t methodCount = 15;

/// Bits of a permissions byte.
namespace PermissionFlags {
inline constexpr unsigned char readOnly = 0x02;
inline constexpr unsigned char executable = 0x04;
} // namespace PermissionFlags

/// The file system said that a request failed, or refused it.
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
/// throw RequestFailedException when the file system refuses or fails, NoAnswerException when an
/// event that has to come does not.
///
/// Requests that are silent when they succeed are followed by an `Exists`: requests are carried out
/// in order, so its event says that everything before it is over.
class FileSystemClient
{
public:
    FileSystemClient(Core::Embedding::Runtime& runtime, Core::NodeId object);
    FileSystemClient(const FileSystemClient&) = delete;
    FileSystemClient& operator=(const FileSystemClient&) = delete;
    ~FileSystemClient();

    /// Opens for reading.
    [[nodiscard]] unsigned int Open(const std::filesystem::path& path);
    void Close(unsigned int handle);
    /// At most `blockSize` bytes from the current position; none at the end.
    [[nodiscard]] Bytes Read(unsigned int handle, std::size_t length = blockSize);
    [[nodiscard]] std::size_t GetPosition(unsigned int handle);
    void SetPosition(unsigned int handle, std::size_t position);

    void UploadFile(const std::filesystem::path& path, const Bytes& content,
                    const Core::DateTime& time, unsigned char permissions);
    /// Failures of these two show in `WaitForWrites` or `WriteClose`.
    [[nodiscard]] unsigned int OpenWrite(const std::filesystem::path& path, const Bytes& content);
    void Write(unsigned int handle, const Bytes& content);
    /// Waits until everything handed over for the handle is written.
    void WaitForWrites(unsigned int handle, const std::filesystem::path& path);
    void WriteClose(unsigned int handle, const std::filesystem::path& path, const Bytes& content,
                    const Core::DateTime& time, unsigned char permissions);

    void CreateDirectory(const std::filesystem::path& path);
    void Delete(const std::vector<std::filesystem::path>& paths);
    [[nodiscard]] Listing List(const std::filesystem::path& directory, bool recursive);
    [[nodiscard]] bool Exists(const std::filesystem::path& path);
    /// Empty when the file system cannot tell.
    [[nodiscard]] Core::DateTime GetDateTime(const std::filesystem::path& path);
    void SetDateTime(const std::filesystem::path& path, const Core::DateTime& time);

    [[nodiscard]] std::size_t GetEventCount() const { return inbox.GetCount(); }
    /// The calls made so far, by method.
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
