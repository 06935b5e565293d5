#pragma once

#include "Caller.h"
#include "Core/Value.h"
#include "Files.h"
#include "Folders.h"
#include "NodeIds.h"
#include "OpenFiles.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace FileObjects {

/// A file with a handle, without a place in the tree.
struct TemporaryFile
{
    Core::NodeId id;
    unsigned int handle = 0;
};

/// The methods of TemporaryFileTransferType (OPC 10000-20, 4.4). Any thread; `Start` and `Stop` one
/// after the other. All but these throw Core::StatusException.
///
/// A file that is written appears under its name when it is whole, in the place of the one that was
/// there. A file that is read is a copy of the moment; in a folder that clients cannot change it is
/// the file itself. Temporary files end with their session, or when they are not used for a while.
class Transfers
{
public:
    static constexpr std::size_t maximumFiles = 64;
    static constexpr std::chrono::milliseconds defaultTimeout{60'000};

    /// All outlive this object.
    Transfers(const Folders& folders, const NodeIds& nodeIds, OpenFiles& openFiles, Files& files,
              std::chrono::milliseconds timeout = defaultTimeout);
    Transfers(const Transfers&) = delete;
    Transfers& operator=(const Transfers&) = delete;
    /// REQUIRES: stopped.
    ~Transfers();

    /// Called on the thread of the transfers, for a file that was written.
    using OnDropped = std::function<void(const OpenFile& file)>;

    /// Start and stop the thread that ends files which are not used.
    void Start(OnDropped onDropped);
    void Stop();

    [[nodiscard]] std::chrono::milliseconds GetTimeout() const noexcept { return timeout; }

    /// `options` is the path of a file below the file system, a text that begins with the name of a
    /// folder, or the identifier of a file's node.
    [[nodiscard]] TemporaryFile GenerateForRead(const Core::Value& options, const Caller& caller);
    [[nodiscard]] TemporaryFile GenerateForWrite(const Core::Value& options, const Caller& caller);
    void CloseAndCommit(unsigned int handle, const Caller& caller);

private:
    class Target;

    [[nodiscard]] Place Resolve(const Core::Value& options) const;
    [[nodiscard]] Place ResolvePath(const std::string& text) const;
    [[nodiscard]] Descriptor MakeSnapshot(const Place& place, const Caller& caller) const;
    [[nodiscard]] TemporaryFile Register(Descriptor file, const Place& place, unsigned char mode,
                                         std::shared_ptr<void> companion, const Caller& caller);
    void Commit(OpenFile& file, Target& target);
    void EndUnused();
    void TellOf(const OpenFile& dropped) const;
    void EndThose(std::vector<OpenFiles::FilePointer> unused);

    const Folders& folders;
    const NodeIds& nodeIds;
    OpenFiles& openFiles;
    Files& files;
    const std::chrono::milliseconds timeout;
    /// Outlives this object: the files that are still open count down.
    const std::shared_ptr<std::atomic<std::size_t>> count;

    std::mutex mutex;
    std::condition_variable condition; // with mutex: stopping, or there is a file
    bool isStopping = false;           // guarded by mutex
    std::thread thread;                // start and stop only
    OnDropped onDropped;               // on the thread
};

} // namespace FileObjects
