#pragma once

#include "Client/Cancellation.h"

#include <optional>
#include <string>

namespace Cli {

/// The terminal of the process, whatever standard input and output are. One thread.
class Prompt
{
public:
    /// Nothing when the process has no terminal.
    [[nodiscard]] static std::optional<Prompt> Open();

    Prompt(Prompt&& other) noexcept;
    Prompt(const Prompt&) = delete;
    Prompt& operator=(const Prompt&) = delete;
    Prompt& operator=(Prompt&&) = delete;
    ~Prompt();

    /// Nothing in the text can act on the terminal, but for line ends. Nothing when the input
    /// ends. Throws CancelledException.
    [[nodiscard]] std::optional<std::string> Ask(const std::string& text,
                                                 const Client::Cancellation& cancellation) const;

    /// As above; what is typed is not shown. The terminal is as before afterwards. Throws
    /// ClientException too, when the terminal cannot be told so.
    [[nodiscard]] std::optional<std::string>
    AskWithoutEcho(const std::string& text, const Client::Cancellation& cancellation) const;

private:
    explicit Prompt(int descriptor) noexcept
        : descriptor(descriptor)
    {}

    void Show(const std::string& text) const;
    [[nodiscard]] std::optional<std::string>
    ReadLine(const Client::Cancellation& cancellation) const;

    int descriptor;
};

} // namespace Cli
