#include "Process/OuterProcess.h"

#include "Process/Process.h"
#include "Process/SystemCallFilter.h"
#include "Support/SystemError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace Host {

namespace {

// A message is the number of its bytes, and then each of its texts behind the number of its bytes.
using Texts = std::vector<std::string>;
using Length = std::uint64_t;

void AppendLength(std::string& message, Length length)
{
    std::array<char, sizeof(length)> bytes{};
    std::memcpy(bytes.data(), &length, sizeof(length));
    message.append(bytes.data(), bytes.size());
}

Length ReadLength(std::string_view bytes)
{
    Length length = 0;
    std::memcpy(&length, bytes.data(), sizeof(length));
    return length;
}

std::string Encode(const Texts& texts)
{
    std::string body;
    for (const auto& text : texts) {
        AppendLength(body, text.size());
        body += text;
    }
    std::string message;
    AppendLength(message, body.size());
    return message + body;
}

Texts Decode(std::string_view body)
{
    Texts texts;
    while (body.size() >= sizeof(Length)) {
        const auto length = ReadLength(body);
        body.remove_prefix(sizeof(Length));
        texts.emplace_back(body.substr(0, length));
        body.remove_prefix(std::min<std::size_t>(length, body.size()));
    }
    return texts;
}

/// Room for one descriptor beside the bytes of a message.
union Attachment {
    std::array<char, CMSG_SPACE(sizeof(int))> bytes;
    cmsghdr alignment;
};

/// Sends bytes, and a descriptor with the first of them. Returns the number of bytes sent; 0 if the
/// other end is gone.
std::size_t SendSome(int socket, std::string_view bytes, int descriptor)
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): it is only read
    iovec part{const_cast<char*>(bytes.data()), bytes.size()};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    Attachment attachment = {};
    if (descriptor >= 0) {
        message.msg_control = &attachment;
        message.msg_controllen = sizeof(attachment);
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(descriptor));
        std::memcpy(CMSG_DATA(header), &descriptor, sizeof(descriptor));
    }
    for (;;) {
        const auto count = sendmsg(socket, &message, MSG_NOSIGNAL);
        if (count >= 0 || errno != EINTR)
            return count < 0 ? 0 : static_cast<std::size_t>(count);
    }
}

bool Send(int socket, const Texts& texts, int descriptor = -1)
{
    const auto message = Encode(texts);
    for (std::string_view rest = message; !rest.empty();) {
        const auto count = SendSome(socket, rest, descriptor);
        if (count == 0)
            return false;
        rest.remove_prefix(count);
        descriptor = -1;
    }
    return true;
}

/// Waits until the socket can be read. Returns false if the interruption comes first; -1: none.
bool AwaitInput(int socket, int interruption)
{
    std::array<pollfd, 2> waiting{pollfd{socket, POLLIN, 0}, pollfd{interruption, POLLIN, 0}};
    while (poll(waiting.data(), waiting.size(), -1) < 0 && errno == EINTR)
        continue;
    return waiting[1].revents == 0;
}

/// Receives bytes, and takes the descriptor that comes with them.
ssize_t ReceiveSome(int socket, char* place, std::size_t size, Support::Descriptor& descriptor)
{
    iovec part{place, size};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    Attachment attachment = {};
    message.msg_control = &attachment;
    message.msg_controllen = sizeof(attachment);
    const auto count = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    const cmsghdr* const header = count > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    if (header != nullptr && header->cmsg_type == SCM_RIGHTS) {
        int number = -1;
        std::memcpy(&number, CMSG_DATA(header), sizeof(number));
        descriptor = Support::Descriptor(number);
    }
    return count;
}

