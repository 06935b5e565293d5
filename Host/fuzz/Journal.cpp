#include "Journal.h"

#include <fstream>
#include <utility>

namespace Fuzz {

namespace {

constexpr std::size_t mostFrames = 1000;
constexpr std::size_t mostBytes = 4096; // of each

} // namespace

void Journal::Add(std::size_t client, const std::string& frame)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string line = std::to_string(client) + " ";
    for (const char each : frame.substr(0, mostBytes)) {
        const auto byte = static_cast<unsigned char>(each);
        line += digits[byte >> 4U];
        line += digits[byte & 15U];
    }
    lines.push_back(std::move(line));
    if (lines.size() > mostFrames)
        lines.pop_front();
}

void Journal::Write(const std::filesystem::path& file) const
{
    std::ofstream output(file);
    for (const std::string& line : lines)
        output << line << "\n";
}

} // namespace Fuzz
