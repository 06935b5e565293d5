#pragma once

#include "Client/Cancellation.h"
#include "Support/Descriptor.h"

#include <optional>
#include <string>
#include <utility>

namespace Cli {

/// The terminal of the process, also where standard input and output are something else. One thread
/// uses it.
class Prompt
{
public:
    /// Returns nothing if the process has no terminal.
    [[nodiscard]] static std::optional<Prompt> Open();

    /// Shows a text, with everything but line ends made safe, and returns the line that is typed.
    /// Returns nothing at the end of the input. Throws CancelledException.
    [[nodiscard]] std::optional<std::string> Ask(const std::string& text,
                                                 const Client::Cancellation& cancellation) const;

    /// As `Ask`, but does not show what is typed. Restores the terminal afterwards. Throws
    /// CancelledException, and ClientException if the echo cannot be switched off.
    [[nodiscard]] std::optional<std::string>
    AskWithoutEcho(const std::string& text, const Client::Cancellation& cancellation) const;

private:
    explicit Prompt(Support::Descriptor terminal) noexcept
        : terminal(std::move(terminal))
    {}

    void Show(const std::string& text) const;
    [[nodiscard]] std::optional<std::string>
    ReadLine(const Client::Cancellation& cancellation) const;
    /// Throws CancelledException.
    void WaitForInput(const Client::Cancellation& cancellation) const;

    Support::Descriptor terminal;
};

} // namespace Cli
