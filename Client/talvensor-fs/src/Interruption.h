#pragma once

#include "Client/Cancellation.h"

#include <array>
#include <csignal>
#include <memory>

namespace Cli {

/// Turns SIGINT, SIGTERM and SIGHUP into a cancellation for as long as it lives; the second signal
/// ends the process at once, with 128 and the signal's number. There is one at a time.
class Interruption
{
public:
    /// Throws ClientException when there is no descriptor left.
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    [[nodiscard]] const Client::Cancellation& GetCancellation() const noexcept
    {
        return *cancellation;
    }

    /// The first signal; 0 before it.
    [[nodiscard]] static int GetSignal() noexcept;

    /// Forgets a signal that came; there is a new cancellation from here on. REQUIRES: nobody uses
    /// the one before any more. Throws ClientException.
    void Renew();

private:
    static constexpr std::array signals = {SIGINT, SIGTERM, SIGHUP};

    std::unique_ptr<Client::Cancellation> cancellation;
    std::array<struct sigaction, signals.size()> previous{};
};

} // namespace Cli
