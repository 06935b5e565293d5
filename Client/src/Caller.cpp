#include "Caller.h"

#include "CallSender.h"
#include "StatusWords.h"
#include "UaTimes.h"

#include <OpcUa/Text.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace Client {

namespace {

/// How long closing may take when nobody waits for the end of a cancelled operation.
constexpr std::chrono::seconds closingTime{3};

} // namespace

Caller::Caller(std::shared_ptr<RemoteNode> givenNode, const Cancellation* cancellation)
    : node(std::move(givenNode))
    , cancellation(cancellation)
    , state(node->Await(*waiter, cancellation))
{}

CallPointer Caller::Make(Method method) const
{
    auto call = std::make_shared<Call>();
    call->node = node;
    call->waiter = waiter;
    call->epoch = state.epoch;
    call->request.method = method;
    return call;
}

CallPointer Caller::Post(CallPointer call) const
{
    node->GetEngine().Post(call);
    return call;
}

CallPointer Caller::MakeOnHandle(Method method, std::uint32_t handle) const
{
    auto call = Make(method);
    call->request.handle = handle;
    return call;
}

CallPointer Caller::MakeOnPath(Method method, const std::string& path) const
{
    auto call = Make(method);
    call->request.path = OpcUa::EscapeToUtf8(path);
    return call;
}

CallPointer Caller::Open(const std::string& path, std::int32_t mode)
{
    auto call = MakeOnPath(Method::Open, path);
    call->request.mode = mode;
    return Post(std::move(call));
}

CallPointer Caller::Close(std::uint32_t handle)
{
    return Post(MakeOnHandle(Method::Close, handle));
}

CallPointer Caller::UploadFile(const std::string& path,
                               std::shared_ptr<std::vector<unsigned char>> content,
                               UA_DateTime time, UA_Byte permissions)
{
    auto call = MakeOnPath(Method::UploadFile, path);
    call->request.bytes = *content;
    call->request.bytesOwner = std::move(content);
    call->request.time = time;
    call->request.permissions = permissions;
    return Post(std::move(call));
}

CallPointer Caller::OpenWrite(const std::string& path)
{
    return Post(MakeOnPath(Method::OpenWrite, path));
}

CallPointer Caller::Write(std::uint32_t handle, std::span<const unsigned char> bytes,
                          std::shared_ptr<const void> owner)
{
    auto call = MakeOnHandle(Method::Write, handle);
    call->request.bytes = bytes;
    call->request.bytesOwner = std::move(owner);
    return Post(std::move(call));
}

CallPointer Caller::WriteClose(std::uint32_t handle, UA_DateTime time, UA_Byte permissions)
{
    auto call = MakeOnHandle(Method::WriteClose, handle);
    call->request.time = time;
    call->request.permissions = permissions;
    return Post(std::move(call));
}

CallPointer Caller::CreateDirectory(const std::string& path)
{
    return Post(MakeOnPath(Method::CreateDirectory, path));
}

CallPointer Caller::Delete(const std::vector<std::string>& paths)
{
    auto call = Make(Method::Delete);
    call->request.paths.reserve(paths.size());
    for (const auto& path : paths)
        call->request.paths.push_back(OpcUa::EscapeToUtf8(path));
    return Post(std::move(call));
}

CallPointer Caller::List(const std::string& path, bool isRecursive)
{
    auto call = MakeOnPath(Method::List, path);
    call->request.isRecursive = isRecursive;
    return Post(std::move(call));
}

CallPointer Caller::Exists(const std::string& path)
{
    return Post(MakeOnPath(Method::Exists, path));
}

CallPointer Caller::Read(std::uint32_t handle, std::uint32_t length)
{
    auto call = MakeOnHandle(Method::Read, handle);
    call->request.length = length;
    return Post(std::move(call));
}

CallPointer Caller::GetDateTime(const std::string& path)
{
    return Post(MakeOnPath(Method::GetDateTime, path));
}

CallPointer Caller::SetDateTime(const std::string& path, UA_DateTime time)
{
    auto call = MakeOnPath(Method::SetDateTime, path);
    call->request.time = time;
    return Post(std::move(call));
}

CallPointer Caller::GetPosition(std::uint32_t handle)
{
    return Post(MakeOnHandle(Method::GetPosition, handle));
}

CallPointer Caller::SetPosition(std::uint32_t handle, std::uint64_t position)
{
    auto call = MakeOnHandle(Method::SetPosition, handle);
    call->request.position = position;
    return Post(std::move(call));
}

