#pragma once

#include "Client/Cancellation.h"
#include "Client/Exceptions.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace Cli {

/// Standard output has no reader any more.
class BrokenPipeException : public Client::ClientException
{
public:
    BrokenPipeException()
        : ClientException("nobody reads standard output any more")
    {}
};

struct Workplace;

/// The standard output of a command that is one of many, kept until all of it can be written.
struct KeptOutput
{
    std::string text;
};

/// Standard output, gathered. REQUIRES: SIGPIPE is ignored.
/// Errors: what writes throws BrokenPipeException, CancelledException, and ClientException.
class Output
{
public:
    /// Goes where the command of the workplace writes to.
    explicit Output(const Workplace& workplace);

    /// Goes to `kept`, or to standard output where that is null. Both must outlive it.
    Output(const Client::Cancellation& cancellation, KeptOutput* kept);

    [[nodiscard]] bool IsTerminal() const noexcept { return isTerminal; }

    /// Returns true when what this process wrote last does not end a line.
    [[nodiscard]] static bool IsInsideLine() noexcept;

    void Write(std::string_view text);
    void Write(std::span<const unsigned char> bytes);

    /// Nothing is written before that, unless there is much. Not done by the destructor.
    void Flush();

private:
    void WriteNow(std::string_view text) const;
    void WaitUntilWritable() const;
    void Keep(std::string_view text) const;

    const Client::Cancellation& cancellation;
    KeptOutput* const kept; ///< null: standard output itself
    const bool isTerminal;
    const bool isFile; ///< never blocks for long
    std::string gathered;
};

/// Standard input, until it is wanted no more.
/// Reads what is there, at most as much as the buffer takes; 0 is the end. Throws
/// CancelledException, ClientException.
[[nodiscard]] std::size_t ReadInput(std::span<unsigned char> buffer,
                                    const Client::Cancellation& cancellation);

} // namespace Cli
