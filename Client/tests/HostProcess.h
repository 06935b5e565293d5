#pragma once

#include "KeptKey.h"

#include "Support/TemporaryFolder.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ClientTest {

using Support::TemporaryFolder;

/// Kills a process when this one has ended, however it ended; until it is released. A watcher does
/// that: what the system has for it would follow the thread that started the process.
class Leash
{
public:
    explicit Leash(pid_t process);
    Leash(const Leash&) = delete;
    Leash& operator=(const Leash&) = delete;
    /// Releases it.
    ~Leash();

private:
    int ours = -1; // the end of a pipe that closes with this process
    pid_t watcher = -1;
};

/// Returns the arguments that give a host file objects as well.
[[nodiscard]] std::vector<std::string> GetObjectArguments();

/// How a host is started, where that is not as usual.
struct HostStart
{
    std::string address = "127.0.0.1"; ///< to listen on
    std::filesystem::path pki = {};    ///< keys and certificates; empty: a folder of its own
    /// A program, with arguments, that becomes the host; empty: none.
    std::vector<std::string> launcher = {};
    /// The user whose the host is, and its keys; empty: that of the tests.
    std::optional<uid_t> user = {};
};

/// The start of a host that is not root, since root may do everything: that of another user where
/// the tests are root's.
[[nodiscard]] HostStart StartUnprivileged();

/// A real talvensor-host on loopback that serves a folder. It ends with the process that started
/// it.
class HostProcess
{
public:
    /// Starts it and waits until it listens. Port 0: the system chooses.
    explicit HostProcess(std::filesystem::path root, std::vector<std::string> more = {},
                         std::uint16_t port = 0, HostStart start = {});
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;
    ~HostProcess();

    /// Returns the URL at which clients on a machine of that name or address find it.
    [[nodiscard]] std::string GetUrl(const std::string& machine = "127.0.0.1") const;
    [[nodiscard]] std::uint16_t GetPort() const noexcept { return port; }
    [[nodiscard]] const std::filesystem::path& GetRoot() const noexcept { return root; }
    [[nodiscard]] pid_t GetProcess() const noexcept { return process; }

    /// Ends it at once, as a crash would.
    void Kill();
    /// Starts it again on the same port, with the same key.
    void Restart();

private:
    void Start();
    void Stop(int signal);

    TemporaryFolder state;
    KeptKey key{"host"};
    std::filesystem::path root;
    std::vector<std::string> more;
    std::uint16_t port;
    HostStart start;
    pid_t process = -1;
    std::optional<Leash> leash;
};

} // namespace ClientTest
