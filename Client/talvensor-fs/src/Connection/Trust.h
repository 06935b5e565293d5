#pragma once

#include "Client/Connection.h"
#include "Output/Console.h"

#include <optional>
#include <string>

namespace Cli {

/// A fingerprint of SHA-256 as the library writes it; colons may be missing, "SHA256:" may be
/// before it. Throws InvalidArgumentException.
[[nodiscard]] std::string ParseFingerprint(const std::string& text);

/// Decides whether a server is trusted: see `Decide`. One thread.
class Trust
{
public:
    struct Options
    {
        std::optional<std::string> fingerprint; ///< the only one to trust, as ParseFingerprint
        bool acceptsNew = false; ///< whether servers that were never seen are trusted unasked
        bool mayAsk = true;      ///< the user, where there is a terminal
    };

    /// References must outlive it.
    Trust(Options options, Console& console, const Client::Cancellation& cancellation);

    /// A server that was never seen is shown on the terminal, and the user decides; without a
    /// terminal it is refused. A changed one is refused, unless its fingerprint was given.
    [[nodiscard]] bool Decide(const Client::ServerCertificate& certificate);

    /// Why `Decide` said no; empty when it did not.
    [[nodiscard]] const std::string& GetReason() const noexcept { return reason; }

private:
    [[nodiscard]] bool IsGivenOne(const Client::ServerCertificate& certificate);
    [[nodiscard]] bool DecideOnNewOne(const Client::ServerCertificate& certificate);
    [[nodiscard]] bool AskUser(const Client::ServerCertificate& certificate);
    [[nodiscard]] bool Refuse(const std::string& why);

    const Options options;
    Console& console;
    const Client::Cancellation& cancellation;
    std::string reason;
};

} // namespace Cli
