#pragma once

#include <open62541/plugin/log.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dirent.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

// The means of all tests that run a loop, or talk to one over TCP.

namespace Transport {

using namespace std::chrono_literals;

inline constexpr auto patience = 60s; // only against hanging
inline constexpr std::size_t megabyte = std::size_t{1} << 20U;

/// Keeps what is logged.
class Log
{
public:
    Log()
        : logger{&Log::Add, this, nullptr}
    {}

    [[nodiscard]] const UA_Logger& GetLogger() const { return logger; }

    [[nodiscard]] std::size_t Count(const std::string& part) const
    {
        const std::scoped_lock lock(mutex);
        return static_cast<std::size_t>(
            std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
                return line.find(part) != std::string::npos;
            }));
    }

private:
    [[gnu::format(printf, 4, 0)]] static void Add(void* self, UA_LogLevel level,
                                                  UA_LogCategory /*category*/, const char* format,
                                                  va_list arguments)
    {
        if (level < UA_LOGLEVEL_INFO)
            return;
        std::array<char, 512> text{};
        static_cast<void>(std::vsnprintf(text.data(), text.size(), format, arguments));
        auto& log = *static_cast<Log*>(self);
        const std::scoped_lock lock(log.mutex);
        log.lines.push_back((level == UA_LOGLEVEL_WARNING ? "Warning: " : "") +
                            std::string(text.data()));
    }

    UA_Logger logger;
    mutable std::mutex mutex;
    std::vector<std::string> lines;
};

/// Waits until something is true that another thread brings about.
template <typename Condition>
[[nodiscard]] bool Eventually(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

template <typename Value>
Value WaitFor(std::future<Value> future)
{
    if (future.wait_for(patience) != std::future_status::ready)
        throw std::runtime_error("the loop does not answer");
    return future.get();
}

/// Runs a function on the loop's thread and returns what it returns.
template <typename Loop, typename Function>
auto OnLoop(Loop& loop, Function function)
{
    auto task = std::make_shared<std::packaged_task<decltype(function())()>>(std::move(function));
    auto result = task->get_future();
    loop.Post([task] { (*task)(); });
    return WaitFor(std::move(result));
}

inline std::size_t CountDescriptors()
{
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir("/proc/self/fd"), &closedir);
    std::size_t count = 0;
    while (readdir(directory.get()) != nullptr) // NOLINT(concurrency-mt-unsafe): its own stream
        ++count;
    return count;
}

/// A plain TCP client.
class RawClient
{
public:
    RawClient()
        : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {}

    explicit RawClient(std::uint16_t port)
        : RawClient()
    {
        Connect(port);
    }

    ~RawClient() { Close(); }

    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;
    RawClient(RawClient&& other) noexcept
        : descriptor(std::exchange(other.descriptor, -1))
    {}
    RawClient& operator=(RawClient&&) = delete;

    void Connect(std::uint16_t port) const
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("cannot connect");
    }

    void Close()
    {
        if (descriptor >= 0)
            close(std::exchange(descriptor, -1));
    }

    /// Blocks until all of it is taken.
    void Send(const std::string& text) const
    {
        std::size_t sent = 0;
        while (sent < text.size()) {
            const auto count =
                send(descriptor, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
            if (count <= 0)
                throw std::runtime_error("cannot send");
            sent += static_cast<std::size_t>(count);
        }
    }

    /// Sends what the system takes without waiting.
    [[nodiscard]] std::size_t SendSome(const std::string& text) const
    {
        const auto count = send(descriptor, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return count < 0 ? 0 : static_cast<std::size_t>(count);
    }

    /// Less than asked for if the peer closes.
    [[nodiscard]] std::string Receive(std::size_t size) const
    {
        std::string text(size, '\0');
        std::size_t received = 0;
        while (received < size) {
            const auto count = recv(descriptor, text.data() + received, size - received, 0);
            if (count <= 0)
                break;
            received += static_cast<std::size_t>(count);
        }
        text.resize(received);
        return text;
    }

    [[nodiscard]] bool IsClosedByPeer() const
    {
        pollfd query{descriptor, POLLRDHUP, 0};
        return poll(&query, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) > 0;
    }

    [[nodiscard]] std::uint16_t GetPort() const
    {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }

private:
    int descriptor;
};
/// Calls a function through the library's callbacks.
struct Caller
{
    explicit Caller(std::function<void()> function)
        : function(std::move(function))
    {}

    static void Call(void* /*application*/, void* self) { static_cast<Caller*>(self)->function(); }

    std::function<void()> function;
};
} // namespace Transport
