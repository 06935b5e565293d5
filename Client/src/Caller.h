#pragma once

#include "Call.h"
#include "CallsLost.h"
#include "Client/Cancellation.h"
#include "Client/Exceptions.h"
#include "Node.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Client {

/// The calls that one thread makes on a file system. Paths are given as they are and escaped here.
class Caller
{
public:
    /// Waits until there is a connection. Throws ConnectionLostException, CancelledException.
    Caller(std::shared_ptr<RemoteNode> node, const Cancellation* cancellation);

    // Each posts a call and returns at once.

    CallPointer Open(const std::string& path, std::int32_t mode);
    CallPointer Close(std::uint32_t handle);
    CallPointer UploadFile(const std::string& path,
                           std::shared_ptr<std::vector<unsigned char>> content, UA_DateTime time,
                           UA_Byte permissions);
    CallPointer OpenWrite(const std::string& path);
    /// `owner` keeps the bytes until they have been encoded.
    CallPointer Write(std::uint32_t handle, std::span<const unsigned char> bytes,
                      std::shared_ptr<const void> owner);
    CallPointer WriteClose(std::uint32_t handle, UA_DateTime time, UA_Byte permissions);
    CallPointer CreateDirectory(const std::string& path);
    CallPointer Delete(const std::vector<std::string>& paths);
    CallPointer List(const std::string& path, bool isRecursive);
    CallPointer Exists(const std::string& path);
    CallPointer Read(std::uint32_t handle, std::uint32_t length);
    CallPointer GetDateTime(const std::string& path);
    CallPointer SetDateTime(const std::string& path, UA_DateTime time);
    CallPointer GetPosition(std::uint32_t handle);
    CallPointer SetPosition(std::uint32_t handle, std::uint64_t position);
    /// Its event says that everything asked for before is over.
    CallPointer Barrier() { return Exists("."); }

    // Each waits. They throw CallsLost, CallRefusedException and CancelledException.

    void AwaitAnswer(const CallPointer& call);
    void AwaitEvent(const CallPointer& call);
    /// `call` is named when nothing comes.
    template <typename Condition>
    void Wait(const Call& call, const Condition& condition)
    {
        auto deadline = GetAnswerDeadline(std::chrono::steady_clock::now());
        while (!waiter->WaitUntil(condition, cancellation, deadline)) {
            const auto later = GetAnswerDeadline(node->GetLastLife());
            if (later <= deadline)
                GiveUp(call);
            deadline = later;
        }
    }

    /// After CallsLost: waits until there is a connection. False when handles are gone with it;
    /// otherwise what CloseAnyway could not close is closed now.
    bool Recover();

    /// Repeats what can be repeated until no call of it is lost.
    template <typename Function>
    auto Repeat(const Function& function)
    {
        for (;;) {
            try {
                return function();
            } catch (const CallOverdue& overdue) {
                throw ConnectionLostException(overdue.text);
            } catch (const CallsLost&) {
                Recover();
            }
        }
    }

    /// Waits, for a short time and without being cancelled, until all that was posted is over.
    /// Returns false when that is not known.
    bool AwaitClosing();
    /// Deletes files without being cancelled. Returns false when it is not known that they are
    /// gone.
    bool DeleteAnyway(const std::vector<std::string>& paths) noexcept;
    /// Closes a file without being cancelled, for a short time. Whatever goes wrong is left to the
    /// end of the session.
    void CloseAnyway(std::uint32_t handle) noexcept;
    /// Likewise, what some calls opened or are about to open.
    void CloseAnyway(std::span<const CallPointer> opens) noexcept;

    void ThrowIfCancelled() const;

private:
    [[nodiscard]] Waiter::Deadline GetClosingDeadline() const;
    [[nodiscard]] Waiter::Deadline GetAnswerDeadline(Waiter::Deadline lastLife) const;
    [[noreturn]] void GiveUp(const Call& call) const;
    [[nodiscard]] CallPointer Make(Method method) const;
    [[nodiscard]] CallPointer Post(CallPointer call) const;
    [[nodiscard]] CallPointer MakeOnHandle(Method method, std::uint32_t handle) const;
    [[nodiscard]] CallPointer MakeOnPath(Method method, const std::string& path) const;

    const std::shared_ptr<RemoteNode> node;
    const std::shared_ptr<Waiter> waiter = std::make_shared<Waiter>();
    const Cancellation* cancellation;
    RemoteNode::State state;
    std::vector<CallPointer> left; // opened what could not be closed for the connection was lost
};

/// Files that are open for a while: closed when this goes, without being cancelled, whatever else
/// goes wrong.
class OpenedFiles
{
public:
    explicit OpenedFiles(Caller& caller) noexcept
        : caller(caller)
    {}
    OpenedFiles(const OpenedFiles&) = delete;
    OpenedFiles& operator=(const OpenedFiles&) = delete;
    ~OpenedFiles();

    /// The call that opens it, answered or not.
    void Add(CallPointer open) { opens.push_back(std::move(open)); }
    /// They have been closed, or ended with their session.
    void Release() noexcept { opens.clear(); }

private:
    Caller& caller;
    std::vector<CallPointer> opens;
};

/// Throws when the call, which is answered, is lost or refused, or opened nothing though it had to.
void CheckAnswer(const Call& call);

/// Returns the time that an answer brought; none when there is no such file, and for the time of
/// IsUntold.
[[nodiscard]] std::optional<FileTime> GetFileTime(const Call& call);

/// Returns true for the one time that a server cannot tell, the last second before 1970: it stands
/// for none.
[[nodiscard]] bool IsUntold(FileTime time) noexcept;

/// Returns true when an answer brought this time, or none for the one that cannot be told.
/// REQUIRES: the file is known to be there.
[[nodiscard]] bool HasTime(const Call& call, FileTime time);

} // namespace Client
