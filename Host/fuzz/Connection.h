#pragma once

#include "Support/Descriptor.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Fuzz {

/// A TCP connection to a host on loopback that carries frames with any content.
class Connection
{
public:
    /// Throws std::system_error if the host does not listen.
    explicit Connection(std::uint16_t port);

    /// Returns false once the other end has closed or broken it.
    [[nodiscard]] bool IsOpen() const noexcept { return descriptor.IsOpen(); }
    /// Sends, and closes if the other end does not take everything in time.
    void Send(const std::string& bytes);
    /// Returns the next whole frame; nothing if none comes within the time, in milliseconds, or if
    /// the connection has ended.
    [[nodiscard]] std::optional<std::string> Receive(int limit);
    void Close() noexcept { descriptor = {}; }
    /// Closes with a reset.
    void Break() noexcept;

private:
    [[nodiscard]] std::optional<std::string> TakeFrame();
    [[nodiscard]] bool Await(short events, int limit) const;

    Support::Descriptor descriptor;
    std::string received;
};

} // namespace Fuzz
