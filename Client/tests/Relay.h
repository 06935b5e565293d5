#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace ClientTest {

/// Passes TCP connections on to another port of this machine, until they are cut.
class Relay
{
public:
    explicit Relay(std::uint16_t target);
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;
    ~Relay();

    [[nodiscard]] std::string GetUrl() const;
    /// Ends the connections that there are; new ones are passed on.
    void Cut();
    /// How many connections were passed on so far.
    [[nodiscard]] int CountConnections() const noexcept { return connections; }

private:
    void Run();

    std::uint16_t target;
    std::uint16_t port = 0;
    int listener = -1;
    int wake = -1;
    std::atomic<bool> isStopping{false};
    std::atomic<bool> isCutting{false};
    std::atomic<int> connections{0};
    std::thread thread; // last
};

} // namespace ClientTest