/// Returns nothing if the other end is gone, or if the interruption comes first.
std::optional<std::string> ReceiveBytes(int socket, std::size_t size,
                                        Support::Descriptor& descriptor, int interruption)
{
    std::string bytes(size, '\0');
    for (std::size_t received = 0; received < size;) {
        if (!AwaitInput(socket, interruption))
            return std::nullopt;
        const auto count =
            ReceiveSome(socket, bytes.data() + received, size - received, descriptor);
        if (count == 0 || (count < 0 && errno != EINTR))
            return std::nullopt;
        received += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return bytes;
}

std::optional<Texts> Receive(int socket, Support::Descriptor& descriptor, int interruption = -1)
{
    const auto length = ReceiveBytes(socket, sizeof(Length), descriptor, interruption);
    if (!length)
        return std::nullopt;
    const auto body = ReceiveBytes(socket, ReadLength(*length), descriptor, interruption);
    return body ? std::optional(Decode(*body)) : std::nullopt;
}

// The outer process.

/// Answers a request: an empty text and the texts of the result, or the text of an exception.
bool Answer(int socket, const OuterProcess::Tasks& tasks, const Texts& request)
{
    try {
        auto result = tasks.at(request.front())({std::next(request.begin()), request.end()});
        Texts texts{""};
        std::move(result.texts.begin(), result.texts.end(), std::back_inserter(texts));
        return Send(socket, texts, result.descriptor.Get());
    } catch (const std::exception& error) {
        return Send(socket, {error.what()});
    }
}

void IgnoreSignals()
{
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE})
        sigaction(number, &ignore, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

constexpr int kept = STDERR_FILENO + 1;

/// Keeps open the socket alone, as descriptor `kept`. Readers of the host's output see its end with
/// the host.
void KeepOnly(int socket)
{
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nothing < 0 || (socket != kept && dup2(socket, kept) < 0))
        Support::ThrowSystemError("cannot settle the descriptors of the outer process");
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nothing, standard);
    closefrom(kept + 1);
}

[[noreturn]] void RunOuterProcess(int socket, const OuterProcess::Tasks& tasks,
                                  OuterProcess::Filter filter)
{
    try {
        IgnoreSignals();
        KeepOnly(socket);
        prctl(PR_SET_NAME, "talvensor-outer");
        RefuseInspection();
        if (filter == OuterProcess::Filter::SystemCalls) {
            DropCapabilities(KeptCapabilities::OfFileServer);
            RefuseNewPrivileges();
            RefuseSystemCalls();
            RefuseNewSockets();
        }
        Support::Descriptor unused;
        for (auto request = Receive(kept, unused); request && !request->empty();
             request = Receive(kept, unused)) {
            if (!Answer(kept, tasks, *request))
                break;
        }
    } catch (const std::exception&) {
        _exit(EXIT_FAILURE); // the host notices when it has a task
    }
    _exit(EXIT_SUCCESS);
}

} // namespace

OuterProcess::OuterProcess(const Tasks& tasks, Filter filter)
{
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        Support::ThrowSystemError("cannot talk to a process outside of the sandbox");
    socket = Support::Descriptor(ends[0]);
    const Support::Descriptor outer(ends[1]);
    // Until it ignores them, signals would run the host's handlers there.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before);
    const auto child = fork();
    if (child == 0)
        RunOuterProcess(outer.Get(), tasks, filter);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (child < 0)
        Support::ThrowSystemError("cannot start a process outside of the sandbox");
}

OuterResult OuterProcess::Run(const std::string& task, int interruption, const Arguments& arguments)
{
    OuterResult result;
    std::optional<Texts> answer;
    Texts request{task};
    request.insert(request.end(), arguments.begin(), arguments.end());
    if (socket.IsOpen() && Send(socket.Get(), request))
        answer = Receive(socket.Get(), result.descriptor, interruption);
    if (!answer || answer->empty()) {
        socket = Support::Descriptor();
        throw std::runtime_error("the process outside of the sandbox has ended");
    }
    if (!answer->front().empty())
        throw std::runtime_error(answer->front());
    result.texts.assign(std::next(answer->begin()), answer->end());
    return result;
}

} // namespace Host
