#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>

namespace Host {

/// A folder of its own for one test, removed with all that is in it.
class TemporaryFolder
{
public:
    TemporaryFolder()
        : path(std::filesystem::temp_directory_path() / "talvensor-host-test-XXXXXX")
    {
        if (mkdtemp(path.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), path);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }

    [[nodiscard]] std::filesystem::path GetPath() const { return path; }

    std::filesystem::path MakeFolder(const std::string& name) const
    {
        std::filesystem::create_directories(GetPath() / name);
        return GetPath() / name;
    }

    std::filesystem::path MakeFile(const std::string& name, const std::string& content = "") const
    {
        std::ofstream(GetPath() / name, std::ios::binary) << content;
        return GetPath() / name;
    }

private:
    std::string path;
};

inline std::string ReadWhole(const std::filesystem::path& file)
{
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

} // namespace Host
