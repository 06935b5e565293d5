#pragma once

#include "Commands/CommandRunner.h"
#include "Output/Json.h"

#include <functional>
#include <optional>
#include <string>

namespace Cli {

/// The outcome of a command that changes paths: failures go to the console, and with --json each
/// path has an object on standard output.
/// Errors: what writes throws as Output.
class Changes
{
public:
    /// The workplace must outlive it.
    explicit Changes(const Workplace& workplace);

    /// `target`: the new path, of those that are moved or copied.
    void AddDone(const std::string& path, const std::optional<std::string>& target = {});

    /// `reason`: one line that names the path.
    void AddFailed(const std::string& path, const std::string& reason,
                   const std::optional<std::string>& target = {});

    /// Changes one path, and takes OperationFailedException and CallRefusedException for its
    /// failure.
    void Do(const std::string& path, const std::function<void()>& operation,
            const std::optional<std::string>& target = {});

    /// Ends the output, and returns the status of the command.
    [[nodiscard]] ExitStatus Conclude();

private:
    void Write(const ChangeSummary& summary);

    const Workplace& workplace;
    Output output;
    ExitStatus status = ExitStatus::Done;
};

} // namespace Cli
