#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

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
    /// Ends new connections at once, or no longer.
    void Refuse(bool refuses) noexcept { isRefusing = refuses; }
    /// Ends the connections that there are, once, rather than passing on what a client sends that
    /// contains the bytes, when that comes for the so-manieth time.
    void CutBefore(std::string bytes, int occurrence);
    [[nodiscard]] bool HasCut() const noexcept { return hasCut; }
    /// Replaces bytes in what servers send by as many others.
    void Rewrite(std::string bytes, std::string others);
    /// Makes one of the next plain calls of "Write" one that the server refuses.
    void SpoilWrite() noexcept { isSpoiling = true; }
    [[nodiscard]] bool HasSpoiled() const noexcept { return hasSpoiled; }
    /// Passes on so many bytes of what clients send, and no more until it is released.
    void HoldAfter(std::uint64_t bytes) noexcept { held = bytes; }
    void Release();
    [[nodiscard]] bool IsHolding() const noexcept { return passed >= held; }
    /// How many connections were passed on so far.
    [[nodiscard]] int CountConnections() const noexcept { return connections; }

private:
    void Run();
    void SpoilIn(std::span<char> block);
    bool IsCutHere(std::string_view block);
    void RewriteIn(std::span<char> block);
    bool PassToServer(int client, int server);
    bool PassToClient(int server, int client);

    std::uint16_t target;
    std::uint16_t port = 0;
    int listener = -1;
    int wake = -1;
    std::atomic<bool> isStopping{false};
    std::atomic<bool> isCutting{false};
    std::atomic<bool> isRefusing{false};
    std::atomic<bool> hasCut{false};
    std::atomic<int> connections{0};
    std::atomic<std::uint64_t> passed{0};
    std::atomic<std::uint64_t> held{std::numeric_limits<std::uint64_t>::max()};
    std::atomic<bool> isSpoiling{false};
    std::atomic<bool> hasSpoiled{false};
    std::mutex mutex; // guards what follows
    std::string cutBytes;
    int cutAfter = 0;
    std::vector<std::pair<std::string, std::string>> rewrites;
    std::thread thread; // last
};

} // namespace ClientTest
