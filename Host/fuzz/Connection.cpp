#include "Connection.h"

#include "Frames.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace Fuzz {

namespace {

constexpr int longestSend = 60'000; // ms; a host that is busy with others reads late
constexpr std::size_t largestFrame = 100'000'000;

} // namespace

Connection::Connection(std::uint16_t port)
    : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    const int yes = 1;
    if (connect(descriptor.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), "connecting");
    setsockopt(descriptor.Get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

void Connection::Send(const std::string& bytes)
{
    for (std::size_t sent = 0; IsOpen() && sent < bytes.size();) {
        const ssize_t count = send(descriptor.Get(), bytes.data() + sent, bytes.size() - sent,
                                   MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count >= 0)
            sent += static_cast<std::size_t>(count);
        else if (errno != EAGAIN || !Await(POLLOUT, longestSend))
            Close();
    }
}

std::optional<std::string> Connection::Receive(int limit)
{
    for (;;) {
        if (auto frame = TakeFrame())
            return frame;
        if (!IsOpen() || !Await(POLLIN, limit))
            return std::nullopt;
        std::array<char, 65'536> block;
        const ssize_t count = recv(descriptor.Get(), block.data(), block.size(), MSG_DONTWAIT);
        if (count <= 0)
            Close();
        else
            received.append(block.data(), static_cast<std::size_t>(count));
    }
}

void Connection::Break() noexcept
{
    const linger atOnce{1, 0};
    setsockopt(descriptor.Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    Close();
}

std::optional<std::string> Connection::TakeFrame()
{
    if (received.size() < frameHeader)
        return std::nullopt;
    const std::size_t size = ReadNumber(received, 4);
    if (size < frameHeader || size > largestFrame) {
        Close();
        received.clear();
        return std::nullopt;
    }
    if (received.size() < size)
        return std::nullopt;
    std::string frame = received.substr(0, size);
    received.erase(0, size);
    return frame;
}

bool Connection::Await(short events, int limit) const
{
    pollfd query{descriptor.Get(), events, 0};
    return poll(&query, 1, limit) > 0;
}

} // namespace Fuzz
