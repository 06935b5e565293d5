#pragma once

#include <cstddef>
#include <deque>
#include <filesystem>
#include <string>

namespace Fuzz {

/// The last frames that were sent, for a run that ends badly.
class Journal
{
public:
    void Add(std::size_t client, const std::string& frame);
    /// Writes a line for each, oldest first: the client's number, the frame in hexadecimal digits.
    void Write(const std::filesystem::path& file) const;

private:
    std::deque<std::string> lines;
};

} // namespace Fuzz
