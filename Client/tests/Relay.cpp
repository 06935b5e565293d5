#include "Relay.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace ClientTest {

namespace {

sockaddr_in MakeAddress(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

struct Pair
{
    int client;
    int server;
};

/// What is passed on must not wait for more to come.
void SendAtOnce(int socket)
{
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

/// False when one of them has ended.
bool Pass(int from, int to)
{
    char block[65536];
    const auto count = recv(from, block, sizeof block, 0);
    if (count <= 0)
        return false;
    for (ssize_t sent = 0; sent < count;) {
        const auto part =
            send(to, block + sent, static_cast<std::size_t>(count - sent), MSG_NOSIGNAL);
        if (part <= 0)
            return false;
        sent += part;
    }
    return true;
}

} // namespace

Relay::Relay(std::uint16_t target)
    : target(target)
    , listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    , wake(eventfd(0, EFD_CLOEXEC))
{
    sockaddr_in address = MakeAddress(0);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(listener, 8) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::system_error(errno, std::generic_category(), "relay");
    port = ntohs(address.sin_port);
    thread = std::thread([this] { Run(); });
}

Relay::~Relay()
{
    isStopping = true;
    eventfd_write(wake, 1);
    thread.join();
    close(listener);
    close(wake);
}

std::string Relay::GetUrl() const
{
    return "opc.tcp://127.0.0.1:" + std::to_string(port);
}

void Relay::Cut()
{
    isCutting = true;
    eventfd_write(wake, 1);
}

void Relay::Run()
{
    std::vector<Pair> pairs;
    const auto end = [&](std::size_t index) {
        close(pairs[index].client);
        close(pairs[index].server);
        pairs.erase(pairs.begin() + static_cast<std::ptrdiff_t>(index));
    };
    while (!isStopping) {
        std::vector<pollfd> queries{{wake, POLLIN, 0}, {listener, POLLIN, 0}};
        for (const auto& pair : pairs) {
            queries.push_back({pair.client, POLLIN, 0});
            queries.push_back({pair.server, POLLIN, 0});
        }
        poll(queries.data(), queries.size(), -1);
        for (std::size_t i = pairs.size(); i-- > 0;) {
            const bool fromClient = queries[2 + 2 * i].revents != 0;
            const bool fromServer = queries[3 + 2 * i].revents != 0;
            if ((fromClient && !Pass(pairs[i].client, pairs[i].server)) ||
                (fromServer && !Pass(pairs[i].server, pairs[i].client)))
                end(i);
        }
        if (queries[0].revents != 0) {
            eventfd_t ignored{};
            eventfd_read(wake, &ignored);
            if (isCutting.exchange(false))
                while (!pairs.empty())
                    end(0);
        }
        if (queries[1].revents != 0) {
            const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            const sockaddr_in address = MakeAddress(target);
            if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
                SendAtOnce(client);
                SendAtOnce(server);
                pairs.push_back({client, server});
                ++connections;
            } else {
                close(client);
                close(server);
            }
        }
    }
    while (!pairs.empty())
        end(0);
}

} // namespace ClientTest