void CheckAnswer(const Call& call)
{
    const MethodDescription& method = Describe(call.request.method);
    const Outcome& outcome = call.outcome;
    if (outcome.isLost && outcome.isOverdue)
        throw CallOverdue(DescribeOverdue(call, call.node->GetEngine().GetOptions().answerTime));
    if (outcome.isLost)
        throw CallsLost();
    if (outcome.IsRefused())
        throw CallRefusedException(std::string("the server refused ") + method.name + ": " +
                                       DescribeStatus(outcome.status),
                                   outcome.status);
    if (method.Opens() && outcome.isAnswered && !outcome.opened)
        throw CallRefusedException(std::string("the server gave no handle for ") + method.name,
                                   UA_STATUSCODE_BADUNEXPECTEDERROR);
}

std::optional<FileTime> GetFileTime(const Call& call)
{
    return call.outcome.time ? ToFileTime(*call.outcome.time) : std::nullopt;
}

bool IsUntold(FileTime time) noexcept
{
    return time == FileTime(std::chrono::seconds(-1));
}

bool HasTime(const Call& call, FileTime time)
{
    const auto found = GetFileTime(call);
    return found ? *found == time : IsUntold(time);
}

void Caller::AwaitAnswer(const CallPointer& call)
{
    Wait(*call, [&] { return call->outcome.isAnswered.load(); });
    CheckAnswer(*call);
}

void Caller::AwaitEvent(const CallPointer& call)
{
    Wait(*call, [&] { return call->outcome.hasEvent.load() && call->outcome.isAnswered.load(); });
    CheckAnswer(*call);
}

bool Caller::Recover()
{
    const auto before = state.incarnation;
    state = node->Await(*waiter, cancellation);
    const bool isSame = state.incarnation == before;
    for (const auto& open : std::exchange(left, {}))
        if (isSame && open->outcome.opened)
            Close(open->outcome.opened->GetNumber());
    return isSame;
}

Waiter::Deadline Caller::GetAnswerDeadline(Waiter::Deadline lastLife) const
{
    return lastLife + node->GetEngine().GetOptions().answerTime;
}

void Caller::GiveUp(const Call& call) const
{
    const std::string text = DescribeOverdue(call, node->GetEngine().GetOptions().answerTime);
    node->GetEngine().GiveUp(text);
    throw CallOverdue(text);
}

Waiter::Deadline Caller::GetClosingDeadline() const
{
    return cancellation != nullptr && cancellation->IsCancelled()
               ? cancellation->GetTidyDeadline()
               : std::chrono::steady_clock::now() + closingTime;
}

bool Caller::AwaitClosing()
{
    const auto barrier = Barrier();
    return waiter->WaitUntil([&] { return barrier->outcome.hasEvent.load(); },
                             GetClosingDeadline()) &&
           !barrier->outcome.isLost;
}

bool Caller::DeleteAnyway(const std::vector<std::string>& paths) noexcept
{
    if (paths.empty())
        return true;
    try {
        const auto deletion = Delete(paths);
        return AwaitClosing() && !deletion->outcome.isLost && !deletion->outcome.hasNoResult;
    } catch (const std::exception&) {
        return false; // out of memory or the like
    }
}

void Caller::CloseAnyway(std::uint32_t handle) noexcept
{
    try {
        Close(handle);
        AwaitClosing();
    } catch (const std::exception&) {
        // Out of memory or the like: the session's end closes it.
    }
}

void Caller::CloseAnyway(std::span<const CallPointer> opens) noexcept
{
    const auto deadline = GetClosingDeadline();
    try {
        waiter->WaitUntil(
            [&] {
                return std::all_of(opens.begin(), opens.end(), [](const auto& open) {
                    return open->outcome.isAnswered.load();
                });
            },
            deadline);
        for (const auto& open : opens)
            if (open->outcome.isAnswered && open->outcome.opened)
                Close(open->outcome.opened->GetNumber());
        const auto barrier = Barrier();
        waiter->WaitUntil([&] { return barrier->outcome.hasEvent.load(); }, deadline);
        if (barrier->outcome.isLost)
            left.insert(left.end(), opens.begin(), opens.end());
    } catch (const std::exception&) {
        // Out of memory or the like: the session's end closes them.
    }
}

OpenedFiles::~OpenedFiles()
{
    if (!opens.empty())
        caller.CloseAnyway(opens);
}

void Caller::ThrowIfCancelled() const
{
    if (cancellation != nullptr && cancellation->IsCancelled())
        throw CancelledException();
}

} // namespace Client
