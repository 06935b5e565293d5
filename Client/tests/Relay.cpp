#include "Relay.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
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

/// Sends at once: passed-on bytes must not wait for more to come.
void SendAtOnce(int socket)
{
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

using Block = std::array<char, 65536>;

/// Empty when the connection has ended.
std::span<char> Receive(int socket, Block& block)
{
    const auto count = recv(socket, block.data(), block.size(), 0);
    return std::span(block).first(count <= 0 ? 0 : static_cast<std::size_t>(count));
}

/// False when the connection has ended.
bool Send(int socket, std::span<const char> bytes)
{
    while (!bytes.empty()) {
        const auto part = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (part <= 0)
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(part));
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

void Relay::Release()
{
    held = std::numeric_limits<std::uint64_t>::max();
    eventfd_write(wake, 1);
}

void Relay::CutBefore(std::string bytes, int occurrence)
{
    const std::lock_guard lock(mutex);
    cutBytes = std::move(bytes);
    cutAfter = occurrence;
    hasCut = false;
}

void Relay::Rewrite(std::string bytes, std::string others)
{
    if (bytes.size() != others.size())
        throw std::invalid_argument("as many bytes have to come in place of others");
    const std::lock_guard lock(mutex);
    rewrites.emplace_back(std::move(bytes), std::move(others));
}

void Relay::SpoilIn(std::span<char> block)
{
    if (!isSpoiling)
        return;
    // The method's number, 1050, in a namespace, then two inputs of which the first is a UInt32.
    constexpr std::array<char, 7> rest{0x1A, 0x04, 2, 0, 0, 0, 0x07};
    for (std::size_t i = 0; i + 2 + rest.size() <= block.size(); ++i)
        if (block[i] == 0x01 && std::equal(rest.begin(), rest.end(), &block[i + 2])) {
            block[i + 2] = 0x1B; // there is no such method
            isSpoiling = false;
            hasSpoiled = true;
            return;
        }
}

bool Relay::IsCutHere(std::string_view block)
{
    const std::lock_guard lock(mutex);
    if (cutAfter == 0 || block.find(cutBytes) == std::string_view::npos || --cutAfter > 0)
        return false;
    hasCut = true;
    return true;
}

void Relay::RewriteIn(std::span<char> block)
{
    const std::lock_guard lock(mutex);
    for (const auto& [bytes, others] : rewrites)
        for (auto rest = block;;) {
            const auto found = std::search(rest.begin(), rest.end(), bytes.begin(), bytes.end());
            if (found == rest.end())
                break;
            std::copy(others.begin(), others.end(), found);
            rest = {found, rest.end()};
        }
}

bool Relay::PassToServer(int client, int server)
{
    Block block;
    const auto received = Receive(client, block);
    passed += received.size();
    SpoilIn(received);
    return !received.empty() && !IsCutHere({received.data(), received.size()}) &&
           Send(server, received);
}

bool Relay::PassToClient(int server, int client)
{
    Block block;
    const auto received = Receive(server, block);
    RewriteIn(received);
    return !received.empty() && Send(client, received);
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
            queries.push_back({pair.client, static_cast<short>(IsHolding() ? 0 : POLLIN), 0});
            queries.push_back({pair.server, POLLIN, 0});
        }
        poll(queries.data(), queries.size(), -1);
        for (std::size_t i = pairs.size(); i-- > 0;) {
            const bool fromClient = queries[2 + 2 * i].revents != 0;
            const bool fromServer = queries[3 + 2 * i].revents != 0;
            if ((fromClient && !PassToServer(pairs[i].client, pairs[i].server)) ||
                (fromServer && !PassToClient(pairs[i].server, pairs[i].client)))
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
            if (!isRefusing &&
                connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
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
