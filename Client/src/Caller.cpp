#include "Caller.h"

#include "StatusWords.h"

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

TicketPointer Caller::Make(Method method) const
{
    auto ticket = std::make_shared<Ticket>();
    ticket->method = method;
    ticket->node = node;
    ticket->waiter = waiter;
    ticket->epoch = state.epoch;
    return ticket;
}

TicketPointer Caller::Post(TicketPointer ticket) const
{
    node->GetEngine().Post(ticket);
    return ticket;
}

TicketPointer Caller::MakeOnHandle(Method method, std::uint32_t handle) const
{
    auto ticket = Make(method);
    ticket->handle = handle;
    return ticket;
}

TicketPointer Caller::MakeOnPath(Method method, const std::string& path) const
{
    auto ticket = Make(method);
    ticket->path = OpcUa::EscapeToUtf8(path);
    return ticket;
}

TicketPointer Caller::Open(const std::string& path, std::int32_t mode)
{
    auto ticket = MakeOnPath(Method::Open, path);
    ticket->mode = mode;
    return Post(std::move(ticket));
}

TicketPointer Caller::Close(std::uint32_t handle)
{
    return Post(MakeOnHandle(Method::Close, handle));
}

TicketPointer Caller::UploadFile(const std::string& path,
                                 std::shared_ptr<std::vector<unsigned char>> content,
                                 UA_DateTime time, UA_Byte permissions)
{
    auto ticket = MakeOnPath(Method::UploadFile, path);
    ticket->bytes = *content;
    ticket->bytesOwner = std::move(content);
    ticket->time = time;
    ticket->permissions = permissions;
    return Post(std::move(ticket));
}

TicketPointer Caller::OpenWrite(const std::string& path)
{
    return Post(MakeOnPath(Method::OpenWrite, path));
}

TicketPointer Caller::Write(std::uint32_t handle, std::span<const unsigned char> bytes,
                            std::shared_ptr<const void> owner)
{
    auto ticket = MakeOnHandle(Method::Write, handle);
    ticket->bytes = bytes;
    ticket->bytesOwner = std::move(owner);
    return Post(std::move(ticket));
}

TicketPointer Caller::WriteClose(std::uint32_t handle, UA_DateTime time, UA_Byte permissions)
{
    auto ticket = MakeOnHandle(Method::WriteClose, handle);
    ticket->time = time;
    ticket->permissions = permissions;
    return Post(std::move(ticket));
}

TicketPointer Caller::CreateDirectory(const std::string& path)
{
    return Post(MakeOnPath(Method::CreateDirectory, path));
}

TicketPointer Caller::Delete(const std::vector<std::string>& paths)
{
    auto ticket = Make(Method::Delete);
    ticket->paths.reserve(paths.size());
    for (const auto& path : paths)
        ticket->paths.push_back(OpcUa::EscapeToUtf8(path));
    return Post(std::move(ticket));
}

TicketPointer Caller::List(const std::string& path, bool isRecursive)
{
    auto ticket = MakeOnPath(Method::List, path);
    ticket->isRecursive = isRecursive;
    return Post(std::move(ticket));
}

TicketPointer Caller::Exists(const std::string& path)
{
    return Post(MakeOnPath(Method::Exists, path));
}

TicketPointer Caller::Read(std::uint32_t handle, std::uint32_t length)
{
    auto ticket = MakeOnHandle(Method::Read, handle);
    ticket->length = length;
    return Post(std::move(ticket));
}

TicketPointer Caller::GetDateTime(const std::string& path)
{
    return Post(MakeOnPath(Method::GetDateTime, path));
}

TicketPointer Caller::SetDateTime(const std::string& path, UA_DateTime time)
{
    auto ticket = MakeOnPath(Method::SetDateTime, path);
    ticket->time = time;
    return Post(std::move(ticket));
}

TicketPointer Caller::GetPosition(std::uint32_t handle)
{
    return Post(MakeOnHandle(Method::GetPosition, handle));
}

TicketPointer Caller::SetPosition(std::uint32_t handle, std::uint64_t position)
{
    auto ticket = MakeOnHandle(Method::SetPosition, handle);
    ticket->position = position;
    return Post(std::move(ticket));
}

void CheckAnswer(const Ticket& ticket)
{
    if (ticket.isLost && ticket.isOverdue)
        throw CallOverdue(ticket.node->GetEngine().DescribeOverdue(ticket));
    if (ticket.isLost)
        throw CallsLost();
    if (ticket.IsRefused())
        throw CallRefusedException(std::string("the server refused ") + GetName(ticket.method) +
                                       ": " + DescribeStatus(ticket.status),
                                   ticket.status);
    const bool opens = ticket.method == Method::Open || ticket.method == Method::OpenWrite ||
                       ticket.method == Method::UploadFile;
    if (opens && ticket.isAnswered && !ticket.opened)
        throw CallRefusedException(std::string("the server gave no handle for ") +
                                       GetName(ticket.method),
                                   UA_STATUSCODE_BADUNEXPECTEDERROR);
}

void Caller::AwaitAnswer(const TicketPointer& ticket)
{
    Wait(*ticket, [&] { return ticket->isAnswered.load(); });
    CheckAnswer(*ticket);
}

void Caller::AwaitEvent(const TicketPointer& ticket)
{
    Wait(*ticket, [&] { return ticket->isEventIn.load() && ticket->isAnswered.load(); });
    CheckAnswer(*ticket);
}

bool Caller::Recover()
{
    const auto before = state.incarnation;
    state = node->Await(*waiter, cancellation);
    const bool isSame = state.incarnation == before;
    for (const auto& open : std::exchange(left, {}))
        if (isSame && open->opened)
            Close(open->opened->GetNumber());
    return isSame;
}

Waiter::Deadline Caller::GetAnswerDeadline(Waiter::Deadline lastLife) const
{
    return lastLife + node->GetEngine().GetOptions().answerTime;
}

void Caller::GiveUp(const Ticket& ticket) const
{
    const std::string text = node->GetEngine().DescribeOverdue(ticket);
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
    return waiter->WaitUntil([&] { return barrier->isEventIn.load(); }, GetClosingDeadline()) &&
           !barrier->isLost;
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

void Caller::CloseAnyway(std::span<const TicketPointer> opens) noexcept
{
    const auto deadline = GetClosingDeadline();
    try {
        waiter->WaitUntil(
            [&] {
                return std::all_of(opens.begin(), opens.end(),
                                   [](const auto& open) { return open->isAnswered.load(); });
            },
            deadline);
        for (const auto& open : opens)
            if (open->isAnswered && open->opened)
                Close(open->opened->GetNumber());
        const auto barrier = Barrier();
        waiter->WaitUntil([&] { return barrier->isEventIn.load(); }, deadline);
        if (barrier->isLost)
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
