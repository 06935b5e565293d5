#include "Loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace Bench {

namespace {

void Require(bool holds, const char* what)
{
    if (!holds)
        throw std::system_error(errno, std::generic_category(), what);
}

class Socket
{
public:
    explicit Socket(int descriptor)
        : descriptor(descriptor)
    {
        Require(descriptor >= 0, "socket");
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() { close(descriptor); }

    [[nodiscard]] int Get() const noexcept { return descriptor; }

    void SendAtOnce() const
    {
        const int yes = 1;
        Require(setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes) == 0,
                "TCP_NODELAY");
    }

private:
    const int descriptor;
};

Socket MakeSocket()
{
    return Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

void Send(const Socket& socket, std::size_t bytes)
{
    static const std::vector<char> zeros(1U << 20U);
    while (bytes > 0) {
        const ssize_t sent =
            send(socket.Get(), zeros.data(), std::min(bytes, zeros.size()), MSG_NOSIGNAL);
        Require(sent > 0, "send");
        bytes -= static_cast<std::size_t>(sent);
    }
}

/// Counts whole messages of one size in a stream.
class Receiver
{
public:
    Receiver(const Socket& socket, std::size_t messageBytes)
        : socket(socket)
        , messageBytes(messageBytes)
        , buffer(std::max<std::size_t>(messageBytes, 1U << 16U))
    {}

    /// Waits for some bytes and returns how many messages they complete; none at the end.
    std::size_t Receive()
    {
        for (;;) {
            const ssize_t count = recv(socket.Get(), buffer.data(), buffer.size(), 0);
            if (count <= 0)
                return 0;
            rest += static_cast<std::size_t>(count);
            const std::size_t complete = rest / messageBytes;
            rest %= messageBytes;
            if (complete > 0)
                return complete;
        }
    }

private:
    const Socket& socket;
    const std::size_t messageBytes;
    std::size_t rest = 0;
    std::vector<char> buffer;
};

/// Answers on a thread of its own until the other end closes.
class Answerer
{
public:
    Answerer(std::size_t requestBytes, std::size_t answerBytes)
        : listener(MakeSocket())
    {
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const plain = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof address;
        Require(bind(listener.Get(), plain, size) == 0, "bind");
        Require(listen(listener.Get(), 1) == 0, "listen");
        Require(getsockname(listener.Get(), plain, &size) == 0, "getsockname");
        thread =
            std::thread([this, requestBytes, answerBytes] { Answer(requestBytes, answerBytes); });
    }
    Answerer(const Answerer&) = delete;
    Answerer& operator=(const Answerer&) = delete;
    ~Answerer()
    {
        shutdown(listener.Get(), SHUT_RDWR); // for a client that never came
        thread.join();
    }

    [[nodiscard]] const sockaddr_in& GetAddress() const noexcept { return address; }

private:
    void Answer(std::size_t requestBytes, std::size_t answerBytes)
    {
        const int accepted = accept(listener.Get(), nullptr, nullptr);
        if (accepted < 0)
            return;
        const Socket socket(accepted);
        try {
            socket.SendAtOnce();
            Receiver requests(socket, requestBytes);
            while (const std::size_t count = requests.Receive())
                Send(socket, count * answerBytes);
        } catch (const std::system_error&) {
            // The other end is gone, and fails with the reason.
        }
    }

    const Socket listener;
    sockaddr_in address{};
    std::thread thread;
};

} // namespace

LoopbackResult MeasureLoopback(std::size_t requestBytes, std::size_t answerBytes, std::size_t count,
                               std::size_t inFlight)
{
    const Answerer answerer(requestBytes, answerBytes);
    const Socket socket = MakeSocket();
    const sockaddr_in address = answerer.GetAddress();
    Require(connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
            "connect");
    socket.SendAtOnce();

    LoopbackResult result;
    result.roundTrips.Reserve(count);
    Receiver answers(socket, answerBytes);
    std::size_t sent = 0;
    const auto sendUpTo = [&](std::size_t limit) {
        const std::size_t more = std::min(count, limit) - sent;
        Send(socket, more * requestBytes);
        sent += more;
    };
    const auto start = Clock::now();
    for (std::size_t received = 0; received < count;) {
        const auto begin = Clock::now();
        sendUpTo(received + inFlight);
        const std::size_t arrived = answers.Receive();
        Require(arrived > 0, "recv");
        received += arrived;
        result.roundTrips.Add(MicrosecondsSince(begin));
    }
    result.perSecond = static_cast<double>(count) * 1e6 / MicrosecondsSince(start);
    return result;
}

} // namespace Bench
