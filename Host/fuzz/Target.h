#pragma once

#include "Support/Descriptor.h"
#include "User.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Fuzz {

/// The descriptors and threads of a process.
struct Holdings
{
    std::size_t descriptors;
    std::size_t threads;
};

/// A real talvensor-host on loopback, with a folder that clients may change and one that they may
/// only read. It ends with the process that started it.
class Target
{
public:
    /// Starts it with its files in a folder, and waits until it listens. With a user, nobody else
    /// may log in. Throws if it does not start: without a sandbox, too, since clients delete what
    /// they reach, and that would be this machine.
    Target(const std::filesystem::path& folder, const std::optional<User>& user);
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;
    /// Kills it if it still runs.
    ~Target();

    [[nodiscard]] std::uint16_t GetPort() const noexcept { return port; }
    [[nodiscard]] std::string GetUrl() const;
    /// Returns the path of a file in the folder that may only be read.
    [[nodiscard]] std::string GetKeptFile() const;
    [[nodiscard]] const std::filesystem::path& GetLog() const noexcept { return log; }

    /// Returns the way it ended; nothing while it runs.
    [[nodiscard]] std::optional<std::string> GetEnd();
    [[nodiscard]] Holdings CountHoldings() const;
    /// Waits until it holds no more than before. Returns false if that takes more than a minute.
    [[nodiscard]] bool ComesBackTo(const Holdings& before) const;
    /// Asks it to stop and waits for its end, a minute at most: "status 0" is a good one.
    [[nodiscard]] std::string Stop();

private:
    void Start(const std::vector<std::string>& arguments);
    void AwaitListening();

    std::filesystem::path kept;
    std::filesystem::path log;
    Support::Descriptor output;
    pid_t process = -1;
    std::uint16_t port = 0;
    std::optional<std::string> end;
};

} // namespace Fuzz
