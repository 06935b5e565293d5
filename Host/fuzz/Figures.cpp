#include "Figures.h"

#include <algorithm>
#include <ostream>
#include <utility>
#include <vector>

namespace Fuzz {

namespace {

void Print(std::ostream& output, const char* title,
           const std::map<std::string, std::uint64_t>& counts)
{
    std::vector<std::pair<std::string, std::uint64_t>> sorted(counts.begin(), counts.end());
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto& left, const auto& right) {
        return left.second > right.second;
    });
    output << title << "\n";
    for (const auto& [name, count] : sorted)
        output << "  " << name << " " << count << "\n";
}

} // namespace

std::ostream& operator<<(std::ostream& output, const Figures& figures)
{
    Print(output, "Requests by type:", figures.requests);
    Print(output, "Answers by status:", figures.answers);
    Print(output, "Method calls by status:", figures.calls);
    return output << "Connections " << figures.connections << ", channels " << figures.channels
                  << ", sessions " << figures.sessions << " and " << figures.encryptedSessions
                  << " encrypted, frames " << figures.frames << " (" << figures.mutatedFrames
                  << " of messages whose bytes were changed), bytes " << figures.bytes << "\n";
}

} // namespace Fuzz
