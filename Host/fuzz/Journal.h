#pragma once

#include <cstddef>
#include <deque>
#include <filesystem>
#include <string>

namespace Fuzz {

/// The last frames that were sent, to write when a run fails.
class Journal
{
public:
    void Add(std::size_t client, const std::string& frame);
    /// Writes a line for each frame, oldest first: the client's number and the frame in
    /// hexadecimal.
    void Write(const std::filesystem::path& file) const;

private:
    std::deque<std::string> lines;
};

} // namespace Fuzz
