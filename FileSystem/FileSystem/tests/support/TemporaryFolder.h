#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

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

    /// Makes a folder with folders nested in it, deeper than a path can be long. Returns its path.
    // NOLINTNEXTLINE(modernize-use-nodiscard)
    std::string MakeDeepFolder(const std::string& name) const
    {
        constexpr int levels = 2100;
        std::string top = *this / name;
        EXPECT_EQ(::mkdir(top.c_str(), 0700), 0);
        int folder = ::open(top.c_str(), O_RDONLY | O_DIRECTORY);
        for (int level = 0; level < levels; ++level) {
            EXPECT_EQ(::mkdirat(folder, "d", 0700), 0);
            ::close(std::exchange(folder, ::openat(folder, "d", O_RDONLY | O_DIRECTORY)));
        }
        ::close(folder);
        return top;
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
