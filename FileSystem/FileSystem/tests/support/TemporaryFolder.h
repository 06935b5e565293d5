#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>

namespace FileSystemTests {

/// A new folder of the test's own, removed with everything in it.
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "talvensor-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
        path = pattern;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    [[nodiscard]] const std::filesystem::path& GetPath() const noexcept { return path; }

    /// Returns the path of an entry of the folder.
    [[nodiscard]] std::string operator/(const std::string& name) const
    {
        return (path / name).string();
    }

    /// Makes a file and returns its path.
    // NOLINTNEXTLINE(modernize-use-nodiscard): often the file is all that is wanted
    std::string MakeFile(const std::string& name, const std::string& content = {}) const
    {
        std::string file = *this / name;
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

private:
    std::filesystem::path path;
};

inline std::string ReadWholeFile(const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    EXPECT_TRUE(stream.is_open()) << file;
    std::ostringstream content;
    content << stream.rdbuf();
    return content.str();
}

} // namespace FileSystemTests
