#pragma once

#include "Fleet/HostRun.h"
#include "Output/Output.h"

#include <cstddef>
#include <string>
#include <vector>

namespace Cli {

/// Shows how a command goes on many hosts: what each wrote, whole, with the host's name before each
/// line, as it ends; a line for it; and a table of all at the end. One thread.
class FleetReport
{
public:
    /// The console must outlive it.
    FleetReport(OutputChoice choice, Console& console);

    /// Names the hosts that are under way, where they can be drawn over again.
    void ShowUnderWay(std::size_t ended, std::size_t all, const std::vector<std::string>& names);

    /// Throws BrokenPipeException, ClientException.
    void Add(const HostResult& result);

    /// `results`: in the order of the table.
    void Conclude(const std::vector<HostResult>& results);

private:
    /// Returns true where standard error gets what went wrong and nothing else.
    [[nodiscard]] bool IsBrief() const noexcept { return choice.isQuiet || choice.isJson; }
    void WriteOutput(const HostResult& result);
    void WriteText(const HostResult& result);
    void WriteJson(const HostResult& result);
    void SayUnfinished(const std::vector<HostResult>& results);

    const OutputChoice choice;
    Console& console;
    const Client::Cancellation none; // what has ended is wanted after an interruption, too
    Output output;
};

/// Returns the lines of a table: host, status, files, bytes, time and reason of each.
[[nodiscard]] std::vector<std::string> RenderTable(const std::vector<HostResult>& results);

/// Counts them by their ends: "3 hosts: 2 done, 1 refused".
[[nodiscard]] std::string CountEnds(const std::vector<HostResult>& results);

} // namespace Cli
