#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>

namespace Fuzz {

/// Counts the requests and answers of a run.
struct Figures
{
    std::uint64_t connections = 0;
    std::uint64_t channels = 0;
    std::uint64_t sessions = 0;
    std::uint64_t encryptedSessions = 0;
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::uint64_t mutatedFrames = 0;
    std::map<std::string, std::uint64_t> requests; ///< by their types
    std::map<std::string, std::uint64_t> answers;  ///< by their status
    std::map<std::string, std::uint64_t> calls;    ///< results of single method calls, by status
};

std::ostream& operator<<(std::ostream& output, const Figures& figures);

} // namespace Fuzz
