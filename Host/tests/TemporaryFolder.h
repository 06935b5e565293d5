#pragma once

#include "Support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace Host {

using Support::TemporaryFolder;

inline std::string ReadWhole(const std::filesystem::path& file)
{
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

} // namespace Host
