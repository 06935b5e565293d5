#pragma once

#include "Connection/ConnectionSettings.h"
#include "Connection/Trust.h"
#include "Grammar/Grammar.h"
#include "Grammar/GrammarParts.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace Cli {

/// The options of the connection.
class ConnectionGrammar
{
public:
    /// The app must outlive it.
    explicit ConnectionGrammar(CLI::App& app);

    // REQUIRES: it was parsed. They throw InvalidArgumentException.

    [[nodiscard]] ConnectionSettings GetSettings() const;
    [[nodiscard]] std::optional<std::string> GetProfile() const { return GetText(profile); }
    [[nodiscard]] std::optional<HostChoice> GetHosts() const;
    [[nodiscard]] Trust::Options GetTrust() const;

private:
    CLI::Option* const endpoint;
    CLI::Option* const profile;
    CLI::Option* const user;
    CLI::Option* const passwordFile;
    CLI::Option* const security;
    CLI::Option* const timeout;
    CLI::Option* const connectTimeout;
    CLI::Option* const reconnectTimeout;
    CLI::Option* const fingerprint;
    CLI::Option* const acceptsNew;
    CLI::Option* const hosts;
    const std::shared_ptr<std::size_t> atOnce;
};

} // namespace Cli
